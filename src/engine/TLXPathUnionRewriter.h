// Turns the parenthesised union steps of a query ("a/(b | c)/d") into the
// plain XPath 1.0 union they stand for ("a/b/d | a/c/d").
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Stateless. XPath 1.0 allows a parenthesised expression only at the start
// of a path, but the xmeml queries use one as any step of a path, as in
// "./media[1]/(video[1] | audio[1])/track". Spelling out each alternative
// into a path of its own gives a union that selects the same nodes in the
// same (document) order, which any XPath 1.0 engine can compile.
// Nothing here throws except std::bad_alloc.
class TLXPathUnionRewriter
{
public:
    // Spelling out multiplies a query by every alternative of every union
    // step; past these bounds a query is refused rather than grown (and
    // rescanned) without end.
    static constexpr std::size_t kLargestRewrittenQuery = 16 * 1024;
    static constexpr int kMostSpelledOutSteps = 64;

    struct Result
    {
        std::string query; // the rewritten query; the original when unchanged or refused
        std::string error; // why the query was refused; empty when it was not
        bool changed = false; // true when at least one union step was spelled out
    };

    // Spells out every union step of the query, one at a time from the
    // left, until none is left. A step is a "(" directly after "/" or "//"
    // with its matching ")"; brackets, bars and slashes inside string
    // literals do not count.
    // - A query without union steps (including "" and queries that do not
    //   tokenize, such as one with an unterminated literal) comes back
    //   unchanged with no error.
    // - The rewriting stops, without an error, at a malformed step (an
    //   unclosed "(", a "(" closed by "]", an empty alternative as in
    //   "(a | )"), which is left for the XPath compiler to report; the steps
    //   before it stay spelled out.
    // - Refused with an error, the original query and `changed` false: a
    //   predicate directly after the ")" ("a/(b | c)[1]"), an alternative
    //   starting with "/" ("./(/xmeml | name)"), or a rewriting that would
    //   exceed kLargestRewrittenQuery characters or kMostSpelledOutSteps
    //   steps.
    static Result rewriteUnionSteps(std::string_view query);
};

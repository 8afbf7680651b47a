// Sort recipes: the edits of `corvale sort` kept in a JSON file, so that one
// recipe can sort many projects.
#pragma once

#include "CliEdit.h"

#include <string>
#include <string_view>
#include <vector>

// Stateless. A recipe is a JSON object with an "edits" array and,
// optionally, a "description" text. Each edit is an object with exactly one
// action key, the same words as the options of `corvale sort`:
//
//   {"in": "Dailies"}                     {"bin": "Selects"}
//   {"range": "Reel [1-10]"}              {"smart-range": "scene"}
//   {"smart-bin": "Interviews", "match": "any",
//    "filters": ["label is Interview", {"field": "log-note",
//                "operator": "contains", "value": "interview"}]}
//   {"remove": "Dailies/Old"}             {"rename": "Dailies", "to": "Days"}
//
// "match" and "filters" belong to "smart-bin", "to" to "rename"; names of
// fields, operators, match types and criteria may also be numbers (JSON
// numbers or decimal texts). Any other key, a missing value or a value of
// the wrong type is an error, so that a misspelt recipe never sorts a
// project half way.
class CliRecipe
{
public:
    // The largest recipe file read; a larger one is refused unread.
    static constexpr std::size_t maximumFileSize = 4 * 1024 * 1024;

    // Reads the recipe at `path` and appends its edits to `edits`. Returns ""
    // or a one-line reason naming the file (and the edit, when one is at
    // fault); on failure `edits` is left as it was.
    [[nodiscard]] static std::string readFile(const std::string &path, std::vector<CliEdit> &edits);

    // The same from recipe text; `name` stands for the file in messages.
    [[nodiscard]] static std::string readText(std::string_view text, std::string_view name,
                                              std::vector<CliEdit> &edits);
};

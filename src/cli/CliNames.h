// The readable words of the command line for the numbers of smart bin
// fields, operators and match types, and of smart range criteria.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// One entry of a names table: the number the engine knows, the word a user
// types, and a short description for `corvale fields`.
struct CliName
{
    std::int64_t number;
    std::string_view word;
    std::string_view description;
};

// Stateless. The tables are the engine's TLClipFields as the command line
// sees them. Every table lists each number the command line accepts, in
// number order; a few numbers have an alias beside their main word (the
// first entry of a number is its main word). A number the engine knows but
// that has no meaning of its own (criterion 1) has an empty word: it is
// accepted as a number and printed as one.
class CliNames
{
public:
    // Smart bin fields 0 to 20 ("name", "scene", "file-type", ...).
    static std::span<const CliName> fields();
    // Smart bin operators 0 to 5 ("contains", "is", "before", ...).
    static std::span<const CliName> operators();
    // Match types: "first" 0, "any" 1, "all" 2.
    static std::span<const CliName> matchTypes();
    // Smart range criteria 0 to 18 ("file-type", "folder", "scene", ...).
    static std::span<const CliName> criteria();

    // The number for `text` in `table`: a word (ASCII case ignored) or a
    // decimal number listed there. nullopt for anything else, including an
    // empty text, signs, blanks and numbers out of the table.
    static std::optional<std::int64_t> numberForText(std::span<const CliName> table, std::string_view text);

    // The main word of `number`, or the number in decimal when the table has
    // no word for it.
    static std::string wordForNumber(std::span<const CliName> table, std::int64_t number);

    // The text `corvale fields` prints: every table with numbers, words and
    // descriptions.
    static std::string listing();
};

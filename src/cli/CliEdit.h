// One edit of a bin tree as the command line and recipes describe it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// One filter row of a smart bin edit, already in the engine's numbers.
struct CliFilterRow
{
    std::int64_t filterType = 0;
    std::int64_t filterMatch = 0;
    std::string filterString;

    bool operator==(const CliFilterRow &) const = default;
};

// An edit, in the order the user gave it. The selection edit (`--in`)
// changes nothing in the tree; it chooses the bin the following edits act
// on, as selecting a row does in the window.
struct CliEdit
{
    // keepSelection and restoreSelection bracket the edits of a recipe: it
    // starts at the top level, and the bin it chooses with "in" stays its
    // own affair.
    enum class Kind { select, bin, range, smartBin, smartRange, remove, rename, keepSelection, restoreSelection };

    Kind kind = Kind::bin;
    // The bin name (bin, smart bin), the range expression, or the bin path
    // (select, remove, rename).
    std::string text;
    // The new name of a rename.
    std::string newName;
    // Smart bin: the match type (all, unless the user chose one) and rows.
    std::int64_t matchType = 2;
    bool hasMatchType = false;
    std::vector<CliFilterRow> filters;
    // Smart range: the criterion.
    std::int64_t criterion = 0;
    // Where the edit came from, for messages: "--bin" on the command line,
    // "recipe.json, edit 3" in a recipe.
    std::string origin;

    // Reads "FIELD OPERATOR VALUE": the field and the operator are the first
    // two blank-separated words (names or numbers of CliNames); the value is
    // the rest of the text after the blanks that follow the operator, taken
    // as it is (it may hold blanks, or be empty). Returns "" and fills `row`,
    // or a one-line reason and leaves `row` alone.
    [[nodiscard]] static std::string parseFilter(std::string_view text, CliFilterRow &row);

    // Fills `row` from separate field, operator and value texts. Returns ""
    // or a one-line reason, as parseFilter.
    [[nodiscard]] static std::string filterFromParts(std::string_view field, std::string_view op,
                                                     std::string value, CliFilterRow &row);

    // The option the edit stands for on the command line ("--smart-bin").
    static std::string_view optionName(Kind kind);
};

// The options of `corvale sort` and the reading of its edits.
#include "CliSortOptions.h"

#include "CliNames.h"
#include "CliRecipe.h"
#include "CliText.h"
#include "TLBinRangeParser.h"

#include <CLI/CLI.hpp>

#include <map>
#include <stdexcept>

namespace {

// An edit option: one value per occurrence, any number of occurrences.
CLI::Option *addEditOption(CLI::App &command, const std::string &name, const std::string &valueName,
                           const std::string &description)
{
    return command.add_option(name, description)
        ->type_name(valueName)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

CliEdit selectionMarker(CliEdit::Kind kind, const std::string &recipe)
{
    CliEdit edit;
    edit.kind = kind;
    edit.origin = recipe;
    return edit;
}

// Checks what can be checked before a project is open, so that a typing
// mistake late on the command line is caught before anything is done.
std::string checkEdit(const CliEdit &edit)
{
    const std::string where = edit.origin + ": ";
    switch (edit.kind) {
    case CliEdit::Kind::bin:
    case CliEdit::Kind::smartBin:
        return edit.text.empty() ? where + "a bin needs a name" : std::string();
    case CliEdit::Kind::rename:
        return edit.newName.empty() ? where + "the new name is empty" : std::string();
    case CliEdit::Kind::range:
        break;
    default:
        return {};
    }
    try {
        (void)TLBinRangeParser::arrayFromExpression(edit.text);
    } catch (const std::out_of_range &) {
        return where + "the range expression " + CliText::quoted(edit.text) + " is malformed (\"]\" before \"[\", or \"x\" before \"-\")";
    }
    return {};
}

} // namespace

CliSortOptions::CliSortOptions(CLI::App &command) : m_command(command)
{
    command.add_option("PROJECT", m_project, "the xmeml project file to sort")->required();
    command.add_option("-o,--output", m_output, "write the sorted project here instead of over PROJECT")
        ->type_name("OUTPUT");
    command.add_flag("--dry-run", m_dryRun, "apply the edits and print the resulting tree; write nothing");
    command.add_flag("--json", m_json, "with --dry-run: print the tree as JSON");
    m_in = addEditOption(command, "--in", "BIN-PATH",
                         "add the edits that follow inside this bin (\"Dailies/Reel 3\"; \"/\": the top level)");
    m_bin = addEditOption(command, "--bin", "NAME", "add an empty bin");
    m_range = addEditOption(command, "--range", "EXPR", "add a range series such as \"Reel [1-10]\"");
    m_smartBin = addEditOption(command, "--smart-bin", "NAME", "add a smart bin of the --filter rows that follow");
    m_match = addEditOption(command, "--match", "all|any|first", "how the smart bin's filters combine (default all)");
    m_filter = addEditOption(command, "--filter", "\"FIELD OPERATOR VALUE\"",
                             "a filter row of the smart bin, such as \"scene contains 12\" (repeatable)");
    m_smartRange = addEditOption(command, "--smart-range", "CRITERION", "add one bin per value of the criterion");
    m_remove = addEditOption(command, "--remove", "BIN-PATH", "remove the bin (a range bin: its whole series)");
    m_rename = command.add_option("--rename", "rename the bin")
                   ->type_name("BIN-PATH NEW-NAME")
                   ->type_size(2)
                   ->expected(1)
                   ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    m_recipe = addEditOption(command, "--recipe", "FILE", "apply the edits of a JSON recipe here");
}

std::string CliSortOptions::collectEdits(std::vector<CliEdit> &edits) const
{
    std::vector<CliEdit> read;
    std::map<const CLI::Option *, std::size_t> seen;
    std::map<const CLI::Option *, std::size_t> used;
    bool smartBinOpen = false;
    for (const CLI::Option *option : m_command.parse_order()) {
        // The parse order lists an option once per value it took, so the
        // second value of a --rename comes as an entry of its own.
        const std::size_t index = seen[option]++;
        if (index < used[option])
            continue;
        used[option] = index + (option == m_rename ? 2 : 1);
        if (auto failure = readValue(option, index, read, smartBinOpen); !failure.empty())
            return failure;
    }
    for (const auto &edit : read) {
        if (auto failure = checkEdit(edit); !failure.empty())
            return failure;
    }
    edits = std::move(read);
    return {};
}

std::string CliSortOptions::readValue(const CLI::Option *option, std::size_t index, std::vector<CliEdit> &edits,
                                      bool &smartBinOpen) const
{
    const auto &results = option->results();
    if (index >= results.size())
        return {};
    const std::string &value = results[index];
    if (option == m_match || option == m_filter)
        return readSmartBinPart(option, value, edits, smartBinOpen);
    if (option == m_recipe) {
        smartBinOpen = false;
        std::vector<CliEdit> recipe;
        if (auto failure = CliRecipe::readFile(value, recipe); !failure.empty())
            return failure;
        // A recipe is self-contained, so that it sorts any project alike: it
        // starts at the top level, and the bin it chooses ends with it.
        edits.push_back(selectionMarker(CliEdit::Kind::keepSelection, value));
        edits.insert(edits.end(), std::make_move_iterator(recipe.begin()), std::make_move_iterator(recipe.end()));
        edits.push_back(selectionMarker(CliEdit::Kind::restoreSelection, value));
        return {};
    }
    CliEdit edit;
    if (option == m_in)
        edit.kind = CliEdit::Kind::select;
    else if (option == m_bin)
        edit.kind = CliEdit::Kind::bin;
    else if (option == m_range)
        edit.kind = CliEdit::Kind::range;
    else if (option == m_smartBin)
        edit.kind = CliEdit::Kind::smartBin;
    else if (option == m_smartRange)
        edit.kind = CliEdit::Kind::smartRange;
    else if (option == m_remove)
        edit.kind = CliEdit::Kind::remove;
    else if (option == m_rename)
        edit.kind = CliEdit::Kind::rename;
    else
        return {}; // PROJECT, -o and the flags are read by CLI11 itself
    edit.origin = std::string(CliEdit::optionName(edit.kind));
    edit.text = value;
    if (edit.kind == CliEdit::Kind::rename)
        edit.newName = index + 1 < results.size() ? results[index + 1] : std::string();
    if (edit.kind == CliEdit::Kind::smartRange) {
        const auto criterion = CliNames::numberForText(CliNames::criteria(), value);
        if (!criterion)
            return "unknown smart range criterion " + CliText::quoted(value) + " (corvale fields lists them)";
        edit.criterion = *criterion;
    }
    smartBinOpen = edit.kind == CliEdit::Kind::smartBin;
    edits.push_back(std::move(edit));
    return {};
}

std::string CliSortOptions::readSmartBinPart(const CLI::Option *option, const std::string &value,
                                             std::vector<CliEdit> &edits, bool smartBinOpen) const
{
    const std::string name = option == m_match ? "--match" : "--filter";
    if (!smartBinOpen)
        return name + " " + CliText::quoted(value) + " must follow the --smart-bin it belongs to";
    CliEdit &bin = edits.back();
    if (option == m_filter) {
        CliFilterRow row;
        if (auto failure = CliEdit::parseFilter(value, row); !failure.empty())
            return "--filter: " + failure;
        bin.filters.push_back(std::move(row));
        return {};
    }
    if (bin.hasMatchType)
        return "--smart-bin " + CliText::quoted(bin.text) + " has two --match options";
    const auto matchType = CliNames::numberForText(CliNames::matchTypes(), value);
    if (!matchType)
        return "unknown match type " + CliText::quoted(value) + " (all, any or first)";
    bin.matchType = *matchType;
    bin.hasMatchType = true;
    return {};
}

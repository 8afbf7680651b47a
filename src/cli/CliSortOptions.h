// The options of `corvale sort`, and the edits read from them in the order
// the user gave them.
#pragma once

#include "CliEdit.h"

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

// Registers the sort options on a CLI11 subcommand and, once it has parsed,
// turns them into edits. The edits come in command-line order (CLI11's
// parse order), with the edits of each --recipe at the place of the option
// (starting at the top level, and leaving the selection as it was before);
// --match and --filter belong to the --smart-bin just before them.
class CliSortOptions
{
public:
    // Adds PROJECT, -o, --dry-run, --json and the edit options to `command`.
    // The object must outlive the command's parsing.
    explicit CliSortOptions(CLI::App &command);

    // The project to sort; the file to write (empty: the project itself);
    // whether to print the resulting tree instead of writing, and as JSON.
    const std::string &project() const { return m_project; }
    const std::string &output() const { return m_output; }
    bool isDryRun() const { return m_dryRun; }
    bool isJson() const { return m_json; }

    // After parsing: reads the edits (recipes included) and checks every
    // name, criterion and range expression. Returns "" and fills `edits`, or
    // a one-line reason.
    [[nodiscard]] std::string collectEdits(std::vector<CliEdit> &edits) const;

private:
    // Reads one value of `option` (the `index`th) into `edits`.
    std::string readValue(const CLI::Option *option, std::size_t index, std::vector<CliEdit> &edits,
                          bool &smartBinOpen) const;
    std::string readSmartBinPart(const CLI::Option *option, const std::string &value,
                                 std::vector<CliEdit> &edits, bool smartBinOpen) const;

    CLI::App &m_command;
    std::string m_project;
    std::string m_output;
    bool m_dryRun = false;
    bool m_json = false;
    CLI::Option *m_in = nullptr;
    CLI::Option *m_bin = nullptr;
    CLI::Option *m_range = nullptr;
    CLI::Option *m_smartBin = nullptr;
    CLI::Option *m_match = nullptr;
    CLI::Option *m_filter = nullptr;
    CLI::Option *m_smartRange = nullptr;
    CLI::Option *m_remove = nullptr;
    CLI::Option *m_rename = nullptr;
    CLI::Option *m_recipe = nullptr;
};

// The commands of `corvale`: parsing, opening the project, and the run of
// each command.
#include "CliCommandLine.h"

#include "CliDocumentView.h"
#include "CliNames.h"
#include "CliSortJob.h"
#include "CliSortOptions.h"
#include "CliText.h"
#include "CliTreePrinter.h"
#include "MyDocument.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <unordered_set>

namespace {

void printReason(std::ostream &err, const std::string &reason)
{
    err << "corvale: " << reason << '\n';
}

// Opens `path` as the document does. On failure the reason is printed
// (after any alert the document showed) and false returned.
bool openProject(MyDocument &document, const std::string &path, std::ostream &err)
{
    const bool opened = document.readFromURL(path);
    if (const std::string reason = document.reasonProjectCannotOpen(path, opened); !reason.empty()) {
        printReason(err, reason);
        return false;
    }
    return true;
}

// The merge puts bins into the project's own children; a file without them
// would be written without its bins, so it is refused before any edit.
bool canTakeBins(MyDocument &document, const std::string &path, std::ostream &err)
{
    const auto controller = document.mediaController();
    if (controller && controller->firstNodeForQuery("./xmeml[1]/project[1]/children[1]"))
        return true;
    printReason(err, path + " holds no xmeml project (xmeml/project/children) to sort bins into");
    return false;
}

bool isAmong(const TLNodeList &nodes, const TLBinNodePtr &node)
{
    return std::find(nodes.begin(), nodes.end(), node) != nodes.end();
}

// The project's top-level bin names before the save.
std::vector<std::string> topLevelBinNames(MyDocument &document)
{
    const auto controller = document.mediaController();
    return controller ? controller->stringValuesForQuery("./xmeml[1]/project[1]/children[1]/bin/name")
                      : std::vector<std::string>();
}

// Regular bins get a new identifier at every save, so a top-level one is
// added again beside the one an earlier sort wrote. Worth a word when the
// project already held a bin of that name at its top and this save wrote
// the new one.
void noteRepeatedRegularBins(MyDocument &document, const std::vector<std::string> &namesBefore, std::ostream &err)
{
    const auto tree = document.dataArray();
    if (!tree)
        return;
    const TLNodeList leftOut = document.reportOfLastWrite().binsLeftOut();
    for (const auto &node : *tree) {
        if (!node || node->kind() != TLBinNodeKind::regularBin || isAmong(leftOut, node))
            continue;
        if (std::find(namesBefore.begin(), namesBefore.end(), node->binName()) == namesBefore.end())
            continue;
        err << "corvale: note: regular bins get a new identifier at every save, so the project now holds "
            << CliText::quoted(node->binName()) << " once more\n";
    }
}

// The document writes what it can and reports the rest: bins left out and
// clips that cannot be referred to. The next opening drops a bin left out,
// so the user hears of it now.
void noteWhatWasNotWritten(MyDocument &document, std::ostream &err)
{
    for (const std::string &note : document.reportOfLastWrite().notes())
        err << "corvale: note: " << note << '\n';
}

MyDocumentServices servicesWithView(const std::shared_ptr<CliDocumentView> &view)
{
    MyDocumentServices services;
    services.view = view;
    return services;
}

int runShow(const std::string &project, bool json, bool withClips, std::ostream &out, std::ostream &err)
{
    auto view = std::make_shared<CliDocumentView>();
    MyDocument document(servicesWithView(view));
    if (!openProject(document, project, err))
        return CliCommandLine::failure;
    const auto tree = document.dataArray();
    const TLNodeList nodes = tree ? *tree : TLNodeList();
    out << (json ? CliTreePrinter::json(nodes) : CliTreePrinter::text(nodes, withClips));
    return CliCommandLine::success;
}

int applyEdits(MyDocument &document, CliDocumentView &view, const std::vector<CliEdit> &edits, std::ostream &err)
{
    CliSortJob job(document, view);
    for (const auto &edit : edits) {
        std::string reason;
        const auto outcome = job.apply(edit, reason);
        if (outcome == CliSortJob::Outcome::refused) {
            printReason(err, reason + "; nothing was written");
            return CliCommandLine::refusal;
        }
        if (outcome == CliSortJob::Outcome::failed) {
            printReason(err, reason + "; nothing was written");
            return CliCommandLine::failure;
        }
    }
    return CliCommandLine::success;
}

int runSort(const CliSortOptions &options, std::ostream &out, std::ostream &err)
{
    std::vector<CliEdit> edits;
    if (auto failure = options.collectEdits(edits); !failure.empty()) {
        printReason(err, failure);
        return CliCommandLine::failure;
    }
    if (options.isJson() && !options.isDryRun()) {
        printReason(err, "--json goes with --dry-run (sort prints nothing otherwise)");
        return CliCommandLine::failure;
    }
    auto view = std::make_shared<CliDocumentView>();
    MyDocument document(servicesWithView(view));
    if (!openProject(document, options.project(), err) || !canTakeBins(document, options.project(), err))
        return CliCommandLine::failure;
    if (const int status = applyEdits(document, *view, edits, err); status != CliCommandLine::success)
        return status;
    if (options.isDryRun()) {
        const auto tree = document.dataArray();
        const TLNodeList nodes = tree ? *tree : TLNodeList();
        out << (options.isJson() ? CliTreePrinter::json(nodes) : CliTreePrinter::text(nodes));
        return CliCommandLine::success;
    }
    const std::string target = options.output().empty() ? options.project() : options.output();
    const std::vector<std::string> namesBefore = topLevelBinNames(document);
    if (!document.writeToURLOnThread(MyDocumentSaveRequest{target, 0})) {
        printReason(err, "cannot write " + target + "; the project and its settings are unchanged");
        return CliCommandLine::failure;
    }
    noteRepeatedRegularBins(document, namesBefore, err);
    noteWhatWasNotWritten(document, err);
    if (const std::string reason = document.settingsFailureOfLastSave(); !reason.empty()) {
        printReason(err, target + " was written with its bins, but the bin tree could not be kept (" + reason +
                             "), so the next sort of it starts without them");
        return CliCommandLine::failure;
    }
    return CliCommandLine::success;
}

// CLI11 shows an option of two values as "TYPE x 2"; --rename reads better
// as "BIN-PATH NEW-NAME".
class CliHelpFormatter final : public CLI::Formatter
{
public:
    std::string make_option_opts(const CLI::Option *option) const override
    {
        if (option->get_type_size_min() == 2)
            return " " + option->get_type_name();
        return CLI::Formatter::make_option_opts(option);
    }
};

struct ShowOptions
{
    std::string project;
    bool json = false;
    bool withClips = false;
};

void addShowOptions(CLI::App &command, ShowOptions &options)
{
    command.add_option("PROJECT", options.project, "the xmeml project file")->required();
    command.add_flag("--json", options.json, "print the tree as JSON, clips included");
    command.add_flag("--clips", options.withClips, "list the clips of smart bins and smart ranges too");
}

int parseAndRun(const std::vector<std::string> &arguments, std::ostream &out, std::ostream &err)
{
    CLI::App app("Corvale sorts the media of an xmeml project into bins.", "corvale");
    app.formatter(std::make_shared<CliHelpFormatter>());
    app.set_version_flag("--version", CORVALE_VERSION);
    app.require_subcommand(1);
    ShowOptions show;
    CLI::App *showCommand = app.add_subcommand("show", "print the project's bin tree as restored for it");
    addShowOptions(*showCommand, show);
    CLI::App *sortCommand = app.add_subcommand("sort", "apply edits to the project's bin tree and save the project");
    const CliSortOptions sort(*sortCommand);
    CLI::App *fieldsCommand = app.add_subcommand("fields", "list the names of fields, operators, match types and criteria");

    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0)
            return app.exit(error, out, err);
        printReason(err, std::string(error.what()) + " (corvale --help explains the commands)");
        return CliCommandLine::failure;
    }
    if (showCommand->parsed())
        return runShow(show.project, show.json, show.withClips, out, err);
    if (sortCommand->parsed())
        return runSort(sort, out, err);
    if (fieldsCommand->parsed())
        out << CliNames::listing();
    return CliCommandLine::success;
}

} // namespace

int CliCommandLine::run(const std::vector<std::string> &arguments, std::ostream &out, std::ostream &err)
{
    try {
        return parseAndRun(arguments, out, err);
    } catch (const std::exception &error) {
        printReason(err, std::string("unexpected failure: ") + error.what());
    } catch (...) {
        printReason(err, "unexpected failure");
    }
    return failure;
}

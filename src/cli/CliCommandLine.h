// The `corvale` command line: show a project's bins, sort a project, list
// the names of fields and criteria.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

// One invocation of `corvale`, start to end. Commands:
//
//   corvale show PROJECT [--json] [--clips]
//   corvale sort PROJECT [-o OUTPUT] [--dry-run [--json]] [EDIT...]
//   corvale fields
//
// A project is opened exactly as the document opens it, restoring the bin
// tree saved for it (in the settings folder the desktop application uses)
// and resolving its smart bins and smart ranges again. `sort` then applies
// the edits in the order given through the document's own commands, and
// saves as the document saves: the bins merged into the project, the file
// written atomically (to OUTPUT, else over PROJECT), the tree stored under
// the written file's name. Every argument and recipe is checked before the
// project is opened, and every edit is applied before anything is written,
// so a run either writes everything or nothing.
//
// Alerts of the document go through TLAlert's presenter (standard error in
// the `corvale` program). The log is whatever TLLog is set up to do.
class CliCommandLine
{
public:
    // Exit statuses.
    static constexpr int success = 0;
    // Anything that went wrong other than a refusal: a one-line reason has
    // been printed on `err`.
    static constexpr int failure = 1;
    // A rule of the document refused an edit: its alert has been shown and
    // nothing was written.
    static constexpr int refusal = 2;

    // Runs the command in `arguments` (without the program's name), printing
    // results on `out` and reasons on `err`. Help and the version go to
    // `out` with status 0. Never throws.
    static int run(const std::vector<std::string> &arguments, std::ostream &out, std::ostream &err);
};

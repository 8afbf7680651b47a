// The commands run with administrator rights, and how they travel to the
// privileged helper.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The few tool invocations TLAuthorization runs with administrator rights,
// built in one shape and checked against that same shape by the privileged
// helper before it runs anything: the tool by absolute path, the fixed
// options of that tool, "--", then operands that are absolute and lexically
// normal. A file named "-rf" is therefore never read as options, and a
// relative name is never resolved in the helper's own working folder.
//
// Requests travel to the helper as NUL-terminated fields (tool, then each
// argument) closed by an empty field; the helper answers each request with
// one line holding the status as decimal text.
class TLPrivilegedCommand
{
public:
    struct Command {
        std::string tool;
        std::vector<std::string> arguments;
        bool operator==(const Command &) const = default;
    };

    // The helper's answer for a request outside the shapes below; nothing
    // was run.
    static constexpr int refusedStatus = -3;

    // "/bin/rm -Rdf -- <path>".
    static Command remove(const std::string &path);
    // "/bin/rm -R -f -- <path>", the form used for a folder's items.
    static Command removeItem(const std::string &path);
    // "/bin/mv -f -- <source> <destination>".
    static Command move(const std::string &source, const std::string &destination);
    // "/bin/cp -f -p -R -- <source> <destination>".
    static Command copy(const std::string &source, const std::string &destination);
    // "/bin/mkdir -p -- <path>".
    static Command makeFolder(const std::string &path);

    // `path` resolved against the working folder when relative, lexically
    // normalised ("." and ".." taken out, slashes collapsed), without a
    // trailing slash. "" for an empty path or when the working folder is
    // unknown.
    static std::string absolutePath(const std::string &path);

    // Whether `command` has one of the shapes above with absolute, lexically
    // normal operands other than "/".
    static bool isAllowed(const Command &command);

    // The request for `command`; nullopt when a field is empty or holds a
    // NUL, which the encoding could not carry.
    static std::optional<std::string> encode(const Command &command);
    // The first complete request at the start of `buffer`, removing it from
    // the buffer; nullopt while the request is still incomplete.
    static std::optional<Command> takeRequest(std::string &buffer);
};

// Bin paths: parsing, resolving against a tree and writing them back.
#include "CliBinPath.h"

#include "CliText.h"

#include <algorithm>

namespace {

std::string escapedName(std::string_view name)
{
    std::string escaped;
    for (const char c : name) {
        if (c == '/' || c == '\\')
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

std::string placeName(const std::vector<std::string> &names, std::size_t depth)
{
    if (depth == 0)
        return "at the top level";
    std::string path;
    for (std::size_t i = 0; i < depth; ++i)
        path.append(i ? "/" : "").append(escapedName(names[i]));
    return "in " + CliText::quoted(path);
}

TLNodeList binsNamed(const TLNodeList &siblings, const std::string &name)
{
    TLNodeList found;
    for (const auto &node : siblings) {
        if (node && node->kind() != TLBinNodeKind::mediaItem && node->binName() == name)
            found.push_back(node);
    }
    return found;
}

} // namespace

std::string CliBinPath::components(std::string_view path, std::vector<std::string> &names)
{
    const std::string_view whole = path;
    while (!path.empty() && path.front() == '/')
        path.remove_prefix(1);
    std::vector<std::string> read;
    std::string current;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const char c = path[i];
        if (c == '\\') {
            if (i + 1 == path.size() || (path[i + 1] != '/' && path[i + 1] != '\\'))
                return "bad bin path " + CliText::quoted(whole) + ": write \"\\/\" for a \"/\" in a name and \"\\\\\" for a \"\\\"";
            current += path[++i];
        } else if (c == '/') {
            if (current.empty())
                return "bad bin path " + CliText::quoted(whole) + ": a name between two \"/\" is empty";
            read.push_back(std::move(current));
            current.clear();
        } else {
            current += c;
        }
    }
    // A trailing "/" is allowed; the top level itself has no names at all.
    if (!current.empty())
        read.push_back(std::move(current));
    names = std::move(read);
    return {};
}

std::string CliBinPath::resolve(const TLNodeList &topLevel, std::string_view path, TLBinNodePtr &node)
{
    std::vector<std::string> names;
    if (auto failure = components(path, names); !failure.empty())
        return failure;
    TLBinNodePtr current;
    TLNodeListPtr siblings = std::make_shared<const TLNodeList>(topLevel);
    for (std::size_t depth = 0; depth < names.size(); ++depth) {
        const TLNodeList found = binsNamed(*siblings, names[depth]);
        if (found.empty())
            return "no bin " + CliText::quoted(names[depth]) + " " + placeName(names, depth);
        if (found.size() > 1) {
            return "the bin path " + CliText::quoted(path) + " is ambiguous: " + std::to_string(found.size()) +
                   " bins are named " + CliText::quoted(names[depth]) + " " + placeName(names, depth);
        }
        current = found.front();
        siblings = current->children();
    }
    node = current;
    return {};
}

std::string CliBinPath::pathOfNode(const TLBinNodePtr &node)
{
    if (!node)
        return "/";
    std::vector<std::string> names;
    for (TLBinNodePtr current = node; current; current = current->parent())
        names.push_back(escapedName(current->binName()));
    std::reverse(names.begin(), names.end());
    std::string path;
    for (const auto &name : names)
        path += (path.empty() ? "" : "/") + name;
    return path;
}

bool CliBinPath::isInTree(const TLNodeList &topLevel, const TLBinNodePtr &node)
{
    if (!node)
        return true;
    TLBinNodePtr current = node;
    while (const auto parent = current->parent()) {
        const auto children = parent->children();
        if (std::find(children->begin(), children->end(), current) == children->end())
            return false;
        current = parent;
    }
    return std::find(topLevel.begin(), topLevel.end(), current) != topLevel.end();
}

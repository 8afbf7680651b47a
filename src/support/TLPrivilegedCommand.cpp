// Building, checking and encoding the commands run with administrator rights.
// Also compiled into the privileged helper, so it depends on the standard
// library alone.
#include "TLPrivilegedCommand.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr std::string_view endOfOptions = "--";

// The tools with their fixed options and the number of operands each takes.
struct Shape {
    std::string_view tool;
    std::vector<std::string_view> options;
    std::size_t operandCount;
};

const std::vector<Shape> &shapes()
{
    static const std::vector<Shape> known{
        {"/bin/rm", {"-Rdf"}, 1},
        {"/bin/rm", {"-R", "-f"}, 1},
        {"/bin/mv", {"-f"}, 2},
        {"/bin/cp", {"-f", "-p", "-R"}, 2},
        {"/bin/mkdir", {"-p"}, 1},
    };
    return known;
}

TLPrivilegedCommand::Command build(std::string_view tool, std::vector<std::string> arguments,
                                   const std::vector<std::string> &operands)
{
    arguments.emplace_back(endOfOptions);
    for (const std::string &operand : operands)
        arguments.push_back(TLPrivilegedCommand::absolutePath(operand));
    return {std::string(tool), std::move(arguments)};
}

bool isAbsoluteAndNormal(const std::string &path)
{
    return path.size() > 1 && path.front() == '/' && TLPrivilegedCommand::absolutePath(path) == path;
}

bool fits(const Shape &shape, const TLPrivilegedCommand::Command &command)
{
    const std::vector<std::string> &arguments = command.arguments;
    const std::size_t optionCount = shape.options.size();
    if (command.tool != shape.tool || arguments.size() != optionCount + 1 + shape.operandCount)
        return false;
    if (!std::equal(shape.options.begin(), shape.options.end(), arguments.begin()))
        return false;
    if (arguments[optionCount] != endOfOptions)
        return false;
    return std::all_of(arguments.begin() + std::ptrdiff_t(optionCount) + 1, arguments.end(), isAbsoluteAndNormal);
}

} // namespace

TLPrivilegedCommand::Command TLPrivilegedCommand::remove(const std::string &path)
{
    return build("/bin/rm", {"-Rdf"}, {path});
}

TLPrivilegedCommand::Command TLPrivilegedCommand::removeItem(const std::string &path)
{
    return build("/bin/rm", {"-R", "-f"}, {path});
}

TLPrivilegedCommand::Command TLPrivilegedCommand::move(const std::string &source, const std::string &destination)
{
    return build("/bin/mv", {"-f"}, {source, destination});
}

TLPrivilegedCommand::Command TLPrivilegedCommand::copy(const std::string &source, const std::string &destination)
{
    return build("/bin/cp", {"-f", "-p", "-R"}, {source, destination});
}

TLPrivilegedCommand::Command TLPrivilegedCommand::makeFolder(const std::string &path)
{
    return build("/bin/mkdir", {"-p"}, {path});
}

std::string TLPrivilegedCommand::absolutePath(const std::string &path)
{
    if (path.empty())
        return {};
    std::error_code error;
    const fs::path absolute = fs::absolute(path, error);
    if (error)
        return {};
    std::string normal = absolute.lexically_normal().string();
    // A trailing slash would make the tools follow a symbolic link to a
    // folder instead of acting on the link itself.
    while (normal.size() > 1 && normal.back() == '/')
        normal.pop_back();
    return normal;
}

bool TLPrivilegedCommand::isAllowed(const Command &command)
{
    return std::any_of(shapes().begin(), shapes().end(), [&](const Shape &shape) { return fits(shape, command); });
}

std::optional<std::string> TLPrivilegedCommand::encode(const Command &command)
{
    const auto carriable = [](const std::string &field) {
        return !field.empty() && field.find('\0') == std::string::npos;
    };
    if (!carriable(command.tool) || !std::all_of(command.arguments.begin(), command.arguments.end(), carriable))
        return std::nullopt;
    std::string request = command.tool;
    request += '\0';
    for (const std::string &argument : command.arguments) {
        request += argument;
        request += '\0';
    }
    request += '\0';
    return request;
}

std::optional<TLPrivilegedCommand::Command> TLPrivilegedCommand::takeRequest(std::string &buffer)
{
    std::vector<std::string> fields;
    std::size_t position = 0;
    while (true) {
        const std::size_t end = buffer.find('\0', position);
        if (end == std::string::npos)
            return std::nullopt;
        if (end == position)
            break;
        fields.push_back(buffer.substr(position, end - position));
        position = end + 1;
    }
    buffer.erase(0, position + 1);
    if (fields.empty())
        return Command{};
    Command command{std::move(fields.front()), {}};
    command.arguments.assign(std::make_move_iterator(fields.begin() + 1), std::make_move_iterator(fields.end()));
    return command;
}

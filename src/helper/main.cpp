// corvale-privileged-helper: runs the program's file commands as root for one
// session.
//
// The program starts this helper once through pkexec, so the administrator
// is asked once per session rather than for every command. It reads
// requests on standard input and answers each with the command's exit
// status on standard output. Only the commands TLPrivilegedCommand builds
// are run (fixed tools by absolute path, fixed options, "--", absolute
// operands); anything else is answered with the refusal status and not run.
// The helper ends when its standard input ends, that is when the program
// ends the session or goes away.
#include "TLPrivilegedCommand.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// A request larger than this is not one the program sends.
constexpr std::size_t maximumRequestSize = 1024 * 1024;

bool writeAll(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        text.remove_prefix(std::size_t(written));
    }
    return true;
}

// Runs the tool with a fixed environment; its output goes to standard error
// so that it can never be mistaken for an answer.
int run(const TLPrivilegedCommand::Command &command)
{
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(command.tool.c_str()));
    for (const std::string &argument : command.arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    static char path[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    static char locale[] = "LC_ALL=C";
    char *environment[] = {path, locale, nullptr};

    const pid_t child = ::fork();
    if (child < 0)
        return 127;
    if (child == 0) {
        const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (nothing < 0 || ::dup2(nothing, STDIN_FILENO) < 0 || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
            ::_exit(127);
        ::execve(command.tool.c_str(), argv.data(), environment);
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return 127;
    }
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

} // namespace

int main()
{
    // An answer to a program that has gone away must end the helper, not
    // be retried.
    std::signal(SIGPIPE, SIG_DFL);
    ::umask(022);
    if (!writeAll(STDOUT_FILENO, "ready\n"))
        return 1;
    std::string buffer;
    char chunk[4096];
    while (true) {
        while (const auto command = TLPrivilegedCommand::takeRequest(buffer)) {
            const int status = TLPrivilegedCommand::isAllowed(*command) ? run(*command)
                                                                         : TLPrivilegedCommand::refusedStatus;
            if (!writeAll(STDOUT_FILENO, std::to_string(status) + "\n"))
                return 1;
        }
        if (buffer.size() > maximumRequestSize)
            return 1;
        const ssize_t got = ::read(STDIN_FILENO, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return 0;
        buffer.append(chunk, std::size_t(got));
    }
}

#include "Unprivileged.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace test {

namespace {

bool isRoot()
{
    return ::geteuid() == 0;
}

// Drops every group and both ids; false when any step fails, so the body
// never runs with privileges it was meant to lose.
bool dropPrivileges()
{
    if (!isRoot())
        return true;
    return ::setgroups(0, nullptr) == 0 && ::setresgid(unprivilegedId, unprivilegedId, unprivilegedId) == 0 &&
           ::setresuid(unprivilegedId, unprivilegedId, unprivilegedId) == 0;
}

} // namespace

std::string runUnprivileged(const std::function<std::string()> &body)
{
    int channel[2];
    if (::pipe(channel) != 0)
        return "cannot make a pipe";
    const pid_t child = ::fork();
    if (child < 0)
        return "cannot fork";
    if (child == 0) {
        ::close(channel[0]);
        std::string failure = dropPrivileges() ? body() : std::string("cannot drop privileges");
        const char *data = failure.data();
        for (std::size_t left = failure.size(); left > 0;) {
            const ssize_t written = ::write(channel[1], data, left);
            if (written <= 0)
                break;
            data += written;
            left -= std::size_t(written);
        }
        ::_exit(failure.empty() ? 0 : 1);
    }
    ::close(channel[1]);
    std::string failure;
    char buffer[512];
    for (ssize_t got; (got = ::read(channel[0], buffer, sizeof buffer)) > 0;)
        failure.append(buffer, std::size_t(got));
    ::close(channel[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!failure.empty())
        return failure;
    if (WIFSIGNALED(status))
        return "the child ended on signal " + std::to_string(WTERMSIG(status));
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return "the child failed without saying why";
    return {};
}

UnprivilegedFolder::UnprivilegedFolder()
{
    std::string pattern = "/tmp/corvale-unprivileged-XXXXXX";
    if (!::mkdtemp(pattern.data())) {
        ADD_FAILURE() << "cannot make a folder under /tmp";
        return;
    }
    m_path = pattern;
    if (isRoot() && ::chown(m_path.c_str(), unprivilegedId, unprivilegedId) != 0)
        ADD_FAILURE() << "cannot give " << m_path << " to the unprivileged user";
}

UnprivilegedFolder::~UnprivilegedFolder()
{
    if (m_path.empty())
        return;
    // The body may have left folders it made read-only.
    std::error_code ignored;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(m_path, ignored))
        std::filesystem::permissions(entry.path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ignored);
    std::filesystem::remove_all(m_path, ignored);
}

std::string UnprivilegedFolder::file(std::string_view name) const
{
    return m_path + "/" + std::string(name);
}

} // namespace test

// Running a piece of a test as an ordinary user, so that tests about
// permissions hold when the suite runs as root (as CI machines do).
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace test {

// The user tests drop to when run as root: "nobody".
inline constexpr unsigned unprivilegedId = 65534;

// Runs `body` in a forked child, as the unprivileged user (group and user
// both) when this process is root and as the current user otherwise.
// Returns "" when the body returned "", else what it returned or how the
// child ended. The child leaves with _exit, running no destructors of the
// parent's objects; gtest assertions inside the body do not reach the
// parent, so the body reports through its result.
std::string runUnprivileged(const std::function<std::string()> &body);

// A fresh folder under /tmp that the unprivileged user owns, removed with
// everything in it when destroyed.
class UnprivilegedFolder
{
public:
    UnprivilegedFolder();
    ~UnprivilegedFolder();
    UnprivilegedFolder(const UnprivilegedFolder &) = delete;
    UnprivilegedFolder &operator=(const UnprivilegedFolder &) = delete;

    const std::string &path() const { return m_path; }
    std::string file(std::string_view name) const;

private:
    std::string m_path;
};

} // namespace test

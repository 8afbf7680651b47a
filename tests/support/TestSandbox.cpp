// The private sandbox every test program runs in: the home folder, the XDG
// folders and the machine-wide folders move below it before any test runs,
// so no test can touch the real user's files.
#include "TestSupport.h"

#include <cstdlib>
#include <string>
#include <unistd.h>

namespace test {

namespace {
std::filesystem::path makeSandbox()
{
    const char *base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/corvale-test-XXXXXX";
    if (!mkdtemp(pattern.data()))
        std::abort();
    const std::filesystem::path root(pattern);
    const auto set = [&](const char *variable, const char *folder) {
        const auto path = root / folder;
        std::filesystem::create_directories(path);
        setenv(variable, path.c_str(), 1);
    };
    set("HOME", "home");
    set("XDG_CONFIG_HOME", "home/.config");
    set("XDG_DATA_HOME", "home/.local/share");
    set("XDG_CACHE_HOME", "home/.cache");
    set("XDG_STATE_HOME", "home/.local/state");
    set("CORVALE_LOCAL_ROOT", "local");
    set("TMPDIR", "tmp");
    // The private temporary folder prefers the session's runtime folder,
    // which must be the user's alone.
    set("XDG_RUNTIME_DIR", "runtime");
    std::filesystem::permissions(root / "runtime", std::filesystem::perms::owner_all);
    unsetenv("XDG_DESKTOP_DIR");
    // Without a graphical session no administrator prompt can appear: a
    // test that provokes a refused file operation must never ask for rights.
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    unsetenv("XDG_DOCUMENTS_DIR");
    return root;
}
} // namespace

const std::filesystem::path &sandboxRoot()
{
    static const std::filesystem::path root = makeSandbox();
    return root;
}

} // namespace test

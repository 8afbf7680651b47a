// The fuzz targets' private home.
#include "FuzzSupport.h"

#include "TLLog.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

void sandbox(bool logging)
{
    const char *temporary = std::getenv("TMPDIR");
    std::string folder = std::string(temporary && *temporary ? temporary : "/tmp") + "/corvale-fuzz-XXXXXX";
    if (!mkdtemp(folder.data())) {
        std::perror("corvale fuzz: cannot make the sandbox folder");
        std::abort();
    }
    const std::string root = folder;
    setenv("HOME", root.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (root + "/.config").c_str(), 1);
    setenv("XDG_DATA_HOME", (root + "/.local/share").c_str(), 1);
    setenv("XDG_STATE_HOME", (root + "/.local/state").c_str(), 1);
    setenv("XDG_CACHE_HOME", (root + "/.cache").c_str(), 1);
    setenv("CORVALE_LOCAL_ROOT", (root + "/local").c_str(), 1);
    setenv("TMPDIR", root.c_str(), 1);
    TLLog &log = TLLog::sharedController();
    log.setNoPrinting(true);
    log.setLoggingDisabled(!logging);
}

} // namespace fuzz

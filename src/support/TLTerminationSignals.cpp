// The self-pipe behind the termination signals.
#include "TLTerminationSignals.h"

#include "TLLog.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace {

constexpr int terminationSignals[] = {SIGTERM, SIGINT, SIGHUP};

int pipeReadEnd = -1;
int pipeWriteEnd = -1;

void handleTerminationSignal(int number)
{
    const int savedError = errno;
    const auto byte = static_cast<unsigned char>(number);
    // A full pipe already holds a request, which is all the reader needs.
    (void)::write(pipeWriteEnd, &byte, 1);
    errno = savedError;
}

} // namespace

int TLTerminationSignals::install()
{
    if (pipeReadEnd >= 0)
        return pipeReadEnd;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        TLLog::appendLog("Unable to watch for termination signals: %@", std::strerror(errno));
        return -1;
    }
    pipeReadEnd = ends[0];
    pipeWriteEnd = ends[1];
    struct sigaction action{};
    action.sa_handler = handleTerminationSignal;
    // Interrupted reads and waits elsewhere in the program carry on.
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    for (const int number : terminationSignals)
        ::sigaction(number, &action, nullptr);
    return pipeReadEnd;
}

int TLTerminationSignals::takeSignal()
{
    if (pipeReadEnd < 0)
        return 0;
    int last = 0;
    unsigned char bytes[16];
    for (ssize_t count; (count = ::read(pipeReadEnd, bytes, sizeof bytes)) > 0;)
        last = bytes[count - 1];
    return last;
}

// The requests to end the program (SIGTERM, SIGINT, SIGHUP) turned into
// something an event loop can wait for.
#pragma once

// A logout, a shutdown or Ctrl-C in a terminal ends the program with one of
// these signals; left to their default action they kill it before the clean
// exit is stamped, and the next start would take the run for a crash. The
// handler only writes the signal's number into a pipe; the front end
// watches the pipe's read end and ends its run the normal way. Nothing here
// throws.
class TLTerminationSignals
{
public:
    // Installs the handler for SIGTERM, SIGINT and SIGHUP and returns the
    // read end of its pipe (non-blocking, close-on-exec), readable once one
    // of the signals has arrived. Installing again returns the same
    // descriptor. -1, with the signals left as they were, when the pipe
    // cannot be made.
    static int install();

    // Reads what has arrived on the pipe: the number of the last signal, 0
    // when none is waiting (also before install()).
    static int takeSignal();
};

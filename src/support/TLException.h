// Turning a caught exception into one log line, and recognising the
// inter-process time-out of the Apple Events bridge.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

// An exception that carries a name of its own besides its reason (what()),
// such as "NSPortTimeoutException" for a host that did not answer in time.
class TLNamedException : public std::runtime_error
{
public:
    TLNamedException(std::string name, const std::string &reason)
        : std::runtime_error(reason), m_name(std::move(name))
    {
    }

    const std::string &name() const noexcept { return m_name; }

private:
    std::string m_name;
};

// Class-level operations only. Nothing here throws.
class TLException
{
public:
    // The name of the exception reported by the Apple Events bridge when a
    // host does not answer in time.
    static constexpr const char *portTimeoutExceptionName = "NSPortTimeoutException";

    // Writes "Exception in <method>. <name> - <reason>." to the log and to
    // standard output (TLLog::appendLogAndPrint) and returns that line.
    // A null `method` reads "(null)"; see nameOfException and
    // reasonOfException for the other two.
    static std::string logException(const std::exception &exception, const char *method);
    // The same for whatever a catch-all caught: a std::exception as above,
    // anything else as "UnknownException" with the reason "no reason given";
    // a null pointer as "NoException" with the same reason.
    static std::string logException(const std::exception_ptr &exception, const char *method);

    // True only when the exception's name is "NSPortTimeoutException".
    static bool didTimeout(const std::exception &exception);
    static bool didTimeout(const std::exception_ptr &exception);

    // The name a TLNamedException carries; for any other exception its
    // readable (demangled) type name, such as "std::out_of_range"; the
    // mangled name when it cannot be demangled.
    static std::string nameOfException(const std::exception &exception);
    // what(); "(null)" when it gives a null pointer.
    static std::string reasonOfException(const std::exception &exception);
};

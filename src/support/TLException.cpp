// Exception reports: one line in the log, and the bridge's time-out test.
#include "TLException.h"

#include "TLFormat.h"
#include "TLLog.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#include <typeinfo>

namespace {

constexpr const char *exceptionLine = "Exception in %s. %@ - %@.";
constexpr const char *noReason = "no reason given";

struct FreeDeleter
{
    void operator()(char *text) const noexcept { std::free(text); }
};

std::string demangled(const char *mangled)
{
    int status = 0;
    const std::unique_ptr<char, FreeDeleter> readable(
        abi::__cxa_demangle(mangled, nullptr, nullptr, &status));
    if (status != 0 || !readable)
        return mangled;
    return readable.get();
}

std::string logLine(const char *method, const std::string &name, const std::string &reason)
{
    try {
        TLLog::appendLogAndPrint(exceptionLine, method, name, reason);
        return TLFormat::stringWithFormat(exceptionLine, method, name, reason);
    } catch (...) {
        // Reporting an exception must never raise another; out of memory
        // here leaves nothing sensible to report with.
        return {};
    }
}

} // namespace

std::string TLException::nameOfException(const std::exception &exception)
{
    if (const auto *named = dynamic_cast<const TLNamedException *>(&exception))
        return named->name();
    return demangled(typeid(exception).name());
}

std::string TLException::reasonOfException(const std::exception &exception)
{
    const char *reason = exception.what();
    return reason ? reason : "(null)";
}

std::string TLException::logException(const std::exception &exception, const char *method)
{
    try {
        return logLine(method, nameOfException(exception), reasonOfException(exception));
    } catch (...) {
        return {};
    }
}

std::string TLException::logException(const std::exception_ptr &exception, const char *method)
{
    try {
        if (!exception)
            return logLine(method, "NoException", noReason);
        std::rethrow_exception(exception);
    } catch (const std::exception &caught) {
        return logException(caught, method);
    } catch (...) {
        return logLine(method, "UnknownException", noReason);
    }
}

bool TLException::didTimeout(const std::exception &exception)
{
    try {
        return nameOfException(exception) == portTimeoutExceptionName;
    } catch (...) {
        return false;
    }
}

bool TLException::didTimeout(const std::exception_ptr &exception)
{
    if (!exception)
        return false;
    try {
        std::rethrow_exception(exception);
    } catch (const std::exception &caught) {
        return didTimeout(caught);
    } catch (...) {
        return false;
    }
}

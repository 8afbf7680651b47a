// Placeholder until the log lands: accepts lines and drops them.
#include "TLLog.h"

TLLog &TLLog::sharedController()
{
    static TLLog log;
    return log;
}

void TLLog::createNewLog(const std::optional<std::string> &, bool) {}
void TLLog::appendLogWithArguments(std::string_view, std::span<const TLFormatArgument>) {}
void TLLog::fastAppendLogWithArguments(std::string_view, std::span<const TLFormatArgument>) {}
void TLLog::appendLogAndPrintWithArguments(std::string_view, std::span<const TLFormatArgument>, bool) {}
void TLLog::finishWriting() {}
std::vector<std::string> TLLog::availableLogs() { return {}; }
std::string TLLog::escapeTextForLogging(std::string_view text) { return std::string(text); }
void TLLog::willTerminate() {}

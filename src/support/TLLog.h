// The application's single text log: five generations of UTF-8 files written
// by one serial queue, so that callers never wait for the disk.
#pragma once

#include "TLFormat.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class TLLog
{
public:
    // The process-wide log, made on first use.
    static TLLog &sharedController();

    // Rotates the generations and starts a fresh current log with its header.
    // `name` is used only when no name can be derived from the executable.
    static void createNewLog(const std::optional<std::string> &name = std::nullopt,
                             bool noPrinting = false);

    // Formats one line and queues it. A background caller with a short
    // message waits until the queue has drained, so that its line lands
    // before the work that follows it.
    template <typename... Values>
    static void appendLog(std::string_view format, Values &&...values)
    {
        const TLFormatArgument arguments[] = {TLFormatArgument(std::forward<Values>(values))..., {}};
        appendLogWithArguments(format, {arguments, sizeof...(Values)});
    }

    // Like appendLog, but never waits.
    template <typename... Values>
    static void fastAppendLog(std::string_view format, Values &&...values)
    {
        const TLFormatArgument arguments[] = {TLFormatArgument(std::forward<Values>(values))..., {}};
        fastAppendLogWithArguments(format, {arguments, sizeof...(Values)});
    }

    // Logs the line and prints a console copy of it on standard output.
    template <typename... Values>
    static void appendLogAndPrint(std::string_view format, Values &&...values)
    {
        const TLFormatArgument arguments[] = {TLFormatArgument(std::forward<Values>(values))..., {}};
        appendLogAndPrintWithArguments(format, {arguments, sizeof...(Values)}, true);
    }

    // appendLogAndPrint without the console copy.
    template <typename... Values>
    static void appendLogAndDebugPrint(std::string_view format, Values &&...values)
    {
        const TLFormatArgument arguments[] = {TLFormatArgument(std::forward<Values>(values))..., {}};
        appendLogAndPrintWithArguments(format, {arguments, sizeof...(Values)}, false);
    }

    // Kept for callers of the debug build's tracing; does nothing.
    static void debugPrint(std::string_view) {}

    static void appendLogWithArguments(std::string_view format,
                                       std::span<const TLFormatArgument> values);
    static void fastAppendLogWithArguments(std::string_view format,
                                           std::span<const TLFormatArgument> values);
    static void appendLogAndPrintWithArguments(std::string_view format,
                                               std::span<const TLFormatArgument> values,
                                               bool print);

    // Blocks until every queued line has been written.
    static void finishWriting();

    // Paths of the generations 1 to 5 that exist, oldest last.
    static std::vector<std::string> availableLogs();

    // The text made safe to use as a format: a literal percent sign before a
    // blank or punctuation is doubled; other directives stay live.
    static std::string escapeTextForLogging(std::string_view text);

    // Shutdown: waits for at most ten pending lines, drops a longer queue.
    static void willTerminate();
};

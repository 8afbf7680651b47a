// The log's formatter with any format and any values: the values come first
// (a count, then for each a kind and its bytes), the rest of the input is
// the format. Each input is also logged for real, the way appendLog
// escapes, formats and trims it, into a log file in the sandbox.
#include "FuzzSupport.h"

#include "TLFormat.h"
#include "TLLog.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <span>
#include <vector>

namespace {

constexpr std::size_t mostValues = 8;
// The longest output one directive can make is a width or precision of 4096
// (a real's digits aside), so the text is bounded by the format and values.
constexpr std::size_t slackPerDirective = 4096 + 512;
// Lines are written out in batches so the queue never grows without end.
constexpr unsigned inputsPerDrain = 256;

TLFormatArgument value(FuzzedDataProvider &input)
{
    switch (input.ConsumeIntegralInRange(0, 6)) {
    case 0:
        return TLFormatArgument(input.ConsumeRandomLengthString(64));
    case 1:
        return TLFormatArgument(input.ConsumeIntegral<long long>());
    case 2:
        return TLFormatArgument(input.ConsumeIntegral<unsigned long long>());
    case 3:
        return TLFormatArgument(input.ConsumeFloatingPoint<double>());
    case 4:
        return TLFormatArgument::character(input.ConsumeIntegral<char16_t>());
    case 5:
        return TLFormatArgument(input.ConsumeBool());
    default:
        return TLFormatArgument(nullptr);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    fuzz::sandbox(true);
    TLLog::setWritingSuspended(true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    std::vector<TLFormatArgument> values(input.ConsumeIntegralInRange<std::size_t>(0, mostValues));
    for (TLFormatArgument &argument : values)
        argument = value(input);
    const std::string format = input.ConsumeRemainingBytesAsString();
    const std::span<const TLFormatArgument> arguments(values);

    const std::string text = TLFormat::stringWithFormat(format, arguments);
    std::size_t valueBytes = 0;
    for (const TLFormatArgument &argument : values)
        if (const auto *string = std::get_if<std::string>(&argument.value()))
            valueBytes += string->size();
    if (text.size() > format.size() * slackPerDirective + valueBytes)
        std::abort();

    TLLog::appendLogWithArguments(format, arguments);
    TLLog::appendLogAndPrintWithArguments(format, arguments, false);
    static unsigned inputs = 0;
    if (++inputs % inputsPerDrain == 0) {
        TLLog::finishWriting();
        TLLog::setWritingSuspended(true);
    }
    return 0;
}

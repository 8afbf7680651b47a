// What every fuzz target shares: a private home for anything the core
// writes, and ways to cut one input into several arguments.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace fuzz {

// Points HOME, the XDG folders, CORVALE_LOCAL_ROOT and TMPDIR into a fresh
// folder under /tmp, so that logs and settings written while fuzzing never
// reach the user's own files, and keeps the log quiet on the console. With
// `logging` false the log is switched off altogether (the targets that do
// not test it run faster without it). Call once, from LLVMFuzzerInitialize.
void sandbox(bool logging);

// The input as text.
inline std::string_view text(const std::uint8_t *data, std::size_t size)
{
    return {reinterpret_cast<const char *>(data), size};
}

// The part of `input` before the first NUL byte, and the rest after it
// (empty when there is no NUL): two arguments from one input, so that a
// seed is readable as "first\0second".
inline std::string_view firstPart(std::string_view input)
{
    return input.substr(0, input.find('\0'));
}
inline std::string_view secondPart(std::string_view input)
{
    const std::size_t split = input.find('\0');
    return split == std::string_view::npos ? std::string_view() : input.substr(split + 1);
}

} // namespace fuzz

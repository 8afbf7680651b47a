// Random version 4 identifiers in canonical upper-case form.
#include "TLUUID.h"

#include <array>
#include <cstdint>
#include <random>

namespace {

// A generator per thread: no locking, and threads started at the same moment
// still get unrelated sequences because each seeds itself from the system.
std::mt19937_64 &threadGenerator()
{
    thread_local std::mt19937_64 generator = [] {
        std::random_device entropy;
        std::array<std::uint32_t, 8> words{};
        for (auto &word : words)
            word = entropy();
        std::seed_seq seed(words.begin(), words.end());
        return std::mt19937_64(seed);
    }();
    return generator;
}

} // namespace

std::string TLUUID::generateUUID()
{
    std::array<std::uint8_t, 16> bytes{};
    std::mt19937_64 &generator = threadGenerator();
    for (std::size_t index = 0; index < bytes.size(); index += 8) {
        const std::uint64_t value = generator();
        for (std::size_t byte = 0; byte < 8; ++byte)
            bytes[index + byte] = static_cast<std::uint8_t>(value >> (8 * byte));
    }
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80); // RFC 4122 variant

    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        if (index == 4 || index == 6 || index == 8 || index == 10)
            text.push_back('-');
        text.push_back(digits[bytes[index] >> 4]);
        text.push_back(digits[bytes[index] & 0x0F]);
    }
    return text;
}

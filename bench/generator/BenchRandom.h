// The pseudo-random numbers behind the synthetic projects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <array>

// splitmix64: small, fast and defined bit for bit, so a generated project is
// identical on every machine and every run (std::uniform_int_distribution
// is not: its results differ between standard libraries).
class BenchRandom
{
public:
    explicit BenchRandom(std::uint64_t seed) : m_state(seed) {}

    // A stream of its own for item `index` of a given kind, so that an item
    // comes out the same wherever and however often it is described.
    static BenchRandom forItem(std::uint64_t seed, std::uint64_t kind, std::uint64_t index)
    {
        BenchRandom mixer(seed ^ (kind << 56) ^ (index * 0x9E3779B97F4A7C15ULL));
        return BenchRandom(mixer.next());
    }

    std::uint64_t next()
    {
        m_state += 0x9E3779B97F4A7C15ULL;
        std::uint64_t z = m_state;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }

    // A number in [0, bound); bound must be positive.
    int below(int bound) { return static_cast<int>(next() % static_cast<std::uint64_t>(bound)); }
    // A number in [low, high].
    int between(int low, int high) { return low + below(high - low + 1); }
    // True in `chance` of 100 draws.
    bool percent(int chance) { return below(100) < chance; }

    // One of `items`, which must not be empty.
    template <typename T, std::size_t Size>
    const T &pick(const std::array<T, Size> &items)
    {
        static_assert(Size > 0);
        return items[static_cast<std::size_t>(below(static_cast<int>(Size)))];
    }

private:
    std::uint64_t m_state;
};

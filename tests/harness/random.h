// random.h - a small generator with a seed that is printed on failure and can be set from outside.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace test {

// The seed of this run: QX_TEST_SEED if set, else a constant, so that plain runs repeat.
inline std::uint64_t seed() {
    char const* const text = std::getenv("QX_TEST_SEED");
    return text ? std::strtoull(text, nullptr, 0) : 20260101;
}

class Random {
public:
    explicit Random(std::uint64_t salt = 0) : state_(seed() * 0x9E3779B97F4A7C15 + salt + 1) {}

    std::uint64_t next() {
        std::uint64_t z = state_ += 0x9E3779B97F4A7C15;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return z ^ (z >> 31);
    }

    // Evenly from 0 to limit - 1; limit is above 0.
    std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(next() % limit); }

    bool chance(std::uint32_t one_in) { return below(one_in) == 0; }

private:
    std::uint64_t state_;
};

}  // namespace test

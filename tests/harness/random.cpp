#include "tests/harness/random.h"

#include <cstdlib>

namespace test {

std::uint64_t seed() {
    char const* const text = std::getenv("QX_TEST_SEED");
    return text ? std::strtoull(text, nullptr, 0) : 20260101;
}

}  // namespace test

// free_list_damage.h - what a pool's validator must notice in a released block.
#pragma once

#include <gtest/gtest.h>

#include <cstring>

namespace test {

#if defined(QX_CHECKS)
constexpr bool filled = true;
#else
constexpr bool filled = false;
#endif

// `block` of `size` bytes was released last; `sound` asks the validator.
template <typename Sound>
void expect_damage_noticed(void* block, unsigned int size, Sound sound) {
    EXPECT_TRUE(sound());
    char* const bytes = static_cast<char*>(block);
    char link[8];
    std::memcpy(link, bytes, sizeof link);
    char* const places[] = {bytes, bytes + 4, link};  // a circle, inside a block, elsewhere
    for (char* const& wrong : places) {
        std::memcpy(bytes, &wrong, sizeof wrong);
        EXPECT_FALSE(sound());
    }
    std::memcpy(bytes, link, sizeof link);
    for (unsigned int i = 8; filled && i != size; ++i) {
        EXPECT_EQ(bytes[i], '\xDD');
        bytes[i] = 'x';
        EXPECT_FALSE(sound());
        bytes[i] = '\xDD';
    }
    EXPECT_TRUE(sound());
}

}  // namespace test

#include "qx/base/hash.h"

#include <gtest/gtest.h>

TEST(Hash, takes_values_in_words_of_32_bits_with_one_key) {
    constexpr unsigned int key = 0x4A545EED;
    EXPECT_EQ(QX_STD::HASH<unsigned short>()(1), 1 ^ key);
    EXPECT_EQ(QX_STD::HASH<int>()(-1), ~key);
    EXPECT_EQ(QX_STD::HASH<float>()(1.0f), 0x3F800000u ^ key);
    EXPECT_EQ(QX_STD::HASH<unsigned long long>()(0x0000000500000003), 6u ^ key);
    EXPECT_EQ(QX_STD::HASH<double>()(1.0), 0x3FF00000u ^ key);
}

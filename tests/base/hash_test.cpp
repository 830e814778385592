#include "qx/base/hash.h"

#include <gtest/gtest.h>

namespace {

TEST(Hash, small_integers_and_floats_take_one_key) {
    EXPECT_EQ(QX_STD::HASH<int>()(0), 0x4A545EEDu);
    EXPECT_EQ(QX_STD::HASH<unsigned short>()(1), 0x4A545EECu);
    EXPECT_EQ(QX_STD::HASH<int>()(-1), ~0x4A545EEDu);
    EXPECT_EQ(QX_STD::HASH<float>()(1.0f), 0x3F800000u ^ 0x4A545EEDu);
}

TEST(Hash, wide_values_fold_their_two_words) {
    EXPECT_EQ(QX_STD::HASH<unsigned long long>()(0x0000000500000003), 6u ^ 0x4A545EEDu);
    EXPECT_EQ(QX_STD::HASH<double>()(1.0), 0x3FF00000u ^ 0x4A545EEDu);
}

}  // namespace

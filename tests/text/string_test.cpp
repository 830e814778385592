// string_test.cpp - String and UniString: storage states, sizes, comparison and search.
#include "qx/text/string.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using QX::String;
using QX::UniString;

TEST(String, shares_one_terminator_between_the_library_and_its_clients) {
    String const from_library = String("a").substr(1) + String();
    EXPECT_EQ(String().c_str(), from_library.c_str());
    EXPECT_EQ(UniString().c_str(), (UniString() + UniString()).c_str());
    EXPECT_STREQ(String().c_str(), "");
    EXPECT_EQ(String("").c_str(), String::static_empty_string());
    EXPECT_NE(&QX::CHAR_TRAITS<char>::eos(), String::static_empty_string());
}

TEST(String, offers_npos_as_a_thing_that_references_can_be_bound_to) {
    unsigned int const& bound = String::npos;
    EXPECT_EQ(std::min(bound, UniString::npos), 0xFFFFFFFFu);
    EXPECT_EQ(String::max_length(), 0xFFFFFFFEu);
}

}  // namespace

#include "qx/data/registry.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <string>

namespace {

using QX::REGISTRY_SECTION;
using QX::String;
using QX::UniString;

std::wstring test_key() {
    return L"Software\\qx_test_" + std::to_wstring(GetCurrentProcessId());
}

// A section below a key of the case's own, which is removed with everything in it.
class RegistrySection : public testing::Test {
protected:
    ~RegistrySection() override {
        RegCloseKey(key());
        RegDeleteTreeW(HKEY_CURRENT_USER, test_key().c_str());
    }

    HKEY key() const { return static_cast<HKEY>(section_.handle()); }

    // As another program would.
    void store(wchar_t const* name, DWORD type, void const* data, DWORD size) {
        ASSERT_EQ(RegSetValueExW(key(), name, 0, type, static_cast<BYTE const*>(data), size), 0);
    }

    REGISTRY_SECTION section_{UniString((test_key() + L"\\a\\b").c_str())};
};

TEST_F(RegistrySection, makes_its_key_and_shares_it_with_others) {
    ASSERT_NE(section_.handle(), nullptr);
    char narrow[80];
    snprintf(narrow, sizeof narrow, "Software\\qx_test_%lu\\A\\B", GetCurrentProcessId());
    REGISTRY_SECTION other{String(narrow)};
    EXPECT_TRUE(other.write_int32(String("n"), -5));
    int value = 0;
    EXPECT_TRUE(section_.read_int32(UniString(L"N"), value));
    EXPECT_EQ(value, -5);
    EXPECT_EQ(REGISTRY_SECTION(other).handle(), other.handle());
    RegCloseKey(static_cast<HKEY>(other.handle()));
}

TEST_F(RegistrySection, stores_integers_and_terminated_wide_text) {
    DWORD type = 0, size = 100;
    wchar_t data[50] = {};
    EXPECT_TRUE(section_.write_int32(UniString(L"n"), 7));
    EXPECT_EQ(RegQueryValueExW(key(), L"n", nullptr, &type, nullptr, &size), 0);
    EXPECT_EQ(type, 4u);
    EXPECT_EQ(size, 4u);
    size = 100;
    EXPECT_TRUE(section_.write_string(String("s"), String("\xC3\xA4z")));
    EXPECT_EQ(RegQueryValueExW(key(), L"s", nullptr, &type, (BYTE*)data, &size), 0);
    EXPECT_EQ(type, 1u);
    EXPECT_EQ(size, 6u);
    EXPECT_STREQ(data, L"\u00E4z");
}

TEST_F(RegistrySection, reads_integers_of_any_type_that_fits) {
    int value = 99;
    EXPECT_FALSE(section_.read_int32(String("missing"), value));
    store(L"long", REG_BINARY, "12345678", 8);
    EXPECT_FALSE(section_.read_int32(String("long"), value));
    EXPECT_EQ(value, 99);
    store(L"bytes", REG_BINARY, "\1\2\3\4", 4);
    EXPECT_TRUE(section_.read_int32(String("bytes"), value));
    EXPECT_EQ(value, 0x04030201);
}

TEST_F(RegistrySection, reads_text_of_up_to_256_stored_bytes) {
    UniString value(L"kept");
    EXPECT_TRUE(section_.write_string(UniString(L"127"), UniString(127, L'a')));
    EXPECT_TRUE(section_.write_string(UniString(L"128"), UniString(128, L'b')));
    EXPECT_FALSE(section_.read_string(UniString(L"128"), value));
    EXPECT_STREQ(value.c_str(), L"kept");
    EXPECT_TRUE(section_.read_string(UniString(L"127"), value));
    EXPECT_EQ(value, UniString(127, L'a'));
    // Without a terminator, which the system adds where one lies behind, one character more fits.
    store(L"open", REG_SZ, std::wstring(129, L'c').data(), 256);
    EXPECT_TRUE(section_.read_string(String("open"), value));
    EXPECT_EQ(value, UniString(128, L'c'));
}

TEST_F(RegistrySection, empties_narrow_text_and_keeps_wide_text_after_a_failure) {
    UniString wide(L"kept");
    String narrow("lost");
    EXPECT_FALSE(section_.read_string(UniString(L"missing"), wide));
    EXPECT_FALSE(section_.read_string(String("missing"), wide));
    EXPECT_FALSE(section_.read_string(String("missing"), narrow));
    EXPECT_STREQ(wide.c_str(), L"kept");
    EXPECT_STREQ(narrow.c_str(), "");
}

TEST_F(RegistrySection, gives_text_back_through_both_widths) {
    UniString wide;
    String narrow;
    EXPECT_TRUE(section_.write_string(String("\xE2\x82\xAC"), UniString(L"\u00E4 \u20AC")));
    EXPECT_TRUE(section_.read_string(UniString(L"\u20AC"), wide));
    EXPECT_STREQ(wide.c_str(), L"\u00E4 \u20AC");
    EXPECT_TRUE(section_.read_string(String("\xE2\x82\xAC"), narrow));
    EXPECT_STREQ(narrow.c_str(), "\xC3\xA4 \xE2\x82\xAC");
}

TEST_F(RegistrySection, without_a_key_everything_is_false) {
    REGISTRY_SECTION none(UniString((std::wstring(300, L'k')).c_str()));
    ASSERT_EQ(none.handle(), nullptr);
    int number = 1;
    String text;
    EXPECT_FALSE(none.write_int32(String("n"), 1));
    EXPECT_FALSE(none.read_int32(String("n"), number));
    EXPECT_FALSE(none.write_string(String("s"), String("text")));
    EXPECT_FALSE(none.read_string(String("s"), text));
}

}  // namespace

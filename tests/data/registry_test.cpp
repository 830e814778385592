#include "qx/data/registry.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"

#include <string>

#include "tests/harness/failing_call.h"

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

TEST_F(RegistrySection, reads_integers_of_any_type_that_fits_under_a_shared_key) {
    std::wstring const wide = test_key() + L"\\A\\B";
    REGISTRY_SECTION other{String(std::string(wide.begin(), wide.end()).c_str())};
    EXPECT_TRUE(other.write_int32(String("n"), -5));
    RegCloseKey(static_cast<HKEY>(other.handle()));
    store(L"long", REG_BINARY, "12345678", 8);
    store(L"bytes", REG_BINARY, "\1\2\3\4", 4);
    int value = 0;
    EXPECT_TRUE(section_.read_int32(UniString(L"N"), value));
    EXPECT_FALSE(section_.read_int32(String("long"), value));
    EXPECT_EQ(value, -5);
    EXPECT_TRUE(section_.read_int32(String("bytes"), value) && value == 0x04030201);
}

TEST_F(RegistrySection, reads_text_of_up_to_256_stored_bytes) {
    UniString value(L"kept");
    EXPECT_TRUE(section_.write_string(String("\xC3\xA4"), String("\xC3\xA4z")));
    wchar_t data[50] = {};
    DWORD size = sizeof data;
    RegGetValueW(key(), nullptr, L"\u00E4", RRF_RT_REG_SZ, nullptr, data, &size);
    EXPECT_TRUE(size == 6 && data == std::wstring(L"\u00E4z"));
    EXPECT_TRUE(section_.write_string(UniString(L"128"), UniString(128, L'b')));
    EXPECT_FALSE(section_.read_string(String("128"), value));
    EXPECT_STREQ(value.c_str(), L"kept");
    // Without a terminator, which the system adds where one lies behind, one character more fits.
    store(L"open", REG_SZ, std::wstring(129, L'c').data(), 256);
    EXPECT_TRUE(section_.read_string(String("open"), value));
    EXPECT_EQ(value, UniString(128, L'c'));
}

TEST_F(RegistrySection, without_a_key_everything_fails_and_narrow_text_alone_is_emptied) {
    REGISTRY_SECTION none(UniString((std::wstring(300, L'k')).c_str()));
    ASSERT_EQ(none.handle(), nullptr);
    String text("lost");
    EXPECT_FALSE(none.write_string(String("s"), String("text")));
    EXPECT_FALSE(none.read_string(String("s"), text));
    EXPECT_STREQ(text.c_str(), "");
}

TEST_F(RegistrySection, bears_memory_and_system_calls_that_fail) {
    auto const exchange = [&] {
        UniString value;
        return section_.write_string(String("name"), String("\xC3\xA4z")) &&
               section_.read_string(String("name"), value) && value == UniString(L"\u00E4z");
    };
    test::walk_failures("texts", exchange, {{"RegSetValueExW", 5}, {"RegQueryValueExW", 5}});
}

}  // namespace

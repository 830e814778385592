#include "qx/app/clipboard.h"

#include <gtest/gtest.h>

#include "qx/base/windows.h"
#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#include <cstring>
#include <string>

namespace {

// Straight through the system, as another program would.
class SystemClipboard {
public:
    SystemClipboard() : open_(OpenClipboard(GetFocus())) { EXPECT_TRUE(open_); }
    ~SystemClipboard() { CloseClipboard(); }

    std::string narrow() const {
        HANDLE const data = GetClipboardData(CF_TEXT);
        if (data == nullptr) return "(none)";
        std::string const text = static_cast<char const*>(GlobalLock(data));
        GlobalUnlock(data);
        return text;
    }

    void place(unsigned int format, void const* bytes, std::size_t size) const {
        HGLOBAL const memory = GlobalAlloc(GMEM_MOVEABLE, size);
        std::memcpy(GlobalLock(memory), bytes, size);
        GlobalUnlock(memory);
        EXPECT_NE(SetClipboardData(format, memory), nullptr);
    }

    void empty() const { EmptyClipboard(); }

private:
    BOOL open_;
};

void place_wide(std::wstring const& text) {
    SystemClipboard const clipboard;
    clipboard.empty();
    clipboard.place(CF_UNICODETEXT, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

std::string narrow_now() {
    return SystemClipboard().narrow();
}

class Clipboard : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(host_.open_in_front()); }
    void TearDown() override { SystemClipboard().empty(); }

    test::Host host_;
};

TEST_F(Clipboard, copies_out_utf8_as_narrow_text) {
    QX::copy_to_clipboard(L"caf\u00E9 \u20AC");
    EXPECT_EQ(narrow_now(), "caf\xC3\xA9 \xE2\x82\xAC");
    QX::copy_to_clipboard(L"");
    EXPECT_EQ(narrow_now(), "");
    QX::copy_to_clipboard(QX::UniString(L"up to\0the terminator", 10));
    EXPECT_EQ(narrow_now(), "up to");
}

TEST_F(Clipboard, pastes_wide_text_up_to_its_terminator) {
    place_wide(L"caf\u00E9 \u20AC\xD83D\xDE00");
    EXPECT_STREQ(QX::paste_from_clipboard().c_str(), L"caf\u00E9 \u20AC\xD83D\xDE00");
    place_wide(std::wstring(L"one\0two", 7));
    EXPECT_EQ(QX::paste_from_clipboard().length(), 3u);
    place_wide(L"");
    EXPECT_TRUE(QX::paste_from_clipboard().empty());
}

TEST_F(Clipboard, plain_text_comes_back_where_the_system_makes_it_wide) {
    QX::copy_to_clipboard(L"sail at dawn");
    EXPECT_STREQ(QX::paste_from_clipboard().c_str(), L"sail at dawn");
}

BOOL WINAPI refuse_format(UINT format) {
    EXPECT_EQ(format, 13u);
    return FALSE;
}

TEST_F(Clipboard, narrow_text_alone_is_not_pasted) {
    QX::copy_to_clipboard(L"narrow");
    test::StandIn const asked("IsClipboardFormatAvailable", refuse_format);
    ASSERT_TRUE(asked.found());
    EXPECT_TRUE(QX::paste_from_clipboard().empty());
}

BOOL WINAPI refuse_to_open(HWND window) {
    EXPECT_EQ(window, GetFocus());
    return FALSE;
}

TEST_F(Clipboard, that_cannot_be_opened_is_left_as_it_is) {
    QX::copy_to_clipboard(L"before");
    {
        test::StandIn const opened("OpenClipboard", refuse_to_open);
        ASSERT_TRUE(opened.found());
        QX::copy_to_clipboard(L"after");
        EXPECT_TRUE(QX::paste_from_clipboard().empty());
    }
    EXPECT_EQ(narrow_now(), "before");
}

HGLOBAL WINAPI refuse_memory(UINT, SIZE_T) {
    return nullptr;
}

void* WINAPI refuse_lock(HGLOBAL) {
    return nullptr;
}

HANDLE WINAPI refuse_data(UINT) {
    return nullptr;
}

// narrow_now opens the clipboard for itself, so it must have been closed.
TEST_F(Clipboard, is_closed_after_every_failure) {
    place_wide(L"wide");
    for (auto const& [call, replacement] :
         {std::pair("GlobalLock", reinterpret_cast<void*>(refuse_lock)),
          std::pair("GetClipboardData", reinterpret_cast<void*>(refuse_data))}) {
        test::StandIn const refused(call, replacement);
        ASSERT_TRUE(refused.found());
        EXPECT_TRUE(QX::paste_from_clipboard().empty());
        EXPECT_EQ(narrow_now(), "wide");
    }
    for (auto const& [call, replacement] :
         {std::pair("GlobalAlloc", reinterpret_cast<void*>(refuse_memory)),
          std::pair("GlobalLock", reinterpret_cast<void*>(refuse_lock))}) {
        place_wide(L"wide");
        test::StandIn const refused(call, replacement);
        ASSERT_TRUE(refused.found());
        QX::copy_to_clipboard(L"copied");
        EXPECT_EQ(narrow_now(), "(none)") << call;
    }
}

}  // namespace

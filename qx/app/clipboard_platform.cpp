#include "qx/app/clipboard.h"

#include "qx/base/windows.h"
#include "qx/text/convert.h"

#include <cstring>

namespace QX {

namespace {

class OpenedClipboard {
public:
    OpenedClipboard() : open_(OpenClipboard(GetFocus()) != FALSE) {}
    ~OpenedClipboard() {
        if (open_) CloseClipboard();
    }
    OpenedClipboard(OpenedClipboard const&) = delete;
    OpenedClipboard& operator=(OpenedClipboard const&) = delete;

    explicit operator bool() const { return open_; }

private:
    bool open_;
};

class LockedMemory {
public:
    explicit LockedMemory(HGLOBAL memory) : memory_(memory), view_(GlobalLock(memory)) {}
    ~LockedMemory() {
        if (view_ != nullptr) GlobalUnlock(memory_);
    }
    LockedMemory(LockedMemory const&) = delete;
    LockedMemory& operator=(LockedMemory const&) = delete;

    void* view() const { return view_; }

private:
    HGLOBAL memory_;
    void* view_;
};

bool fill(HGLOBAL memory, String const& text) {
    LockedMemory const locked(memory);
    if (locked.view() == nullptr) return false;
    std::memcpy(locked.view(), text.c_str(), text.length() + 1ull);
    return true;
}

}  // namespace

void copy_to_clipboard(UniString const& text) {
    String const narrow = must_fix_string_narrow(text);
    OpenedClipboard const clipboard;
    if (!clipboard) return;
    EmptyClipboard();
    HGLOBAL const memory = GlobalAlloc(GMEM_MOVEABLE, narrow.length() + 1ull);
    if (memory == nullptr) return;
    // What was placed belongs to the system.
    if (!fill(memory, narrow) || SetClipboardData(CF_TEXT, memory) == nullptr) GlobalFree(memory);
}

UniString paste_from_clipboard() {
    if (!IsClipboardFormatAvailable(CF_UNICODETEXT)) return UniString();
    OpenedClipboard const clipboard;
    if (!clipboard) return UniString();
    HANDLE const data = GetClipboardData(CF_UNICODETEXT);
    if (data == nullptr) return UniString();
    LockedMemory const locked(data);
    if (locked.view() == nullptr) return UniString();
    return UniString(static_cast<wchar_t const*>(locked.view()));
}

}  // namespace QX

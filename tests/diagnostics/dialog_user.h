// dialog_user.h - a thread that waits for a window and acts on it, as a person would.
#pragma once

#include "qx/base/windows.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

namespace test {

// The process's own visible window of that title; null if there is none within ten seconds.
inline HWND await_window(std::wstring const& title) {
    for (int i = 0; i < 2000; ++i, Sleep(5)) {
        HWND const window = FindWindowW(nullptr, title.c_str());
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        if (process == GetCurrentProcessId() && IsWindowVisible(window)) return window;
    }
    return nullptr;
}

// `act` must end the dialog; one that it leaves open is ended as ignored.
class DialogUser {
public:
    DialogUser(std::wstring const& title, std::function<void(HWND)> act)
        : thread_([title, act] {
              HWND const window = await_window(title);
              ASSERT_NE(window, nullptr);
              act(window);
              for (int i = 0; i < 600 && IsWindow(window); ++i) Sleep(5);
              if (!IsWindow(window)) return;
              ADD_FAILURE() << "the dialog stays open";
              PostMessageW(window, WM_COMMAND, 6, 0);
          }) {}
    ~DialogUser() { thread_.join(); }

    DialogUser(DialogUser const&) = delete;
    DialogUser& operator=(DialogUser const&) = delete;

private:
    std::thread thread_;
};

inline std::wstring text_of(HWND window) {
    std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(window)), L'\0');
    GetWindowTextW(window, text.data(), static_cast<int>(text.size()) + 1);
    return text;
}

// A place in client coordinates of the parent.
inline RECT place_of(HWND parent, int id) {
    RECT place = {};
    GetWindowRect(GetDlgItem(parent, id), &place);
    MapWindowPoints(nullptr, parent, reinterpret_cast<POINT*>(&place), 2);
    return place;
}

}  // namespace test

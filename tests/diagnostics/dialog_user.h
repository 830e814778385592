// dialog_user.h - a thread that waits for a window and acts on it, as a person would.
#pragma once

#include "qx/base/windows.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>

namespace test {

// `act` must end the window of that title; one that it leaves open is ended as ignored.
class DialogUser {
public:
    DialogUser(std::wstring const& title, std::function<void(HWND)> act)
        : thread_([title, act] {
              HWND window = nullptr;
              for (int i = 0; i < 2000 && !IsWindowVisible(window); ++i, Sleep(5))
                  window = FindWindowW(nullptr, title.c_str());
              act(window);
              for (int i = 0; i < 600 && IsWindow(window); ++i) Sleep(5);
              EXPECT_FALSE(IsWindow(window)) << "the dialog stays open";
              PostMessageW(window, WM_COMMAND, 6, 0);
          }) {}
    ~DialogUser() { thread_.join(); }

private:
    std::thread thread_;
};

inline std::wstring text_of(HWND window) {
    wchar_t text[3000] = {};
    GetWindowTextW(window, text, 3000);
    return text;
}

}  // namespace test

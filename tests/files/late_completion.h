// late_completion.h - a stand-in for ReadFileEx that reads only after a while, in a procedure call
// on the issuing thread.
#pragma once

#include "qx/base/windows.h"

#include <functional>
#include <memory>

#include "tests/harness/stand_in.h"

namespace test {

class LateCompletion {
public:
    explicit LateCompletion(unsigned int delay_ms) {
        real_read_ = reinterpret_cast<decltype(&ReadFileEx)>(stand_in_.original());
        delay_ = delay_ms;
        begun = delivered = 0;
    }

    // Reads asked for, and those that came to be read.
    static inline unsigned int begun, delivered;

private:
    using Routine = LPOVERLAPPED_COMPLETION_ROUTINE;
    using Read = std::function<void()>;

    static BOOL WINAPI
    read_late(HANDLE file, LPVOID data, DWORD bytes, LPOVERLAPPED record, Routine routine) {
        HANDLE const timer = CreateWaitableTimerA(nullptr, TRUE, nullptr);
        auto const read = new Read([=] {
            CloseHandle(timer);
            ++delivered;
            if (!real_read_(file, data, bytes, record, routine)) routine(GetLastError(), 0, record);
        });
        // In an alertable wait, as the completion of the real read will be.
        auto const call = [](void* argument, DWORD, DWORD) {
            std::unique_ptr<Read> const own(static_cast<Read*>(argument));
            (*own)();
        };
        LARGE_INTEGER const due = {.QuadPart = -10000ll * delay_};
        ++begun;
        BOOL const set = SetWaitableTimer(timer, &due, 0, call, read, FALSE);
        SetLastError(0);
        return set;
    }

    static inline decltype(&ReadFileEx) real_read_;
    static inline unsigned int delay_;
    StandIn stand_in_{"ReadFileEx", read_late};
};

}  // namespace test

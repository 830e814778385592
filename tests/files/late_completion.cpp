#include "tests/files/late_completion.h"

namespace test {

namespace {

struct Pending {
    HANDLE timer, file;
    void* data;
    DWORD bytes;
    OVERLAPPED* record;
    LPOVERLAPPED_COMPLETION_ROUTINE routine;
};

unsigned int delay;
decltype(&ReadFileEx) real_read;

// On the issuing thread, in an alertable wait, as the completion of the real read will be.
void CALLBACK begin(void* argument, DWORD, DWORD) {
    Pending const pending = *static_cast<Pending*>(argument);
    delete static_cast<Pending*>(argument);
    CloseHandle(pending.timer);
    ++LateCompletion::delivered;
    if (!real_read(pending.file, pending.data, pending.bytes, pending.record, pending.routine))
        pending.routine(GetLastError(), 0, pending.record);
}

BOOL WINAPI read_late(
    HANDLE file, LPVOID data, DWORD bytes, LPOVERLAPPED record,
    LPOVERLAPPED_COMPLETION_ROUTINE routine) {
    HANDLE const timer = CreateWaitableTimerA(nullptr, TRUE, nullptr);
    LARGE_INTEGER due;
    due.QuadPart = -10000ll * delay;
    ++LateCompletion::begun;
    auto const pending = new Pending{timer, file, data, bytes, record, routine};
    BOOL const set = SetWaitableTimer(timer, &due, 0, begin, pending, FALSE);
    SetLastError(0);
    return set;
}

}  // namespace

unsigned int LateCompletion::begun;
unsigned int LateCompletion::delivered;

LateCompletion::LateCompletion(unsigned int delay_ms) : stand_in_("ReadFileEx", read_late) {
    real_read = reinterpret_cast<decltype(real_read)>(stand_in_.original());
    delay = delay_ms;
    begun = delivered = 0;
}

}  // namespace test

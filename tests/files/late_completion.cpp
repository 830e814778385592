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

// On the issuing thread, in an alertable wait.
void CALLBACK complete(void* argument, DWORD, DWORD) {
    Pending const pending = *static_cast<Pending*>(argument);
    delete static_cast<Pending*>(argument);
    OVERLAPPED own = {};
    own.Offset = pending.record->Offset;
    own.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    DWORD done = 0, error = 0;
    if (!ReadFile(pending.file, pending.data, pending.bytes, &done, &own)) error = GetLastError();
    if (error == ERROR_IO_PENDING)
        error = GetOverlappedResult(pending.file, &own, &done, TRUE) ? 0 : GetLastError();
    CloseHandle(own.hEvent);
    CloseHandle(pending.timer);
    ++LateCompletion::delivered;
    pending.routine(error, done, pending.record);
}

BOOL WINAPI read_late(
    HANDLE file, LPVOID data, DWORD bytes, LPOVERLAPPED record,
    LPOVERLAPPED_COMPLETION_ROUTINE routine) {
    HANDLE const timer = CreateWaitableTimerA(nullptr, TRUE, nullptr);
    LARGE_INTEGER due;
    due.QuadPart = -10000ll * delay;
    ++LateCompletion::begun;
    auto const pending = new Pending{timer, file, data, bytes, record, routine};
    BOOL const set = SetWaitableTimer(timer, &due, 0, complete, pending, FALSE);
    SetLastError(0);
    return set;
}

}  // namespace

unsigned int LateCompletion::begun;
unsigned int LateCompletion::delivered;

LateCompletion::LateCompletion(unsigned int delay_ms) : stand_in_("ReadFileEx", read_late) {
    delay = delay_ms;
    begun = delivered = 0;
}

}  // namespace test

#include "tests/files/late_completion.h"

#include <thread>
#include <vector>

namespace test {

namespace {

struct Pending {
    HANDLE file, thread;
    void* data;
    DWORD bytes;
    OVERLAPPED* record;
    LPOVERLAPPED_COMPLETION_ROUTINE routine;
};

unsigned int delay;
std::vector<std::thread> deliverers;

// On the issuing thread, in an alertable wait.
void CALLBACK complete(ULONG_PTR argument) {
    Pending const pending = *reinterpret_cast<Pending*>(argument);
    delete reinterpret_cast<Pending*>(argument);
    HANDLE const event = pending.record->hEvent;
    OVERLAPPED own = {};
    own.Offset = pending.record->Offset;
    own.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    DWORD done = 0, error = 0;
    if (!ReadFile(pending.file, pending.data, pending.bytes, &done, &own)) error = GetLastError();
    if (error == ERROR_IO_PENDING)
        error = GetOverlappedResult(pending.file, &own, &done, TRUE) ? 0 : GetLastError();
    CloseHandle(own.hEvent);
    CloseHandle(pending.thread);
    pending.record->hEvent = event;
    ++LateCompletion::delivered;
    pending.routine(error, done, pending.record);
}

BOOL WINAPI read_late(
    HANDLE file, LPVOID data, DWORD bytes, LPOVERLAPPED record,
    LPOVERLAPPED_COMPLETION_ROUTINE routine) {
    HANDLE thread = nullptr;
    DuplicateHandle(
        GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, 0, FALSE,
        DUPLICATE_SAME_ACCESS);
    auto const pending = new Pending{file, thread, data, bytes, record, routine};
    ++LateCompletion::begun;
    deliverers.emplace_back([pending] {
        Sleep(delay);
        QueueUserAPC(complete, pending->thread, reinterpret_cast<ULONG_PTR>(pending));
    });
    SetLastError(0);
    return TRUE;
}

}  // namespace

unsigned int LateCompletion::begun;
unsigned int LateCompletion::delivered;

LateCompletion::LateCompletion(unsigned int delay_ms) : stand_in_("ReadFileEx", read_late) {
    delay = delay_ms;
    begun = delivered = 0;
}

LateCompletion::~LateCompletion() {
    for (std::thread& deliverer : deliverers) deliverer.join();
    std::vector<std::thread>().swap(deliverers);
}

}  // namespace test

// soak.h - what a long run watches: that something moves, and that nothing is left behind.
#pragma once

#include "qx/base/windows.h"
#include "qx/memory/arena.h"
#include "tests/harness/random.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace test {

// Ends the process where nothing has moved for half a minute: a wake-up was lost.
class Watchdog {
public:
    Watchdog() : thread_([this] { watch(); }) {}
    ~Watchdog() {
        ended_ = true;
        thread_.join();
    }
    Watchdog(Watchdog const&) = delete;
    Watchdog& operator=(Watchdog const&) = delete;

    void step() { ++steps_; }

private:
    void watch() const {
        unsigned int seen = steps_;
        for (int still = 0; !ended_; ++still) {
            Sleep(100);
            if (steps_ != seen) still = 0;
            seen = steps_;
            if (still < 300) continue;
            std::printf("LOST WAKE-UP: nothing moved for 30 s, seed %llu\n", seed());
            std::fflush(stdout);
            std::_Exit(3);
        }
    }

    std::atomic<unsigned int> steps_ = 0;
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

// What the process holds with the library ended, minute by minute (or half by half of a run of less
// than two): blocks of the arena that were not there at the start, and private bytes, of which the
// least in each minute counts. What the arena keeps for later is left out: it keeps some megabytes,
// now more, now fewer.
class SoakLedger {
public:
    explicit SoakLedger(int seconds) : minute_(std::min(60000, seconds * 500)) { begin_minute(); }

    void look(unsigned long long forests) {
        forests_ += forests;
        auto const arena = QX::arena::statistics();
        leaked_ = arena.blocks_in_use - blocks_;
        bool const warm = minutes_ != 0 || GetTickCount64() - since_ > minute_ / 3;
        unsigned long long const kept = arena.footprint - arena.bytes_in_use;
        if (warm) least_ = std::min(least_, private_bytes() - kept);
        if (GetTickCount64() - since_ >= minute_) end_minute();
    }

    void end_minute() {
        if (forests_ == 0) return;
        if (minutes_++ == 0) first_ = least_;
        last_ = least_;
        std::printf(
            "minute %u: %llu forests, %llu blocks leaked, %llu private bytes\n", minutes_, forests_,
            leaked_, last_);
        std::fflush(stdout);
        begin_minute();
    }

    unsigned long long leaked() const { return leaked_; }
    unsigned long long first() const { return first_; }
    unsigned long long last() const { return last_; }

private:
    // Counted by hand, as Wine reports none.
    static unsigned long long private_bytes() {
        unsigned long long sum = 0;
        MEMORY_BASIC_INFORMATION region = {};
        for (char* at = nullptr; VirtualQuery(at, &region, sizeof region) != 0;
             at = static_cast<char*>(region.BaseAddress) + region.RegionSize) {
            if (region.State == MEM_COMMIT && region.Type == MEM_PRIVATE) sum += region.RegionSize;
        }
        return sum;
    }

    void begin_minute() {
        since_ = GetTickCount64();
        forests_ = 0;
        least_ = ~0ull;
    }

    unsigned long long minute_, since_ = 0, forests_ = 0, least_ = 0;
    unsigned long long blocks_ = QX::arena::statistics().blocks_in_use;
    unsigned long long leaked_ = 0, first_ = 0, last_ = 0;
    unsigned int minutes_ = 0;
};

}  // namespace test

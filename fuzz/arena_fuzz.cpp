// arena_fuzz.cpp - two threads use the arena at random while each block's content is watched, and
// the whole arena is walked in between.
//
// Arguments: ROUNDS of 500 operations (default 20000, which is 10 million), then SEED.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "qx/memory/arena.h"
#include "tests/memory/block_model.h"

namespace {

constexpr unsigned long long operations_a_round = 500;
constexpr unsigned long long rounds_a_walk = 100;

std::atomic<bool> damaged = false;

void work(unsigned long long rounds, std::uint64_t salt) {
    test::BlockModel<> model(salt);
    for (unsigned long long round = 0; round < rounds && !damaged; ++round) {
        for (unsigned long long i = 0; i < operations_a_round; ++i) {
            if (!model.step()) damaged = true;
        }
        if (round % rounds_a_walk == 0 && !QX::arena::validate()) damaged = true;
    }
}

}  // namespace

int main(int argc, char** argv) {
    unsigned long long const rounds = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 20000;
    unsigned long long const seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    auto const before = QX::arena::statistics().blocks_in_use;
    {
        std::thread other(work, rounds / 2, 2 * seed);
        work(rounds - rounds / 2, 2 * seed + 1);
        other.join();
    }
    auto const after = QX::arena::statistics();
    if (!QX::arena::validate()) damaged = true;
    std::printf(
        "arena: %llu operations, seed %llu, peak %llu KiB, %lld blocks left: %s\n",
        rounds * operations_a_round, seed, after.peak_footprint / 1024,
        static_cast<long long>(after.blocks_in_use - before), damaged ? "DAMAGED" : "sound");
    return damaged ? 2 : 0;
}

// arena_bench.cpp - the arena against the system heap and the C run-time's.
//
//   pair N        a block of N bytes taken, its first byte written, given back
//   batch N       10,000 blocks taken, then given back in the same order
//   churn         a set of live blocks; each step replaces a random one by 1 to 512 bytes
//   large churn   256 live blocks of 1 KiB to 1 MiB, log-uniform
//   threads       each with 1,000 slots of 10 to 500 bytes that rotate between the threads
//   growth        one buffer from 16 bytes to 64 KiB by 16, with a neighbour every 16 steps
#include <cstdlib>
#include <memory>
#include <thread>

#include "benchmarks/bench.h"
#include "qx/base/windows.h"
#include "qx/memory/heap.h"
#include "tests/harness/random.h"

#if defined(QX_RIVAL_MIMALLOC)
#include <mimalloc.h>
#endif

namespace {

// Every contender is called through a table, as through the import of a library.
struct Heap {
    char const* name;
    void* (*take)(std::size_t size);
    void (*give)(void* block);
    void* (*resize)(void* block, std::size_t size);
};

Heap const heaps[] = {
    {"QXLibs arena", [](std::size_t size) { return QX::custom_malloc(size, QX::HEAP_GENERAL); },
     [](void* block) { QX::custom_free(block); },
     [](void* block, std::size_t size) {
         static QX::HeapPlatform heap(QX::HEAP_SECOND, nullptr);
         return heap.realloc(block, size).first;
     }},
    {"system heap", [](std::size_t size) { return HeapAlloc(GetProcessHeap(), 0, size); },
     [](void* block) { HeapFree(GetProcessHeap(), 0, block); },
     [](void* block, std::size_t size) {
         return block ? HeapReAlloc(GetProcessHeap(), 0, block, size)
                      : HeapAlloc(GetProcessHeap(), 0, size);
     }},
    {"C run-time", [](std::size_t size) { return std::malloc(size); },
     [](void* block) { std::free(block); },
     [](void* block, std::size_t size) { return std::realloc(block, size); }},
#if defined(QX_RIVAL_MIMALLOC)
    {"mimalloc", mi_malloc, mi_free, mi_realloc},
#endif
};

void pairs(Heap const& heap, std::size_t size, int count) {
    for (int i = 0; i < count; ++i) {
        auto* const block = static_cast<char volatile*>(heap.take(size));
        block[0] = 1;
        heap.give(const_cast<char*>(block));
    }
}

void batches(Heap const& heap, std::size_t size, int count) {
    static void* blocks[10000];
    for (int i = 0; i < count; ++i) {
        for (void*& block : blocks) block = heap.take(size);
        for (void* block : blocks) heap.give(block);
    }
}

// Live blocks of one heap, kept from round to round.
class Churn {
public:
    using SizeOf = std::size_t (*)(test::Random&);

    Churn(Heap const& heap, std::size_t live, SizeOf size_of) : heap_(heap), size_of_(size_of) {
        slots_.resize(live);
        for (void*& slot : slots_) slot = take();
    }
    ~Churn() {
        for (void* slot : slots_) heap_.give(slot);
    }
    Churn(Churn const&) = delete;

    void run(int steps) {
        for (int i = 0; i < steps; ++i) {
            void*& slot = slots_[random_.below(static_cast<unsigned int>(slots_.size()))];
            heap_.give(slot);
            slot = take();
        }
    }

private:
    void* take() {
        std::size_t const size = size_of_(random_);
        auto* const block = static_cast<char*>(heap_.take(size));
        block[0] = block[size - 1] = 1;
        return block;
    }

    Heap const& heap_;
    SizeOf size_of_;
    test::Random random_;
    std::vector<void*> slots_;
};

std::size_t small_size(test::Random& random) {
    return 1 + random.below(512);
}

std::size_t large_size(test::Random& random) {
    unsigned int const power = 10 + random.below(10);
    return (1ull << power) + random.below(1u << power);
}

void rotate(Heap const& heap, unsigned int threads, int epochs, int steps) {
    std::vector<std::vector<void*>> slots(threads, std::vector<void*>(1000));
    for (int epoch = 0; epoch < epochs; ++epoch) {
        std::vector<std::thread> workers;
        for (unsigned int n = 0; n < threads; ++n) {
            workers.emplace_back([&, n, epoch] {
                test::Random random(n + 1);
                auto& own = slots[(n + static_cast<unsigned int>(epoch)) % threads];
                for (int i = 0; i < steps; ++i) {
                    void*& slot = own[random.below(1000)];
                    if (slot) heap.give(slot);
                    slot = heap.take(10 + random.below(491));
                }
            });
        }
        for (std::thread& worker : workers) worker.join();
    }
    for (auto& own : slots) {
        for (void* slot : own) {
            if (slot) heap.give(slot);
        }
    }
}

void grow(Heap const& heap) {
    void* neighbours[256];
    unsigned int count = 0;
    void* buffer = heap.take(16);
    for (std::size_t size = 32; size <= 65536; size += 16) {
        buffer = heap.resize(buffer, size);
        if (size % 256 == 0) neighbours[count++] = heap.take(24);
    }
    heap.give(buffer);
    while (count) heap.give(neighbours[--count]);
}

char const* only = "";  // rows whose names begin otherwise are left out

bool is_wanted(std::string const& name) {
    return name.rfind(only, 0) == 0;
}

template <typename Work>
void row(bench::Table const& table, char const* name, double operations, Work work) {
    if (!is_wanted(name)) return;
    std::vector<bench::Contender> contenders;
    for (Heap const& heap : heaps) contenders.push_back({heap.name, [&heap, work] { work(heap); }});
    table.row(name, operations, contenders);
}

void churn_row(
    bench::Table const& table, char const* name, std::size_t live, int steps,
    Churn::SizeOf size_of) {
    if (!is_wanted(name)) return;
    std::vector<bench::Contender> contenders;
    std::vector<std::unique_ptr<Churn>> sets;
    for (Heap const& heap : heaps) {
        Churn* const set = sets.emplace_back(new Churn(heap, live, size_of)).get();
        contenders.push_back({heap.name, [set, steps] { set->run(steps); }});
    }
    table.row(name, steps, contenders);
}

}  // namespace

// An argument is the beginning of the rows' names that are run.
int main(int argc, char** argv) {
    if (argc > 1) only = argv[1];
    bench::Table const table("arena");
    for (std::size_t size : {16, 64, 256}) {
        std::string const name = "pair " + std::to_string(size);
        row(table, name.c_str(), 200000, [size](Heap const& heap) { pairs(heap, size, 200000); });
    }
    for (std::size_t size : {16, 64, 256}) {
        std::string const name = "batch " + std::to_string(size);
        row(table, name.c_str(), 100000, [size](Heap const& heap) { batches(heap, size, 10); });
    }
    churn_row(table, "churn of 10k blocks", 10000, 100000, small_size);
    churn_row(table, "churn of 200k blocks", 200000, 10000, small_size);
    churn_row(table, "large churn", 256, 4096, large_size);
    row(table, "one thread", 8 * 25000, [](Heap const& heap) { rotate(heap, 1, 8, 25000); });
    row(table, "two threads", 16 * 25000, [](Heap const& heap) { rotate(heap, 2, 8, 25000); });
    row(table, "growth by 16", 3 * 4095, [](Heap const& heap) {
        for (int i = 0; i < 3; ++i) grow(heap);
    });
    return 0;
}

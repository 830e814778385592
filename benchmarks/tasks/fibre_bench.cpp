// fibre_bench.cpp - stepping from stack to stack, beside the system's own fibres.
#include "benchmarks/bench.h"
#include "qx/base/windows.h"
#include "qx/tasks/fibre.h"

#include <vector>

namespace {

constexpr std::size_t stack_size = 65536;
constexpr int round_trips = 200000;

void* main_context;
void* main_fibre;

// Ours: each fibre goes back to the main context for ever.
struct Own {
    Own() : stack(stack_size), context(make_fiber(stack.data() + stack_size, stack_size, run)) {}

    static void run(void* object) {
        auto& self = *static_cast<Own*>(object);
        for (;;) switch_to_fiber(&self.context, main_context, nullptr, true);
    }

    void visit() { switch_to_fiber(&main_context, context, this, true); }

    std::vector<char> stack;
    void* context;
};

// As the system makes them, floating-point state switched.
struct System {
    System()
        : fibre(CreateFiberEx(stack_size, stack_size, FIBER_FLAG_FLOAT_SWITCH, run, nullptr)) {}
    ~System() { DeleteFiber(fibre); }

    static void WINAPI run(void*) {
        for (;;) SwitchToFiber(main_fibre);
    }

    void visit() { SwitchToFiber(fibre); }

    void* fibre;
};

template <typename Fibre>
std::function<void()> visits(std::vector<Fibre>& fibres) {
    return [&fibres] {
        std::size_t const rounds = round_trips / fibres.size();
        for (std::size_t i = 0; i < rounds; ++i)
            for (Fibre& fibre : fibres) fibre.visit();
    };
}

void ring(bench::Table const& table, char const* name, std::size_t count) {
    std::vector<Own> own(count);
    std::vector<System> system(count);
    double const switches = 2.0 * static_cast<double>(round_trips / count * count);
    table.row(name, switches, {{"QXLibs", visits(own)}, {"SwitchToFiber", visits(system)}});
}

void enter_pooled() {
    static std::vector<char> stack(stack_size);
    static void* fibre;
    for (int i = 0; i < 1000; ++i) {
        fibre = make_fiber(stack.data() + stack_size, stack_size, [](void*) {
            switch_to_fiber(&fibre, main_context, nullptr, true);
        });
        switch_to_fiber(&main_context, fibre, nullptr, true);
    }
}

void enter_created() {
    for (int i = 0; i < 1000; ++i) System().visit();
}

}  // namespace

int main() {
    main_fibre = ConvertThreadToFiberEx(nullptr, FIBER_FLAG_FLOAT_SWITCH);
    bench::Table const table("fibre");
    ring(table, "to and fro, a switch", 1);
    ring(table, "round 100 fibres, a switch", 100);
    ring(table, "round 2000 fibres, a switch", 2000);
    table.row(
        "made, entered and left, stack at hand", 1000,
        {{"QXLibs", enter_pooled}, {"CreateFiberEx", enter_created}});
}

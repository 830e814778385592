// The queues against a plain model. Every thread moves only when the case says so: a worker is held
// by the task that it took last, and takes the next one when it is let go.
#include "qx/tasks/scheduler_impl.h"
#include "tests/harness/random.h"
#include "tests/tasks/scheduler_fixture.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <functional>
#include <utility>
#include <vector>

using namespace test;

namespace {

struct Made {
    int number;
    FiberMode mode;
    ThreadMask mask;
    Priority priority;
    int gate;  // what it waits for before all else; -1 for none
};

// Where tasks stand, by the rules. Threads: -1 one that the scheduler does not know, 0 the main
// thread, n worker n - 1.
struct Model {
    int workers = 0;
    std::vector<std::deque<Made>> queues;
    std::vector<Made> held;                  // by each worker
    std::vector<Made> waiters[2];            // by gate
    unsigned int turn = 0;                   // whose queue is next
    std::vector<std::pair<int, int>> notes;  // which task was taken, and by which thread

    unsigned int route(Made const& task, int thread) {
        int const mask = static_cast<int>(task.mask);
        if (mask == 0 && task.priority == high) return 0;
        if ((mask == 0 || mask == 1) && thread > 0) return thread + 2;
        if (mask == 1 && thread == 0) return 3 + turn++ % workers;
        return mask >= 2 && mask < workers + 3 ? mask : 1;
    }

    bool pop(int thread, Made& task) {
        std::vector<int> order = {0, thread + 2, 1};
        for (int k = 0; thread != 0 && k < workers; ++k)
            order.push_back(3 + (thread + k + workers) % workers);
        for (int const& number : order) {
            auto& queue = queues[number];
            bool const steals = &number - order.data() >= 3;
            if (queue.empty() || (steals && queue.front().mask >= pinned_to(0))) continue;
            task = queue.front();
            queue.pop_front();
            return true;
        }
        return false;
    }

    // True if the task goes on where it is, false if it waits.
    bool run(Made task, int thread) {
        notes.push_back({task.number, thread});
        int const gate = std::exchange(task.gate, -1);
        if (gate >= 0) waiters[gate].push_back(task);
        if (gate < 0 && thread > 0) held[thread] = task;
        return gate < 0;
    }

    // Takes tasks until one goes on; false if there was none.
    bool take(int thread) {
        for (Made task; pop(thread, task);)
            if (run(task, thread)) return true;
        return false;
    }

    void push(std::vector<Made> const& tasks, int thread) {
        auto& queue = queues[route(tasks[0], thread)];
        queue.insert(queue.end(), tasks.begin(), tasks.end());
    }

    void wake(std::vector<Made>& waiting, int thread) {
        for (; !waiting.empty(); waiting.pop_back())
            queues[route(waiting.back(), thread)].push_front(waiting.back());
    }
};

enum Way { stay, let_go, yield };

// A task in the older form. Lower bits of its mask than the highest have no effect.
struct Old : deprecated_tbb::threadtask {
    Old(unsigned int bits, std::function<void()> work) : threadtask(bits), work_(std::move(work)) {}
    void execute() override { work_(); }

    static unsigned int bits_of(unsigned int mask, Random& random) {
        if (mask <= 1) return mask == 1 ? 0xFFFFFFFE : random.chance(2) ? 0xFFFFFFFF : 0;
        unsigned int const highest = 1u << (mask - 2);
        return highest | random.below(highest);
    }

    std::function<void()> work_;
};

// A thread that does one thing after the other as it is told.
struct Puppet {
    DWORD thread = 0;
    QX::Event told{false, false};
    QX::Event done{false, false};
    std::function<Way()> command = {};
    task::Counter* step = nullptr;  // what it waits for, unless it is a worker
    bool at_large = false;          // for good: its tasks do not wait for commands any more

    Way obey() {
        told.wait();
        Way const way = command();
        done.signal();
        return way;
    }
};

class Stage {
public:
    explicit Stage(int workers) : library_(workers) {
        model_.workers = workers;
        model_.queues.resize(workers + 3);
        model_.held.resize(workers + 1);
        QX::create_global_transient_allocator(1 << 16);
        puppets_[1].thread = GetCurrentThreadId();
        unknown_ = std::thread([this] {
            puppets_[0].thread = GetCurrentThreadId();
            while (puppets_[0].obey() == stay) {}
        });
        for (int worker = 1; worker <= workers; ++worker) {
            task::spawn(fiberless, pinned_to(worker - 1), normal, [this, worker] {
                puppets_[worker + 1].thread = GetCurrentThreadId();
                serve();
            });
            tell(worker, [] { return stay; });
        }
        // As many fibres at once as there are places for their records.
        for (; made_ < 40; ++made_) {
            Made const made = {made_, fiberful, main_thread, normal, 0};
            model_.push({made}, 0);
            task::spawn(fiberful, main_thread, normal, [=, this] { perform(made); });
        }
        run_main_chain();
    }

    // Every task is left to run as it will.
    ~Stage() {
        over_ = true;
        for (auto& gate : gates_) gate.internal_decrement();
        for (int thread = -1; thread <= model_.workers; ++thread)
            tell(thread, [=, this] {
                puppets_[thread + 1].at_large = true;
                return let_go;
            });
        unknown_.join();
        await([this] { return task::run_main_thread_tasks(), ended_ == made_; });
        EXPECT_TRUE(QX::arena::validate());
        task::terminate();
        QX::destroy_global_transient_allocator();
    }

    // One step of a busy or of a quiet time: in the one queues grow long, in the other they run
    // out.
    void act(bool busy, Random& random) {
        int const thread = static_cast<int>(random.below(model_.workers + 2)) - 1;
        unsigned int const what = random.below(busy ? 9 : 24);
        if (what == 0) return run_main_chain();
        if (what == 1) return wake(random.below(2), thread);
        if (what < 5) return spawn(thread, random);
        move(thread, what == 5 ? yield : let_go);
    }

private:
    int here() const {
        int at = 0;
        while (puppets_[at].thread != GetCurrentThreadId()) ++at;
        return at - 1;
    }

    void tell(int thread, std::function<Way()> const& command) {
        if (thread == 0) return static_cast<void>(command());
        Puppet& puppet = puppets_[thread + 1];
        puppet.command = command;
        puppet.told.signal();
        puppet.done.wait();
    }

    // A worker is held here. Another thread has the one task that it wanted.
    Way serve() {
        Puppet& self = puppets_[here() + 1];
        Way way = stay;
        while (!self.at_large && here() > 0 && way == stay) way = self.obey();
        if (self.step != nullptr) self.step->internal_decrement();
        return way;
    }

    static NT_TIB const& thread_block() { return *reinterpret_cast<NT_TIB*>(NtCurrentTeb()); }

    void perform(Made const& task) {
        unsigned int const id = task::this_task::id();
        EXPECT_EQ(id != 0, task.mode == fiberful);
        void* const stack = thread_block().StackBase;
        auto* const lowest = static_cast<std::byte*>(thread_block().StackLimit);
        auto const mark = static_cast<std::byte>(task.number);
        if (id != 0) std::fill_n(lowest, marked, mark);
        task::execute_in_thread_context([&] {
            EXPECT_EQ(thread_block().StackBase == stack, task.mode == fiberless);
            EXPECT_EQ(task::this_task::id(), 0u);
            task::this_task::yield();  // nothing here
            zero_.wait();              // nor here
        });
        zero_.wait();
        auto const note = [&] {
            if (over_) return;
            notes_.push_back({task.number, here()});
            ++note_count_;
        };
        note();
        if (task.gate >= 0) {
            gates_[task.gate].wait();
            note();
        }
        for (; serve() == yield; note()) task::this_task::yield();
        EXPECT_EQ(task::this_task::id(), id);
        if (id != 0) {
            EXPECT_EQ(static_cast<std::byte*>(stack) - lowest, 1 << 20);
            auto const& fibre = *static_cast<task::detail::Fibre*>(stack);
            EXPECT_LE(
                fibre.offset + sizeof fibre,
                QX::arena::block_size(static_cast<unsigned char*>(stack) - fibre.offset));
            EXPECT_EQ(std::count(lowest, lowest + marked, mark), marked);
        }
        ++ended_;
    }

    void check() {
        await([this] { return note_count_ == model_.notes.size(); });
        ASSERT_EQ(notes_, model_.notes);
    }

    // The thread takes its next task. But a worker that would find nothing keeps its own.
    void move(int thread, Way way) {
        Model after = model_;
        if (way == yield && (thread <= 0 || after.held[thread].mode == fiberless)) return;
        if (way == yield) after.push({after.held[thread]}, thread);
        if (!after.take(thread) && thread > 0) return;
        model_ = after;
        tell(thread, [=, this] { return thread > 0 ? way : take_one(puppets_[thread + 1]); });
        check();
    }

    Way take_one(Puppet& self) {
        task::Counter step(1);
        self.step = &step;
        task::interop::set_thread_wait_callback(
            [](void* counter) { static_cast<task::Counter*>(counter)->internal_decrement(); },
            &step);
        step.wait();
        task::interop::set_thread_wait_callback(nullptr, nullptr);
        self.step = nullptr;
        return stay;
    }

    void run_main_chain() {
        for (Made const& task : std::exchange(model_.queues[2], {})) model_.run(task, 0);
        task::run_main_thread_tasks();
        check();
    }

    void wake(int gate, int thread) {
        model_.wake(model_.waiters[gate], thread);
        tell(thread, [=, this] {
            gates_[gate].internal_decrement();
            EXPECT_EQ(gates_[gate].internal_increment(1), 0u);
            return stay;
        });
    }

    void spawn(int thread, Random& random) {
        unsigned int const masks[] = {0, 0, 1, 1, 2, 3, 4, 5, 33};
        unsigned int const number = masks[random.below(9)];
        auto const mask = static_cast<ThreadMask>(number);
        auto const asked = random.chance(3) ? high : normal;
        Made const& current = model_.held[std::max(thread, 0)];
        bool const inherits = current.mode == fiberful && current.priority == high;
        enum { alone, old, batch_used_twice };
        unsigned int const form = random.below(3);
        std::vector<Made> tasks;
        do {
            auto const mode = form == old || random.chance(2) ? fiberful : fiberless;
            int const gate = mode == fiberful && random.chance(3) ? random.below(2) : -1;
            tasks.push_back({made_++, mode, mask, inherits ? high : asked, gate});
        } while (form == batch_used_twice && random.chance(2));
        model_.push(tasks, thread);
        if (form == batch_used_twice) model_.push(tasks, thread);
        if (form == batch_used_twice) made_ += static_cast<int>(tasks.size());
        unsigned int const bits = Old::bits_of(number, random);
        tell(thread, [&] {
            auto const work = [this](Made made) { return [=, this] { perform(made); }; };
            if (form == alone) task::spawn(tasks[0].mode, mask, asked, work(tasks[0]));
            if (form == old)
                execute_threadtask(
                    &old_.emplace_back(bits, work(tasks[0])),
                    static_cast<deprecated_tbb::TaskPriority>(asked));
            task::Batch batch(mask, asked);
            for (int use = 0; form == batch_used_twice && use < 2; ++use) {
                for (Made const& made : tasks) batch.spawn(made.mode, work(made));
                batch.submit();
            }
            EXPECT_EQ(batch.count(), form == batch_used_twice ? 2 * tasks.size() : 0);
            return stay;
        });
    }

    static constexpr int marked = 256;  // bytes at the far end of each fibre's stack

    Library library_;
    Model model_;
    Puppet puppets_[5];
    std::thread unknown_;
    task::Counter gates_[2] = {task::Counter(1), task::Counter(1)};
    task::Counter zero_ = task::Counter(0);
    std::deque<Old> old_;
    std::atomic<bool> over_ = false;
    int made_ = 0;
    std::atomic<int> ended_ = 0;
    std::vector<std::pair<int, int>> notes_;
    std::atomic<std::size_t> note_count_ = 0;
};

TEST(SchedulerModel, agrees_on_who_runs_what_in_which_order) {
    for (int const workers : {1, 2, 3}) {
        Random random(workers);
        Stage stage(workers);
        for (int i = 0; i < 600 && !HasFatalFailure(); ++i) stage.act(i / 50 % 2, random);
    }
}

}  // namespace

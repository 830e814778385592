#include "qx/diagnostics/profiler_impl.h"

#include "qx/base/dynamic_array.h"
#include "qx/diagnostics/message_box.h"
#include "qx/text/format.h"

#include <algorithm>
#include <cstring>

namespace QX {

namespace {

using Event = Profiler::Event;

struct Function {
    char const* name;
    long long inclusive;
    unsigned int exclusive;  // wraps
    unsigned int called;
};

struct OpenCall {
    unsigned int function;
    long long entered;
};

// The functions met, found by name: open addressing, with numbers into the list in the slots.
class FunctionTable {
public:
    explicit FunctionTable(unsigned int event_count) {
        slots_.resize(event_count != 0 ? 3ull * event_count + 1 : 13);
    }

    // The number of the function, which is entered at its first look-up.
    unsigned int find(char const* name) {
        unsigned long long slot = hash(name) % slots_.size();
        while (slots_[slot] != 0) {
            unsigned int const number = slots_[slot] - 1;
            if (std::strcmp(functions_[number].name, name) == 0) return number;
            slot = slot + 1 == slots_.size() ? 0 : slot + 1;
        }
        functions_.push_back({name, 0, 0, 0});
        slots_[slot] = static_cast<unsigned int>(functions_.size());
        return slots_[slot] - 1;
    }

    Function& operator[](unsigned int number) { return functions_[number]; }

    DynamicArray<Function>& functions() { return functions_; }

private:
    // Two sums of 16 bits: the characters at even and at odd places.
    static unsigned int hash(char const* name) {
        unsigned short sums[2] = {};
        for (unsigned int i = 0; name[i] != 0; ++i)
            sums[i & 1] =
                static_cast<unsigned short>(sums[i & 1] + static_cast<unsigned char>(name[i]));
        return sums[0] | static_cast<unsigned int>(sums[1]) << 16;
    }

    DynamicArray<unsigned int> slots_;  // 0 while free, else the function's number and one
    DynamicArray<Function> functions_;  // in the order met
};

// Walks the events with the calls that are open, writes the time line and fills the table.
class TimeLine {
public:
    explicit TimeLine(unsigned int event_count) : table_(event_count) {}

    void walk(Event const* events, unsigned int count) {
        for (unsigned int i = 0; i < count; ++i) {
            if (events[i].name != nullptr)
                enter(events[i], i + 1 < count ? &events[i + 1] : nullptr);
            else if (!open_.empty())
                leave(events[i], events[i - 1]);
        }
    }

    void truncate(long long total) {
        for (; !open_.empty(); open_.pop_back()) {
            Function& function = table_[open_.back().function];
            message_txt(String::format("truncating leave time for: %s\n", function.name));
            function.inclusive += total - open_.back().entered;
        }
    }

    DynamicArray<Function>& functions() { return table_.functions(); }

private:
    void enter(Event const& event, Event const* next) {
        message_txt(String::format("%9d\tEnter\t%s\n", event.time, event.name));
        unsigned int const number = table_.find(event.name);
        open_.push_back({number, event.time});
        Function& function = table_[number];
        ++function.called;
        if (next != nullptr && next->name != nullptr)
            function.exclusive += static_cast<unsigned int>(next->time - event.time);
    }

    void leave(Event const& event, Event const& before) {
        Function& function = table_[open_.back().function];
        message_txt(String::format("%9d\tLeave\t%s\n", event.time, function.name));
        function.inclusive += event.time - open_.back().entered;
        function.exclusive += static_cast<unsigned int>(event.time - before.time);
        open_.pop_back();
    }

    FunctionTable table_;
    DynamicArray<OpenCall> open_;
};

bool less_inclusive(Function const& a, Function const& b) {
    return a.inclusive < b.inclusive;
}

bool less_exclusive(Function const& a, Function const& b) {
    return a.exclusive < b.exclusive;
}

bool less_name(Function const& a, Function const& b) {
    return std::strcmp(a.name, b.name) < 0;
}

// Written as they stand, each "%%" included.
constexpr char const* headings[] = {
    "\nProfiling by Inclusive time (us)\n"
    " inclusive in%% exclusive ex%% called func\n"
    " ~~~~~~~~~ ~~~ ~~~~~~~~~ ~~~ ~~~~~~ ~~~~\n",
    "\nProfiling by Exclusive time (us)\n"
    " inclusive in%% exclusive ex%% called func\n"
    " ~~~~~~~~~ ~~~ ~~~~~~~~~ ~~~ ~~~~~~ ~~~~\n",
    "\nProfiling by Function time (us)\n"
    " inclusive in%% exclusive ex%% called func\n"
    " ~~~~~~~~~ ~~~ ~~~~~~~~~ ~~~ ~~~~~~ ~~~~\n",
};

constexpr bool (*orders[])(Function const&, Function const&) = {
    less_inclusive, less_exclusive, less_name};

// A run too short for the counter to move has no parts.
long long percent(long long value, long long total) {
    return total != 0 ? 100 * value / total : 0;
}

void write_row(Function const& function, long long total) {
    message_txt(String::format(
        "%10d %3d%10d %3d%7d %s\n", function.inclusive, percent(function.inclusive, total),
        function.exclusive, percent(function.exclusive, total), function.called, function.name));
}

void write_tables(DynamicArray<Function>& functions, long long total) {
    for (int table = 0; table < 3; ++table) {
        std::make_heap(functions.begin(), functions.end(), orders[table]);
        std::sort_heap(functions.begin(), functions.end(), orders[table]);
        message_txt(String(headings[table]));
        for (Function const& function : functions) write_row(function, total);
    }
}

}  // namespace

void write_profile(Event const* events, unsigned int count, long long total) {
    TimeLine line(count);
    message_txt(String("\nTime     \tEnter / Leave\n"));
    line.walk(events, count);
    line.truncate(total);
    write_tables(line.functions(), total);
}

}  // namespace QX

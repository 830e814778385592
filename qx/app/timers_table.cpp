#include "qx/app/timers_table_impl.h"

#include "qx/base/compiler.h"
#include "qx/memory/heap.h"

namespace QX {

namespace {

using Slot = TimerTable::Slot;

constexpr unsigned int first_capacity = 2;

static_assert(sizeof(Slot) == 16);

// One slot more than the capacity is kept, unused.
Slot* make_slots(unsigned int capacity) {
    unsigned long long const size = sizeof(Slot) * (capacity + 1ull);
    auto const slots = static_cast<Slot*>(malloc_aligned(size, 8, HEAP_GENERAL));
    for (unsigned int i = 0; i <= capacity; ++i) slots[i] = {TimerTable::empty_key, nullptr};
    return slots;
}

void free_slots(Slot* slots) {
    custom_free(block_of_aligned(slots));
}

bool is_live(Slot const& slot) {
    return slot.key != TimerTable::empty_key && slot.key != TimerTable::deleted_key;
}

}  // namespace

TimerTable::TimerTable() : entries_(make_slots(first_capacity)), capacity_(first_capacity) {}

TimerTable::~TimerTable() {
    free_slots(entries_);
}

// The first slot of the range that holds the key or ends its run; none if neither is met.
unsigned int TimerTable::probe_range(unsigned int key, unsigned int from, unsigned int to) const {
    for (unsigned int i = from; i < to; ++i) {
        if (entries_[i].key == key || entries_[i].key == empty_key) return i;
    }
    return none;
}

unsigned int TimerTable::probe(unsigned int key) const {
    unsigned int const home = key % capacity_;
    unsigned int const found = probe_range(key, home, capacity_);
    return found != none ? found : probe_range(key, 0, home);
}

Slot const* TimerTable::find(unsigned int key) const {
    unsigned int const found = probe(key);
    return found != none && entries_[found].key == key ? &entries_[found] : nullptr;
}

void TimerTable::insert(unsigned int key, TimerCallback callback) {
    unsigned int found = probe(key);
    if (found == none) {
        rebuild(rebuilt_capacity(key % capacity_));
        found = probe(key);
    }
    QX_CHECK(found != none);
    entries_[found] = {key, callback};
}

bool TimerTable::remove(unsigned int key) {
    unsigned int const found = probe(key);
    if (found == none || entries_[found].key != key) return false;
    bool const ends_run = entries_[(found + 1) % capacity_].key == empty_key;
    entries_[found].key = ends_run ? empty_key : deleted_key;
    return true;
}

// Sweeping is enough where a mark lies before the home slot. Marks from the home slot on are not
// looked for: a table full of them grows all the same.
unsigned int TimerTable::rebuilt_capacity(unsigned int home) const {
    for (unsigned int i = 0; i < home; ++i) {
        if (entries_[i].key == deleted_key) return capacity_;
    }
    return 2 * capacity_ + 1;
}

void TimerTable::rebuild(unsigned int capacity) {
    Slot* const old = entries_;
    unsigned int const old_capacity = capacity_;
    entries_ = make_slots(capacity);
    capacity_ = capacity;
    for (unsigned int i = 0; i < old_capacity; ++i) {
        if (is_live(old[i])) entries_[probe(old[i].key)] = old[i];
    }
    free_slots(old);
}

}  // namespace QX

// timers_table_impl.h - the open hash table from timer id to callback.
//
// Linear probing from id mod capacity. A removed slot within a run keeps a deletion mark, which
// look-ups step over and which only a rebuild sweeps out.
#pragma once

#include "qx/app/timers.h"

namespace QX {

class TimerTable {
public:
    static constexpr unsigned int empty_key = 0xFFFFFFFF;
    static constexpr unsigned int deleted_key = 0xFFFFFFFE;

    struct Slot {
        unsigned int key;
        TimerCallback callback;
    };

    TimerTable();
    ~TimerTable();
    TimerTable(TimerTable const&) = delete;
    TimerTable& operator=(TimerTable const&) = delete;

    // The slot of a key, null if absent. Good until the next insertion.
    Slot const* find(unsigned int key) const;

    // Adds the key or replaces its callback.
    void insert(unsigned int key, TimerCallback callback);

    // False if the key is absent.
    bool remove(unsigned int key);

private:
    static constexpr unsigned int none = 0xFFFFFFFF;

    unsigned int probe(unsigned int key) const;
    unsigned int probe_range(unsigned int key, unsigned int from, unsigned int to) const;
    unsigned int rebuilt_capacity(unsigned int home) const;
    void rebuild(unsigned int capacity);

    Slot* entries_;
    unsigned int capacity_;
};

}  // namespace QX

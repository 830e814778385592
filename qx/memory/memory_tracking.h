// memory_tracking.h - debugging services around the allocator.
//
// Objects that a client registers by address are kept with the call stack of their registration,
// and once removed with that of their removal:
//
//     Thing::Thing()  { MEMORY_TRACKING::add_live_object(this); }
//     Thing::~Thing() { MEMORY_TRACKING::remove_live_object(this); }
//     ...
//     MEMORY_TRACKING::dump_all_live_objects_and_delete_cache();  // at exit: what is still alive
//
// Meant for a limited number of important objects: each costs a stack capture and some 300 bytes,
// also after its removal. Reports go through report_message_txt, a line a frame.
//
// The maps are there before `main` and until one of the calls that end them; after that every
// tracking call does nothing. Threads: the tracking calls have no lock and are the caller's to
// serialise; the rest are plain reads and writes.
//
// The counters are an interface alone in this configuration: nothing writes them.
#pragma once

#include "qx/base/export.h"
#include "qx/memory/heap.h"
#include "qx/memory/report.h"

namespace MEMORY_TRACKING {

// --- Live objects --------------------------------------------------------------------------------

// Keeps the stack of the caller; an address added twice has the later one. An address that was
// removed before has been used again, and its removal is forgotten.
// Exhaustion: std::bad_alloc, nothing changed.
QX_API void add_live_object(void* object);

// The stack kept from now on is that of the caller. An address that is not alive is reported, with
// the stack of its first removal: "Possible double deletion:\n". Nothing else happens then.
QX_API void remove_live_object(void* object);

// Whether the address was added and not removed since.
QX_API bool contains_live_object(void* object);

// Print the stack that is kept; nothing for an address that is not there.
QX_API void dump_live_object(void* object);
QX_API void dump_dead_object(void* object);

// Prints what is alive, in the order of registration, and ends the tracking.
QX_API void dump_all_live_objects_and_delete_cache();

// Ends the tracking without a word.
QX_API void delete_live_objects_cache();

// --- Counters ------------------------------------------------------------------------------------

// One row: of a heap, or of them all.
struct MEM_TRACKING {
    unsigned int current_count;
    unsigned long long cumulative_count;
    unsigned long long reserved_1;
    unsigned int current_size;
    unsigned long long cumulative_size;
    unsigned long long reserved_2;
};

extern QX_API MEM_TRACKING s_mt;  // all heaps together, also as HEAP_ALL

// The figures of one row: allocations ever and now, and their bytes.
QX_API unsigned long long cumulative_alloc_count(QX::HEAPS heap);
QX_API unsigned long long cumulative_alloc_size(QX::HEAPS heap);
QX_API unsigned int current_alloc_count(QX::HEAPS heap);
QX_API unsigned int current_alloc_size(QX::HEAPS heap);
QX_API unsigned int total_alloc_count();

// The bytes that tracked images hold, with either of their allocators.
QX_API unsigned long long allocated_image_memory();

// --- Settings, kept for clients and read by nothing here -----------------------------------------

// Also turns the AS feedback on.
QX_API void register_thread_identifier_fn(unsigned int (*fn)());

QX_API bool enable_AS_feedback(bool on);  // returns what it was
QX_API void limit_frame_allocations(unsigned int limit);
QX_API void report_at_exit(bool on);

QX_API bool track_allocation_count_and_callstacks();  // always true

// Do nothing.
QX_API void enter_internal_allocation_scope();
QX_API void leave_internal_allocation_scope();

}  // namespace MEMORY_TRACKING

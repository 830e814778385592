// heap.h - the allocation entry points, the wrapper of system heaps, and the memory queries.
//
// All heaps share one arena (arena.h): the heap id given to an allocation chooses nothing. A system
// heap that a HeapPlatform creates is kept and destroyed, but serves none of this.
//
// Threads: custom_malloc, custom_free, malloc_aligned and the allocation members of HeapPlatform
// may run on any thread. The first allocation, memory_info and is_greater_2gb_addressable must not
// race for their first call. The setters have no lock: call them before threads start.
#pragma once

#include <cstring>
#include <utility>

#include "qx/base/export.h"
#include "qx/tasks/mutex.h"  // heap_cs, a lock offered to the application; nothing here takes it

namespace QX {

// Names a row of the tracking figures, not a place in memory.
enum HEAPS : int {
    HEAP_GENERAL = 0,
    HEAP_SECOND = 1,
    HEAP_THIRD = 2,
    HEAP_ALL = 3,
};

// What verify_heaps does: all of it, or one of two banners and no more.
enum VERIFY_HEAP_OPTIONS : int {
    VERIFY_HEAP_FULL = 0,
    VERIFY_HEAP_BANNER_A = 1,
    VERIFY_HEAP_BANNER_B = 2,
};

// --- Allocation ----------------------------------------------------------------------------------

// A block of `size` bytes, aligned to 16, owned by the caller, released by custom_free. 0 bytes
// give a block of their own. Exhaustion throws a std::bad_alloc whose what() is "bad allocation".
QX_API void* custom_malloc(unsigned long long size, HEAPS heap);

// Null does nothing. A pointer that is below the arena, or whose block is free already, is
// recognised as such and ignored.
QX_API void custom_free(void const* block);

// A block aligned to `alignment`, which need not be a power of two and counts as 4 if it is lower.
// The word just before the result is the block to pass to custom_free:
//
//     malloc_aligned(100, 24, heap)  =>  p with p % 24 == 0;  custom_free(block_of_aligned(p))
QX_API void* malloc_aligned(unsigned long long size, unsigned int alignment, HEAPS heap);

// The block to free of a result of malloc_aligned, which may not be null. The word need not be
// aligned itself.
inline void* block_of_aligned(void const* aligned) {
    void* block;
    std::memcpy(&block, static_cast<char const*>(aligned) - sizeof block, sizeof block);
    return block;
}

// Null, or called after each custom_malloc with the block and its size cut to 32 bits, and after
// each custom_free with the block and 0; on the thread that allocates, outside the arena's lock.
QX_API extern void (*allocation_hook)(void const* block, unsigned int size);

// Fills every block of custom_malloc from now on; there is no way back. The value is 0xCA unless
// changed, and changing it does not enable filling. Neither can fail.
QX_API void enable_alloc_clear();
QX_API void change_alloc_clear_val(unsigned char value);

// --- Heaps ---------------------------------------------------------------------------------------

// A heap id and the handle of a system heap. Copies share the handle: the caller sees to it that
// one of them destroys it.
class HeapPlatform {
public:
    // Creates a growable (maximum 0) or fixed system heap; sizes in bytes. A failure leaves a null
    // handle, and the object usable.
    QX_API HeapPlatform(HEAPS id, unsigned long long initial, unsigned long long maximum);

    // Adopts a handle.
    QX_API HeapPlatform(HEAPS id, void* os_heap);

    HeapPlatform(HeapPlatform const&) = default;
    HeapPlatform& operator=(HeapPlatform const&) = default;

    // Destroys the system heap, unless it is that of the process.
    QX_API ~HeapPlatform();

    // Blocks of the arena as custom_malloc makes them, of 0 bytes too, but without fill and hook:
    // (block, this), or (null, null) on exhaustion.
    QX_API std::pair<void*, HeapPlatform*> malloc(unsigned long long size);
    // Keeps the contents up to the smaller size; the block may move. A null block allocates, a size
    // of 0 leaves a block of its own and frees nothing. (null, null), with the old block valid as
    // it was, on exhaustion and for a block that is not in use.
    QX_API std::pair<void*, HeapPlatform*> realloc(void const* block, unsigned long long size);
    // As custom_free, without the hook: null does nothing. The heap that made the block is not
    // asked for.
    QX_API void free(void const* block);

    // The bytes of the busy blocks of the system heap, cut to 32 bits; 0 if it cannot be walked.
    QX_API unsigned int calculate_current_size() const;

    HEAPS id() const { return id_; }
    void* OS_heap() const { return os_heap_; }

    // Heap objects are built in place: `new (place) HeapPlatform(...)`.
    static void* operator new(decltype(sizeof 0), HeapPlatform* place) { return place; }
    static void* operator new[](decltype(sizeof 0), HeapPlatform* place) { return place; }
    static void operator delete(void*, HeapPlatform*) {}
    static void operator delete[](void*, HeapPlatform*) {}

private:
    friend QX_API void platform_init_heaps(HeapPlatform* heap);

    HEAPS id_;
    void* os_heap_;
};

// Brings the heaps up, on the first call alone. Not required: the first allocation does it. True.
QX_API bool init_heaps();

// Gives `heap`, which may be null, the id HEAP_GENERAL and the process heap, records it as the
// default heap, and asks the system for a low-fragmentation process heap.
QX_API void platform_init_heaps(HeapPlatform* heap);

// Prints "Verifying heaps..." to the debugger. Unless a banner alone is asked for, validates the
// system heaps, touches every free chunk of the arena so that a wild pointer faults here, and
// prints the time taken. Always true.
QX_API bool verify_heaps(VERIFY_HEAP_OPTIONS options);

// --- Queries -------------------------------------------------------------------------------------

// In bytes, read once in the life of the process.
struct MEMORY_INFO {
    unsigned long long total_physical;
    unsigned long long total_virtual;
};

// In bytes, fresh. A limit of the file cache is 0 unless the system enforces it.
struct CURRENT_MEMORY_INFO {
    unsigned long long available_physical;
    unsigned long long minimum_file_cache;
    unsigned long long maximum_file_cache;
};

// The machine's memory: what stays the same, and what changes. 0 where the system does not answer.
QX_API MEMORY_INFO const& memory_info();
QX_API CURRENT_MEMORY_INFO current_memory_info();

// Whether the machine has at least `bytes` of memory.
QX_API bool is_RAM_present(unsigned long long bytes);

// Whether the address space is larger than 2 GiB.
QX_API bool is_greater_2gb_addressable();

// --- Kept so that clients link -------------------------------------------------------------------

QX_API bool init_large_allocations_heap();  // true
QX_API void crash_on_out_of_memory();       // sets a flag that nothing reads
QX_API void set_out_of_memory_reporting(bool on);
QX_API void reserve_out_of_memory_pages();  // these four do nothing
QX_API void release_out_of_memory_pages();
QX_API void out_of_memory_report();
QX_API void update_memory_report();

}  // namespace QX

namespace MEMORY_TRACKING {

// Sets QX::allocation_hook; null turns it off. Cannot fail.
QX_API void register_allocation_fn(void (*fn)(void const* block, unsigned int size));

}  // namespace MEMORY_TRACKING

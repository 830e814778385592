#include "qx/memory/memory_tracking.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

#include "qx/diagnostics/call_stack.h"
#include "qx/images/image.h"
#include "qx/memory/memory_tracking_impl.h"

namespace MEMORY_TRACKING {

MEM_TRACKING s_mt;

namespace {

constexpr unsigned int heap_count = 3;
constexpr int own_frames = 2;  // the capture and the call that asks for it

MEM_TRACKING heap_rows[heap_count];

// Both or neither, and neither once the tracking has ended.
ObjectMap* live = new ObjectMap;
ObjectMap* dead = new ObjectMap;

unsigned int (*thread_identifier)() = nullptr;
bool feeds_back = false;
unsigned int frame_allocation_limit = 0;
bool reports_at_exit = false;

MEM_TRACKING const& row_of(QX::HEAPS heap) {
    return static_cast<unsigned int>(heap) < heap_count ? heap_rows[heap] : s_mt;
}

// What is known of one frame, filled by the sinks of the call stack printer.
struct FrameText {
    std::string place;
    std::string symbol;
    std::string module;

    // "module!symbol (file:line)", or the address of a frame that nothing is known of.
    std::string joined(void* address) const {
        char number[32];
        std::snprintf(number, sizeof number, "0x%p", address);
        std::string const name = symbol.empty() ? number : symbol;
        return (module.empty() ? name : module + "!" + name) +
               (place.empty() ? "" : " (" + place + ")");
    }
};

void print_stack(Stack stack) {
    FrameText text;
    unsigned int index = 0;
    QX::stack::symbolicate(
        stack,
        [&](char* file, unsigned int line) {
            text.place = std::string(file) + ":" + std::to_string(line);
        },
        [&](char* name) { text.symbol = name; }, [&](char* name) { text.module = name; },
        [&] {
            report_message_txt("%s\n", text.joined(stack[index++]).c_str());
            text = {};
        });
}

void dump(ObjectMap const* map, void* object) {
    TrackedObject const* const entry = map != nullptr ? map->find(object) : nullptr;
    if (entry != nullptr) print_stack(entry->stack);
}

// The address's own record, wherever it was before, now among the living.
TrackedObject& revive(void* object) {
    if (TrackedObject* const entry = live->find(object)) return *entry;
    std::unique_ptr<TrackedObject> entry = dead->remove(object);
    if (entry == nullptr) entry = std::make_unique<TrackedObject>(object);
    TrackedObject& revived = *entry;
    live->insert(std::move(entry));
    return revived;
}

}  // namespace

void add_live_object(void* object) {
    if (live == nullptr) return;
    Stack stack = {};
    QX::stack::trace(stack, own_frames);
    revive(object).stack = stack;
}

void remove_live_object(void* object) {
    if (live == nullptr) return;
    std::unique_ptr<TrackedObject> entry = live->remove(object);
    if (entry == nullptr) {
        report_message_txt("Possible double deletion:\n");
        dump_dead_object(object);
        report_message_txt("\n");
        return;
    }
    entry->stack = {};
    QX::stack::trace(entry->stack, own_frames);
    dead->insert(std::move(entry));
}

bool contains_live_object(void* object) {
    return live != nullptr && live->find(object) != nullptr;
}

void dump_live_object(void* object) {
    dump(live, object);
}

void dump_dead_object(void* object) {
    dump(dead, object);
}

void dump_all_live_objects_and_delete_cache() {
    if (live == nullptr) return;
    report_message_txt("/////////////////////////////////////////////\n");
    report_message_txt("Tracked live objects:\n");
    for (TrackedObject* entry = live->first(); entry != nullptr; entry = entry->next) {
        dump_live_object(entry->object);
        report_message_txt("%s", "");
    }
    delete_live_objects_cache();
    report_message_txt("End of tracked live objects report.\n");
    report_message_txt("/////////////////////////////////////////////\n");
}

void delete_live_objects_cache() {
    delete std::exchange(live, nullptr);
    delete std::exchange(dead, nullptr);
}

unsigned long long cumulative_alloc_count(QX::HEAPS heap) {
    return row_of(heap).cumulative_count;
}

unsigned long long cumulative_alloc_size(QX::HEAPS heap) {
    return row_of(heap).cumulative_size;
}

unsigned int current_alloc_count(QX::HEAPS heap) {
    return row_of(heap).current_count;
}

unsigned int current_alloc_size(QX::HEAPS heap) {
    return row_of(heap).current_size;
}

unsigned int total_alloc_count() {
    return s_mt.current_count;
}

unsigned long long allocated_image_memory() {
    return QX::ImageDefaultAllocator::mem + QX::ImageLargeAllocator::mem;
}

void register_thread_identifier_fn(unsigned int (*fn)()) {
    thread_identifier = fn;
    feeds_back = true;
}

bool enable_AS_feedback(bool on) {
    return std::exchange(feeds_back, on);
}

void limit_frame_allocations(unsigned int limit) {
    frame_allocation_limit = limit;
}

void report_at_exit(bool on) {
    reports_at_exit = on;
}

bool track_allocation_count_and_callstacks() {
    return true;
}

void enter_internal_allocation_scope() {}

void leave_internal_allocation_scope() {}

}  // namespace MEMORY_TRACKING

// memory_tracking_impl.h - the map from object to call stack.
#pragma once

#include <array>
#include <memory>

#include "qx/base/hash.h"

namespace MEMORY_TRACKING {

using Stack = std::array<void*, 32>;

struct TrackedObject {
    explicit TrackedObject(void* of) : object(of) {}

    void* object;
    TrackedObject* next_in_bucket = nullptr;
    TrackedObject* previous = nullptr;  // in the order of insertion
    TrackedObject* next = nullptr;
    Stack stack = {};
};

// Owns its objects. They move from map to map, so that only a new address takes a block.
class ObjectMap {
public:
    ObjectMap() : buckets_(new TrackedObject*[first_size]()) {}
    ~ObjectMap();

    ObjectMap(ObjectMap const&) = delete;
    ObjectMap& operator=(ObjectMap const&) = delete;

    TrackedObject* find(void* object) const;
    TrackedObject* first() const { return first_; }

    // The object is not in the map. Never fails.
    void insert(std::unique_ptr<TrackedObject> entry);

    // Null if it is not there.
    std::unique_ptr<TrackedObject> remove(void* object);

private:
    // One less than a power of two: addresses have zeros at their end.
    static constexpr unsigned int first_size = 63;

    TrackedObject*& bucket_of(void* object) const {
        return buckets_
            [QX_STD::HASH<unsigned long long>()(reinterpret_cast<unsigned long long>(object)) %
             size_];
    }

    void grow();

    std::unique_ptr<TrackedObject*[]> buckets_;
    unsigned int size_ = first_size;
    unsigned int count_ = 0;
    TrackedObject* first_ = nullptr;
    TrackedObject* last_ = nullptr;
};

}  // namespace MEMORY_TRACKING

#include "qx/memory/memory_tracking_impl.h"

#include <new>

namespace MEMORY_TRACKING {

ObjectMap::~ObjectMap() {
    for (TrackedObject* entry = first_; entry != nullptr;) {
        TrackedObject* const next = entry->next;
        delete entry;
        entry = next;
    }
}

TrackedObject* ObjectMap::find(void* object) const {
    TrackedObject* entry = bucket_of(object);
    while (entry != nullptr && entry->object != object) entry = entry->next_in_bucket;
    return entry;
}

void ObjectMap::insert(std::unique_ptr<TrackedObject> owned) {
    if (count_ == size_) grow();
    TrackedObject* const entry = owned.release();
    TrackedObject*& bucket = bucket_of(entry->object);
    entry->next_in_bucket = bucket;
    bucket = entry;
    entry->previous = last_;
    entry->next = nullptr;
    (last_ != nullptr ? last_->next : first_) = entry;
    last_ = entry;
    ++count_;
}

std::unique_ptr<TrackedObject> ObjectMap::remove(void* object) {
    TrackedObject** link = &bucket_of(object);
    while (*link != nullptr && (*link)->object != object) link = &(*link)->next_in_bucket;
    TrackedObject* const entry = *link;
    if (entry == nullptr) return nullptr;
    *link = entry->next_in_bucket;
    (entry->previous != nullptr ? entry->previous->next : first_) = entry->next;
    (entry->next != nullptr ? entry->next->previous : last_) = entry->previous;
    --count_;
    return std::unique_ptr<TrackedObject>(entry);
}

// Without memory the chains become longer instead.
void ObjectMap::grow() {
    unsigned int const size = size_ * 2 + 1;
    auto* const buckets = new (std::nothrow) TrackedObject*[size]();
    if (buckets == nullptr) return;
    buckets_.reset(buckets);
    size_ = size;
    for (TrackedObject* entry = first_; entry != nullptr; entry = entry->next) {
        TrackedObject*& bucket = bucket_of(entry->object);
        entry->next_in_bucket = bucket;
        bucket = entry;
    }
}

}  // namespace MEMORY_TRACKING

#include "qx/memory/string_pool.h"

namespace QX {

static_assert(sizeof(BASIC_STRING_POOL) == 48);

unsigned int BASIC_STRING_POOL::node_size() const {
    return node_size_;
}

unsigned int BASIC_STRING_POOL::bucket_size() const {
    return bucket_size_;
}

unsigned int BASIC_STRING_POOL::num_buckets() const {
    return num_buckets_;
}

unsigned int BASIC_STRING_POOL::current_allocations() const {
    return current_allocations_;
}

unsigned int BASIC_STRING_POOL::allocations_hwm() const {
    return allocations_hwm_;
}

unsigned int BASIC_STRING_POOL::total_allocations() const {
    return total_allocations_;
}

unsigned int BASIC_STRING_POOL::memory() const {
    return memory_;
}

}  // namespace QX

// string_pool.h - the record of a string pool's statistics.
#pragma once

#include "qx/base/export.h"

namespace QX {

// Kept by whoever runs the pool, which is not here. A plain record of 48 bytes, without a lock;
// `{}` clears it.
class BASIC_STRING_POOL {
public:
    QX_API unsigned int node_size() const;
    QX_API unsigned int bucket_size() const;
    QX_API unsigned int num_buckets() const;
    QX_API unsigned int current_allocations() const;
    QX_API unsigned int allocations_hwm() const;  // the most that current_allocations has been
    QX_API unsigned int total_allocations() const;
    QX_API unsigned int memory() const;  // in bytes

protected:
    unsigned int node_size_;
    unsigned int bucket_size_;
    void* reserved_[2];  // the pool's own; nothing here reads them
    unsigned int num_buckets_;
    unsigned int current_allocations_;
    unsigned int allocations_hwm_;
    unsigned int total_allocations_;
    unsigned int memory_;
};

}  // namespace QX

// dynamic_array.h - the library's array.
//
// Fields in order: data pointer, 64-bit count, 64-bit capacity. A full array doubles, or takes 8
// if it had none; `reserve` takes exactly what it is asked for:
//
//     DynamicArray<int> a;   size 0, capacity 0, no block taken
//     a.push_back(1)         =>  size 1, capacity 8
//     a.reserve(20)          =>  size 1, capacity 20
//     a.erase(a.begin())     =>  size 0, capacity 20
//
// The operations, what they keep valid and what exceptions leave: array_body.h.
#pragma once

#include "qx/base/array_body.h"
#include "qx/memory/allocators.h"

namespace QX {

namespace DETAIL {

template <typename T, typename A>
struct DynamicArrayPolicy {
    static T* allocate(unsigned long long count) {
        return static_cast<T*>(A::allocate(element_bytes(count, sizeof(T))));
    }

    static void release(T* block) { A::release(block); }

    static constexpr unsigned long long grown(unsigned long long capacity) {
        return capacity ? 2 * capacity : 8;
    }
};

}  // namespace DETAIL

// `A` has static `void* allocate(bytes)` and `void release(void*)`. `T` may be incomplete where
// the array is declared, so that a record can hold an array of its own kind.
template <typename T, typename A = DefaultAllocator>
class DynamicArray : public ArrayBody<T, DETAIL::DynamicArrayPolicy<T, A>> {};

}  // namespace QX

// guarded.h - memory that ends at a page which may not be touched: one byte too far faults.
#pragma once

#include <cstddef>

namespace test {

// `size` bytes whose last byte lies just before a no-access page, filled from `bytes` or with 0.
class Guarded {
public:
    Guarded(void const* bytes, std::size_t size);
    explicit Guarded(std::size_t size) : Guarded(nullptr, size) {}
    ~Guarded();

    Guarded(Guarded&&) = delete;

    char* data() const { return data_; }
    std::size_t size() const { return size_; }

private:
    void* mapping_;
    char* data_;
    std::size_t size_;
};

}  // namespace test

// hash.h - the hash functors of the standard-style containers.
//
//     integers up to 32 bits   =>  value XOR 0x4A545EED
//     float                    =>  its bits XOR 0x4A545EED
//     64-bit integers, double  =>  low word XOR high word XOR 0x4A545EED
//
// The significant bits of a result are the low 32.
#pragma once

#include <bit>
#include <concepts>

namespace QX_STD {

namespace DETAIL {

constexpr unsigned int hash_key = 0x4A545EED;

constexpr unsigned int hash_words(unsigned long long bits) {
    return static_cast<unsigned int>(bits) ^ static_cast<unsigned int>(bits >> 32) ^ hash_key;
}

}  // namespace DETAIL

template <typename T>
struct HASH;

// By the size of the type, as the table above tells.
template <std::integral T>
struct HASH<T> {
    constexpr unsigned int operator()(T value) const {
        if constexpr (sizeof(T) <= 4)
            return static_cast<unsigned int>(value) ^ DETAIL::hash_key;
        else
            return DETAIL::hash_words(static_cast<unsigned long long>(value));
    }
};

template <>
struct HASH<float> {
    constexpr unsigned int operator()(float value) const {
        return std::bit_cast<unsigned int>(value) ^ DETAIL::hash_key;
    }
};

template <>
struct HASH<double> {
    constexpr unsigned int operator()(double value) const {
        return DETAIL::hash_words(std::bit_cast<unsigned long long>(value));
    }
};

}  // namespace QX_STD

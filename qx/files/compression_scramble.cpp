#include <cstring>

#include "qx/files/compression.h"

namespace QX {

namespace {

using Unit = unsigned long long;

constexpr Unit fixed_state = 0x51B8A3D2E94C7F06;
constexpr Unit position_key = 0xC2D94E6F8A317B55;
constexpr Unit step = 0x9E3779B97F4A7C15;

// A bijection under which each bit of the result hangs on every bit of `z`.
Unit mix(Unit z) {
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
    return z ^ (z >> 31);
}

// Both directions know the scrambled unit. Never 0, which would mean the fixed state.
Unit next_of(Unit state, Unit scrambled) {
    Unit const next = (state ^ scrambled) * step + position_key;
    return next ? next : fixed_state;
}

// Puts `fn` of each whole unit to `out`.
template <typename Function>
void* transform(void* begin, void* end, void* out, Function fn) {
    char const* at = static_cast<char*>(begin);
    char* to = static_cast<char*>(out);
    for (; static_cast<char*>(end) - at >= 8; at += 8, to += 8) {
        Unit unit;
        std::memcpy(&unit, at, 8);
        unit = fn(unit);
        std::memcpy(to, &unit, 8);
    }
    return to;
}

void* transform_by_position(void* begin, void* end, void* out, Unit* offset) {
    Unit position = offset ? *offset : 0;
    out = transform(begin, end, out, [&position](Unit unit) {
        Unit const key = mix(position * step + position_key);
        position += 8;
        return unit ^ key;
    });
    if (offset) *offset = position;
    return out;
}

}  // namespace

void* encrypt(void* begin, void* end, void* out, Unit state, Unit& next_state) {
    if (state == 0) state = fixed_state;
    out = transform(begin, end, out, [&state](Unit unit) {
        Unit const scrambled = unit ^ mix(state);
        state = next_of(state, scrambled);
        return scrambled;
    });
    next_state = state;
    return out;
}

void* decrypt(void* begin, void* end, void* out, Unit state, Unit& next_state) {
    if (state == 0) state = fixed_state;
    out = transform(begin, end, out, [&state](Unit unit) {
        Unit const plain = unit ^ mix(state);
        state = next_of(state, unit);
        return plain;
    });
    next_state = state;
    return out;
}

void* encrypt(void* begin, void* end, void* out) {
    Unit unused;
    return encrypt(begin, end, out, 0, unused);
}

void* decrypt(void* begin, void* end, void* out) {
    Unit unused;
    return decrypt(begin, end, out, 0, unused);
}

void* encrypt_using_offset(void* begin, void* end, void* out, Unit* offset) {
    return transform_by_position(begin, end, out, offset);
}

void* decrypt_using_offset(void* begin, void* end, void* out, Unit* offset) {
    return transform_by_position(begin, end, out, offset);
}

}  // namespace QX

#include "tests/files/plain_inflate.h"

#include <vector>

namespace test {

namespace {

struct Bits {
    std::string const& bytes;
    std::size_t at;  // in bits
    bool past_end = false;

    unsigned int one() {
        if (at / 8 >= bytes.size()) return past_end = true, 0;
        unsigned int const bit = static_cast<unsigned char>(bytes[at / 8]) >> at % 8 & 1;
        ++at;
        return bit;
    }

    unsigned int take(unsigned int count) {
        unsigned int value = 0;
        for (unsigned int i = 0; i < count; ++i) value |= one() << i;
        return value;
    }

    void to_byte() { at = (at + 7) / 8 * 8; }
};

// Canonical codes, read bit by bit.
struct Codes {
    unsigned int counts[16] = {};
    std::vector<unsigned int> symbols;

    explicit Codes(std::vector<unsigned int> const& lengths) {
        for (unsigned int length = 1; length < 16; ++length) {
            for (unsigned int i = 0; i < lengths.size(); ++i) {
                if (lengths[i] != length) continue;
                ++counts[length];
                symbols.push_back(i);
            }
        }
    }

    // 0xFFFF for no code.
    unsigned int read(Bits& bits) const {
        unsigned int code = 0, first = 0, index = 0;
        for (unsigned int length = 1; length < 16; ++length) {
            code |= bits.one();
            if (code < first + counts[length]) return symbols[index + code - first];
            index += counts[length];
            first = (first + counts[length]) << 1;
            code <<= 1;
        }
        return 0xFFFF;
    }
};

// The base of the n-th length or distance code, of which each `group` share a count of extra bits.
unsigned int extended(Bits& bits, unsigned int n, unsigned int group, unsigned int first) {
    if (n < 2 * group) return first + n;
    unsigned int const extra = n / group - 1;
    return first + ((group + n % group) << extra) + bits.take(extra);
}

bool copy_block(Bits& bits, std::string& text, Codes const& literals, Codes const& distances) {
    while (!bits.past_end) {
        unsigned int const symbol = literals.read(bits);
        if (symbol == 256) return true;
        if (symbol > 285) return false;
        if (symbol < 256) {
            text += static_cast<char>(symbol);
            continue;
        }
        unsigned int const length = symbol == 285 ? 258 : extended(bits, symbol - 257, 4, 3);
        unsigned int const code = distances.read(bits);
        if (code > 29) return false;
        unsigned int const distance = extended(bits, code, 2, 1);
        if (distance > text.size()) return false;
        for (unsigned int i = 0; i < length; ++i) text += text[text.size() - distance];
    }
    return false;
}

bool stored_block(Bits& bits, std::string& text) {
    bits.to_byte();
    unsigned int const size = bits.take(16);
    if ((bits.take(16) ^ 0xFFFF) != size || bits.at / 8 + size > bits.bytes.size()) return false;
    text.append(bits.bytes, bits.at / 8, size);
    bits.at += 8ull * size;
    return true;
}

bool fixed_block(Bits& bits, std::string& text) {
    std::vector<unsigned int> lengths(288, 8);
    for (unsigned int i = 144; i < 280; ++i) lengths[i] = i < 256 ? 9 : 7;
    return copy_block(bits, text, Codes(lengths), Codes(std::vector<unsigned int>(30, 5)));
}

bool dynamic_block(Bits& bits, std::string& text) {
    static constexpr unsigned char order[] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                              11, 4,  12, 3, 13, 2, 14, 1, 15};
    unsigned int const literals = bits.take(5) + 257, distances = bits.take(5) + 1;
    unsigned int const count = bits.take(4) + 4;
    std::vector<unsigned int> lengths(19);
    for (unsigned int i = 0; i < count; ++i) lengths[order[i]] = bits.take(3);
    Codes const codes(lengths);
    lengths.clear();
    while (lengths.size() < literals + distances && !bits.past_end) {
        unsigned int const symbol = codes.read(bits);
        if (symbol < 16) {
            lengths.push_back(symbol);
            continue;
        }
        if (symbol > 18 || (symbol == 16 && lengths.empty())) return false;
        unsigned int const value = symbol == 16 ? lengths.back() : 0;
        unsigned int const repeats = symbol == 16   ? 3 + bits.take(2)
                                     : symbol == 17 ? 3 + bits.take(3)
                                                    : 11 + bits.take(7);
        lengths.insert(lengths.end(), repeats, value);
    }
    if (lengths.size() != literals + distances) return false;
    auto const border = lengths.begin() + literals;
    return copy_block(bits, text, Codes({lengths.begin(), border}), Codes({border, lengths.end()}));
}

unsigned int adler(std::string const& text) {
    unsigned int low = 1, high = 0;
    for (unsigned char const c : text) {
        low = (low + c) % 65521;
        high = (high + low) % 65521;
    }
    return high << 16 | low;
}

}  // namespace

bool plain_inflate(std::string const& stream, std::string& text) {
    Bits bits{stream, 0};
    unsigned int const method = bits.take(8), flags = bits.take(8);
    if (method % 16 != 8 || (method * 256 + flags) % 31 || flags & 32) return false;
    text.clear();
    for (bool last = false; !last;) {
        last = bits.one() != 0;
        unsigned int const kind = bits.take(2);
        bool const good = kind == 0   ? stored_block(bits, text)
                          : kind == 1 ? fixed_block(bits, text)
                                      : kind == 2 && dynamic_block(bits, text);
        if (!good || bits.past_end) return false;
    }
    bits.to_byte();
    unsigned int sum = 0;
    for (int i = 0; i < 4; ++i) sum = sum << 8 | bits.take(8);
    return !bits.past_end && sum == adler(text) && bits.at == 8 * stream.size();
}

}  // namespace test

// filesystem_impl.h - the steps of path shaping, in place, for Filesystem and FileName.
#pragma once

#include <cstdint>
#include <cstring>

#include "qx/base/block_scan.h"
#include "qx/memory/heap.h"

namespace QX::path_shape {

template <typename Word>
std::uint64_t load_word(char const* at) {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

inline __m128i load_block(char const* at) {
    return _mm_loadu_si128(reinterpret_cast<__m128i const*>(at));
}

// The `count` bytes at `at`, less than 8, low byte first and zeros above.
inline std::uint64_t load_few(char const* at, unsigned int count) {
    if (count >= 4) {
        std::uint64_t const last = load_word<std::uint32_t>(at + count - 4);
        return load_word<std::uint32_t>(at) | last << 8 * (count - 4);
    }
    if (count == 0) return 0;
    std::uint64_t const middle = load_word<unsigned char>(at + count / 2);
    std::uint64_t const last = load_word<unsigned char>(at + count - 1);
    return load_word<unsigned char>(at) | middle << 8 * (count / 2) | last << 8 * (count - 1);
}

// The `count` bytes at `at`, less than 16, and zeros behind them. Reads nothing else.
inline __m128i load_part(char const* at, unsigned int count) {
    if (count < 8) return _mm_cvtsi64_si128(static_cast<long long>(load_few(at, count)));
    return _mm_set_epi64x(
        static_cast<long long>(load_few(at + 8, count - 8)),
        static_cast<long long>(load_word<std::uint64_t>(at)));
}

// Room for a text that is being shaped: on the stack for all but the longest. It is written in
// whole blocks, hence the slack.
class Scratch {
public:
    explicit Scratch(unsigned int length)
        : text_(length < usual_length ? usual_ : allocate(length)) {}
    ~Scratch() {
        if (text_ != usual_) custom_free(text_);
    }

    Scratch(Scratch const&) = delete;
    Scratch& operator=(Scratch const&) = delete;

    char* text() { return text_; }

private:
    static constexpr unsigned int usual_length = 2048;
    static constexpr unsigned int slack = 16;

    static char* allocate(unsigned int length) {
        return static_cast<char*>(custom_malloc(length + 1ull + slack, HEAP_GENERAL));
    }

    char* text_;
    char usual_[usual_length + slack];
};

// A stretch of a scratch on its way through the steps.
struct Path {
    char* text;
    unsigned int length;
    bool changed = false;
    bool dotted = true;  // may hold ".\": without one there is nothing to resolve
};

// sanitise_file_name, from `text` into a scratch of `length`.
Path fold(char* scratch, char const* text, unsigned int length);

// sanitise_relative_path.
void resolve(Path& path);

// sanitise_path_start.
void drop_start(Path& path);

}  // namespace QX::path_shape

// call_stack.h - return addresses captured, kept as text, and turned into names.
//
// A stack is 32 frames, the innermost first; behind the last used one stand nulls. Kept for later
// it is 32 offsets, each the low 32 bits of an address less those of its module's base, and as text
// 256 hexadecimal digits:
//
//     std::array<void*, 32> frames = {};
//     stack::trace(frames, 0);
//     char text[257];
//     stack::offsets_to_string(stack::symbolicate(frames, {}, {}, {}, {}), text);
//
// Names come live from the platform's debug-help library (below) or later from a linker's map
// (map_file.h). That library may be used by one thread at a time, so `load_symbols` and
// `symbolicate` are the caller's to serialise; the rest may run anywhere.
#pragma once

#include <array>
#include <functional>

#include "qx/base/export.h"

namespace QX {

// An empty shell that keeps its shape: it captures nothing, and all of them are equal.
class CallStack {
public:
    static constexpr unsigned int k_max_trace_size = 8;

    // What is known of one frame.
    struct Symbol {
        char name[64];
        char const* file;
        unsigned int line;
    };

    QX_API CallStack();
    QX_API CallStack(bool, unsigned int);  // the arguments mean nothing

    QX_API void capture(unsigned int);  // does nothing

    // Always the symbol without a name: file "<not-found>", line 0.
    QX_API Symbol fetch(unsigned int index) const;

    // k_max_trace_size pointers, of which `size` are in use.
    void* const* trace() const { return trace_; }
    unsigned int size() const { return size_; }
    unsigned int hash() const { return hash_; }

    // By hash alone.
    bool operator==(CallStack const& other) const { return hash_ == other.hash_; }
    bool operator<(CallStack const& other) const { return hash_ < other.hash_; }

private:
    unsigned int hash_;
    void* trace_[k_max_trace_size];
    unsigned short size_;
};

namespace stack {

// Fills `frames` from its start and leaves what lies behind the last captured frame as it was: the
// caller clears the array first. Nothing skipped, the first frame lies in this function itself.
QX_API void trace(std::array<void*, 32>& frames, int frames_to_skip);

// Writes 256 lower-case digits, eight an offset, and a terminator. `text` has room for 257; null
// faults, here and in the reverse.
QX_API void offsets_to_string(std::array<unsigned int, 32> const& offsets, char* text);

// The reverse. Eight characters that are no number give 0, and a text that ends early gives zeros
// for what is missing.
QX_API std::array<unsigned int, 32> string_to_offsets(char const* text);

// Prepares the debug-help library for this process: its own search path, then the folder "Symbols"
// beside the executable, then the symbol server. True when symbols are to be had, also if they
// were before. The first call of the process decides for good whether a module's symbols are read
// when first asked for (`deferred`) or at once; a failed call may be repeated.
QX_API bool load_symbols(bool deferred);

// Looks up each frame up to the first null and feeds the sinks in frame order, those that are not
// empty: file and line, then the plain name, then the module, then the end of the frame. A frame
// of which something is not known goes without that call. The first call of the process loads the
// symbols. Returns the offsets; a frame outside all modules is told against the module of the
// frame before.
QX_API std::array<unsigned int, 32> symbolicate(
    std::array<void*, 32>& frames, std::function<void(char*, unsigned int)> on_line,
    std::function<void(char*)> on_symbol, std::function<void(char*)> on_module,
    std::function<void()> on_frame_end);

}  // namespace stack

}  // namespace QX

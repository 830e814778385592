// compression.h - compression in memory, from file to file and from file to memory; scrambling.
//
// Compressed data is one stream of deflate (RFC 1951) in the wrapper chosen, with nothing before or
// after it, and no size of the expanded data: the reader knows that, or allows for it.
//
// The result is the number of bytes produced, and 0 for any failure: an empty result and a failure
// look alike. Levels are 0 (stored) to 9 (smallest); 0xFFFFFFFF is the usual one, 6. A null block
// of memory gives 0 too, but as a source of 0 bytes; what a refused compression took is not given
// back.
//
// Threads: all calls may run on any thread at once.
#pragma once

#include "qx/base/export.h"

namespace QX {

// The wrapper around the stream. Any other number counts as COMPRESSION_FORMAT_ZLIB.
enum COMPRESSION_FORMAT : unsigned int {
    COMPRESSION_FORMAT_RAW = 0,   // none (RFC 1951)
    COMPRESSION_FORMAT_ZLIB = 1,  // RFC 1950
    COMPRESSION_FORMAT_GZIP = 2,  // RFC 1952
};

// --- In memory -----------------------------------------------------------------------------------

// Writes at most `dest_size` bytes; 0 if the stream is larger. The plain form wraps for zlib.
//
//     compress(dest, 64, "", 0, 6)  =>  8, a stream of nothing
QX_API unsigned int compress(
    void* dest, unsigned int dest_size, void* source, unsigned int source_size, unsigned int level);
QX_API unsigned int compress_specific_format(
    void* dest, unsigned int dest_size, void* source, unsigned int source_size,
    COMPRESSION_FORMAT format, unsigned int level);

// Expands the one stream that `source` begins with; what stands behind it is not looked at. 0 if it
// is corrupt or cut short, or if `dest` can't hold all of it; `dest` then holds what was expanded.
QX_API unsigned int
decompress(void* dest, unsigned int dest_size, void* source, unsigned int source_size);
QX_API unsigned int decompress_specific_format(
    void* dest, unsigned int dest_size, void* source, unsigned int source_size,
    COMPRESSION_FORMAT format);

// --- From file to file ---------------------------------------------------------------------------

// In the zlib wrapper. A null `dest_file` computes the size alone. Sources of 4 GiB less 1 byte and
// more are refused. After a failure the destination may exist, in part or empty. Each takes 3 MiB
// while it runs; 0 where that is not to be had.
QX_API unsigned int compress(char const* dest_file, char const* source_file, unsigned int level);

// The count is that of the bytes written if the file was read to its end, whether or not the stream
// was good and whole: a small corrupt file gives the part before its fault.
QX_API unsigned int decompress(char const* dest_file, char const* source_file);

// --- From file to memory -------------------------------------------------------------------------

// Expands a zlib-wrapped file while the next block of it is being read, unbuffered, straight into
// `buffer`: an area of twice `buffer_size` bytes, whose halves take turns. Both must be multiples
// of the drive's sector size, which AsyncIn::aligns tells. Returns the bytes expanded, at most
// `dest_size`: a fault in the stream or in a later read shows in that count alone. 0 if the file
// can't be opened or its first block not be read.
//
// `progress`, unless null, is called on this thread: once at the start, once a block, and once at
// the end, with the bytes expanded, the bytes taken of the file, and the file's size.
//
//     a file of one block  =>  progress is called three times
//
// The reads complete in alertable waits of this thread, which run its other procedure calls too.
QX_API unsigned int decompress(
    void* dest, unsigned int dest_size, char const* source_file, void* buffer,
    unsigned int buffer_size,
    void (*progress)(
        void* dest, unsigned int out_so_far, unsigned int in_so_far, unsigned int in_total,
        void* user),
    void* user);

// --- Scrambling ----------------------------------------------------------------------------------

// Make data unreadable to the eye; no protection against anyone who tries.
//
// All work on whole units of 8 bytes from `begin` and leave a tail of fewer out: it is neither read
// nor written. `out` may be `begin`, to work in place. They return the end of what they wrote.
// Nothing need be aligned.
//
//     20 bytes  =>  16 are transformed, and the result is out + 16
//
// `decrypt` undoes `encrypt` where both begin with the same state. Each unit depends on those
// before it. The short form begins with a fixed state.
QX_API void* encrypt(void* begin, void* end, void* out);
QX_API void* decrypt(void* begin, void* end, void* out);

// The same in pieces: `next_state` is the `state` of the call for the following piece. A state of 0
// is the fixed one; 0 is never handed back. Pieces that are not whole units lose their tails.
QX_API void* encrypt(
    void* begin, void* end, void* out, unsigned long long state, unsigned long long& next_state);
QX_API void* decrypt(
    void* begin, void* end, void* out, unsigned long long state, unsigned long long& next_state);

// Transform each unit by its position alone, so that any part may be done by itself, and twice is
// not at all: the two are one function. `offset` is the position of the first unit and then
// receives the one behind the last; null means 0.
QX_API void* encrypt_using_offset(void* begin, void* end, void* out, unsigned long long* offset);
QX_API void* decrypt_using_offset(void* begin, void* end, void* out, unsigned long long* offset);

}  // namespace QX

// arena.h - the one general heap behind every allocation: its figures and its self-check.
//
// The arena follows the published boundary-tag design of dlmalloc 2.8; docs/arena.md tells how a
// request travels through it. Blocks are made and released through heap.h. There is one arena in a
// process, from the first allocation to the end: nothing creates it and nothing tears it down.
//
// Threads: any. `statistics` and `validate` hold the arena's lock for a walk over every chunk, so
// they are for tests, tools and reports; `block_size` takes no lock.
#pragma once

#include "qx/base/export.h"

namespace QX::arena {

// One moment's figures. Direct mappings (blocks of 256 KiB and more) are included in all of them.
struct Statistics {
    unsigned long long blocks_in_use;   // handed out and not yet released
    unsigned long long bytes_in_use;    // the chunks of those blocks, their overhead included
    unsigned long long footprint;       // bytes held from the system
    unsigned long long peak_footprint;  // the most that footprint has been
};

// Taken under the arena's lock, so that the figures belong together.
QX_API Statistics statistics();

// The bytes of a block in use that its owner may use: those asked for and what rounding added. Only
// large blocks, mapped alone, have many of the latter.
QX_API unsigned long long block_size(void const* block);

// Walks segments, bins, trees and links and compares each with the others. False if anything does
// not fit; never changes anything. A wild link may fault.
QX_API bool validate();

}  // namespace QX::arena

// batches.h - blocks made and released many at a time; for the library's own rooms, not installed.
#pragma once

namespace QX {

// Makes `count` blocks as so many calls of custom_malloc in this order, but holds the lock once for
// all. False, with none of them made, where one of those calls would throw, fill or call the hook.
bool custom_malloc_all(unsigned long long const* sizes, void** blocks, unsigned int count);

// Releases blocks, none of them null, as so many calls of custom_free in this order, but holds the
// lock once for all. For short batches: nobody else gets a block meanwhile.
void custom_free_all(void const* const* blocks, unsigned int count);

}  // namespace QX

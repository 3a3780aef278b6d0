// Whole pages of anonymous memory, mapped and unmapped as one block.
//
// Used for buffers large enough that the allocator would map them anyway:
// mapping them explicitly makes their release deterministic, so the pages
// go back to the system the moment a buffer is no longer needed instead of
// when the allocator decides to trim. Any thread.
//
// A block that is a whole number of 2 MiB is aligned to 2 MiB and, on Linux,
// offered to transparent huge pages: the rings that three threads stream
// through then cost a few faults instead of one per 4 KiB page, and far
// fewer TLB misses after each system call.
#ifndef PLATFORM_MEMORY_H_
#define PLATFORM_MEMORY_H_

#include <cstddef>

namespace ev::platform {

// Private, readable and writable pages of `bytes` bytes, not yet touched (so
// not yet resident; a huge page becomes resident whole on its first touch);
// null when the system refuses them.
void* MapPages(size_t bytes);

// Returns a block from MapPages, `bytes` as given there, to the system.
void UnmapPages(void* pages, size_t bytes);

}  // namespace ev::platform

#endif  // PLATFORM_MEMORY_H_

#pragma once

#include <cstddef>

namespace clarovi::engine {

/// Keeps freed memory in the process for the next allocation instead of giving it back to the
/// system. A restoration allocates and frees planes of tens of megabytes; on this kind of
/// machine every fresh page costs about 10 µs to touch, which for one 2048 x 2048 plane of
/// doubles is as much as its transform. The price: the process keeps its peak size. Call once,
/// at the start of main, before other threads exist.
void keepFreedMemoryForReuse();

/// Gives the freed memory that keepFreedMemoryForReuse keeps back to the system, in every thread's
/// heap. For the end of a burst of work whose memory would otherwise sit idle, such as an auto
/// search once its gallery has closed.
void giveBackFreedMemory();

/// Gives freed memory back as giveBackFreedMemory does, but only while the process's resident size
/// is above residentBytes: memory kept for reuse then stays within a ceiling, however the sizes
/// of a long session's work scatter it. Cheap below the ceiling (one read of /proc/self/statm).
void giveBackFreedMemoryAbove(std::size_t residentBytes);

/// Asks the system to back the whole 2 MiB pages inside [data, data + bytes) with huge pages
/// where it allows that (transparent huge pages in "madvise" or "always" mode): touching a fresh
/// plane then costs one fault per 2 MiB instead of one per 4 KiB, and walking down its columns
/// misses the TLB far less. Harmless where the pages are already there or huge pages are off.
void adviseHugePages(void* data, std::size_t bytes);

/// Storage for a large working array: 64-byte aligned, and 2 MiB aligned with huge pages
/// advised from 2 MiB on. Throws std::bad_alloc. Free with freeWorkingMemory.
void* allocateWorkingMemory(std::size_t bytes);
void freeWorkingMemory(void* data);

} // namespace clarovi::engine

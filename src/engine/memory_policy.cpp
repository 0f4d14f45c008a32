#include "memory_policy.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace clarovi::engine {

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kCacheLine = 64;

std::size_t roundUp(std::size_t value, std::size_t multiple) {
    return (value + multiple - 1) / multiple * multiple;
}

} // namespace

void keepFreedMemoryForReuse() {
    // No allocation gets pages of its own that go back to the system on free, and the heap
    // is never trimmed.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 2147483647);
}

void giveBackFreedMemory() {
    malloc_trim(0);
}

void giveBackFreedMemoryAbove(std::size_t residentBytes) {
    std::FILE* statm = std::fopen("/proc/self/statm", "r");
    if (!statm)
        return;
    unsigned long pages = 0, resident = 0;
    const bool read = std::fscanf(statm, "%lu %lu", &pages, &resident) == 2;
    std::fclose(statm);
    if (read && resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) > residentBytes)
        giveBackFreedMemory();
}

void adviseHugePages(void* data, std::size_t bytes) {
    const auto begin = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = roundUp(begin, kHugePage);
    const std::uintptr_t last = (begin + bytes) / kHugePage * kHugePage;
    if (last > first)
        madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
}

void* allocateWorkingMemory(std::size_t bytes) {
    const std::size_t alignment = bytes >= kHugePage ? kHugePage : kCacheLine;
    const std::size_t size = roundUp(bytes == 0 ? 1 : bytes, alignment);
    void* data = std::aligned_alloc(alignment, size);
    if (data == nullptr)
        throw std::bad_alloc();
    if (alignment == kHugePage)
        adviseHugePages(data, size);
    return data;
}

void freeWorkingMemory(void* data) {
    std::free(data);
}

} // namespace clarovi::engine

#include "memory_policy.h"

#include <malloc.h>

namespace clarovi::engine {

void keepFreedMemoryForReuse() {
    // No allocation gets pages of its own that go back to the system on free, and the heap
    // is never trimmed.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 2147483647);
}

} // namespace clarovi::engine

#pragma once

namespace clarovi::engine {

/// Keeps freed memory in the process for the next allocation instead of giving it back to the
/// system. A restoration allocates and frees planes of tens of megabytes; on this kind of
/// machine every fresh page costs about 10 µs to touch, which for one 2048 x 2048 plane of
/// doubles is as much as its transform. The price: the process keeps its peak size. Call once,
/// at the start of main, before other threads exist.
void keepFreedMemoryForReuse();

} // namespace clarovi::engine

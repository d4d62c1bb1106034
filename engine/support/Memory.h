#pragma once

namespace kestrel::engine {

// Hands the pages of memory just let go back to the system. A snapshot's
// entries are freed in blocks the allocator keeps for later rather than
// returns, so a program that has closed its last window still holds the
// largest snapshot it ever had; this gives those pages back. Call it after
// a snapshot is destroyed; it costs a walk of the allocator's free lists.
void releaseFreedMemory();

} // namespace kestrel::engine

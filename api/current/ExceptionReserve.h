#pragma once

// The runtime of GCC raises exceptions out of a reserve when memory runs out. But it allocates when it does
// so for the first time, once in the process and once in each thread, and ends the process when that fails.
// Here both are done in advance. Other compilers' exceptions need no memory.

namespace exceptionreserve {
/// Prepares the process. Called when the library is loaded.
void prepareProcess() noexcept;
/// Prepares the calling thread. Does nothing when there is no memory by now. Called for the thread that loads
/// the library and for each that starts later; a thread that was there before is prepared by its first
/// exception.
void prepareThread() noexcept;
} // namespace exceptionreserve

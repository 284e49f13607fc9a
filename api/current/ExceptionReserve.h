#pragma once

// The runtime of GCC raises exceptions out of a reserve when memory runs out. But the reserve's lock
// allocates when it is used for the first time, and so does the first exception of each thread, for data of
// the thread; the process ends when that fails. So the reserve is used in advance, and what the runtime
// itself asks for (malloc, calloc, realloc) comes out of 64 blocks of ours when memory has run out. They are
// given back when a thread ends; about 16 threads can have theirs at a time. Preparing each thread in advance
// would cost every thread of the process two handles. Memory that the library asks for (operator new, the
// heap) is refused as usual. Other compilers' exceptions need no memory, and with clang only the lock is
// prepared.

namespace exceptionreserve {
/// Called when the library is loaded.
void prepare() noexcept;
} // namespace exceptionreserve

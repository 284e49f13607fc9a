#pragma once

// The runtime of GCC raises exceptions out of a reserve when memory runs out. But the reserve's lock
// allocates when it is used for the first time, and the process ends when that fails. So use it in advance. A
// thread's own part, which its first exception allocates, is not prepared: it would cost every thread of the
// process two handles. Other compilers' exceptions need no memory.

namespace exceptionreserve {
/// Called when the library is loaded.
void prepare() noexcept;
} // namespace exceptionreserve

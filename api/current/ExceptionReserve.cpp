#include "ExceptionReserve.h"

#if defined(__GNUC__) && defined(_WIN32)

#include <windows.h>

#include <cxxabi.h>

#include <atomic>
#include <cstdlib>

namespace {
std::atomic<DWORD> refusedThread{0}; // its next allocation fails
} // namespace

// The linker puts these names in the place of malloc.
extern "C" void* __real_malloc(std::size_t size); // NOLINT(bugprone-reserved-identifier)
extern "C" void* __wrap_malloc(std::size_t size)  // NOLINT(bugprone-reserved-identifier)
{
    if (refusedThread.load(std::memory_order_relaxed) == 0 || refusedThread != GetCurrentThreadId()) {
#ifdef __clang__
        // lld leads the name of the real one back to this function, because malloc is imported. Reallocating
        // nothing allocates as well; the empty instruction hides the null, or the compiler would call malloc
        // again.
        void* nothing = nullptr;
        asm("" : "+r"(nothing));
        return std::realloc(nothing, size);
#else
        return __real_malloc(size);
#endif
    }
    refusedThread = 0;
    return nullptr;
}

void exceptionreserve::prepare() noexcept
{
    refusedThread = GetCurrentThreadId();
    void* const exception = abi::__cxa_allocate_exception(sizeof(long));
    refusedThread = 0;
    abi::__cxa_free_exception(exception);
}

#else

void exceptionreserve::prepare() noexcept {}

#endif

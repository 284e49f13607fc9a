#pragma once

#include <windows.h>

#include <cstddef>
#include <limits>
#include <new>
#include <string>

#include "core/win32/utils/objectmanager/include/Raise.h"

/// Memory that crosses the boundary between the DLL and its callers. Both link their runtime statically, so
/// only the process heap is the same on both sides.
namespace processheap {
[[nodiscard]] inline HANDLE handle() noexcept
{
    static const HANDLE heap = GetProcessHeap(); // it never changes
    return heap;
}

/// Allocates `size` bytes; raises a bare 8 when memory runs out. Release with processheap::release.
[[nodiscard]] inline void* allocate(std::size_t size)
{
    void* memory = HeapAlloc(handle(), 0, size);
    if (memory == nullptr)
        raiseCode(ERROR_NOT_ENOUGH_MEMORY);
    return memory;
}

/// Releases what processheap::allocate returned; null is allowed.
inline void release(void* memory) noexcept
{
    if (memory != nullptr)
        HeapFree(handle(), 0, memory);
}

/// Copies `size` bytes into new memory, followed by `extra` zero bytes; raises a bare 8.
[[nodiscard]] inline void* copy(const void* source, std::size_t size, std::size_t extra = 0)
{
    if (size > std::numeric_limits<std::size_t>::max() - extra) // a false length must not wrap around
        raiseCode(ERROR_NOT_ENOUGH_MEMORY);
    auto* target = static_cast<unsigned char*>(allocate(size + extra));
    for (std::size_t i = 0; i < extra; ++i)
        target[size + i] = 0;
    if (size != 0)
        CopyMemory(target, source, size);
    return target;
}
} // namespace processheap

/// Standard allocator on the process heap, for containers in objects shared across the boundary.
template <class T>
struct ProcessHeapAllocator
{
    using value_type = T;

    ProcessHeapAllocator() noexcept = default;
    template <class U>
    ProcessHeapAllocator(const ProcessHeapAllocator<U>&) noexcept
    {
    }

    [[nodiscard]] T* allocate(std::size_t count)
    {
        constexpr std::size_t kSize = sizeof(T); // NOLINT(bugprone-sizeof-expression): T may be a pointer
        if (count > std::numeric_limits<std::size_t>::max() / kSize)
            throw std::bad_alloc();
        void* memory = HeapAlloc(processheap::handle(), 0, count * kSize);
        if (memory == nullptr)
            throw std::bad_alloc();
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, std::size_t) noexcept { processheap::release(memory); }

    template <class U>
    bool operator==(const ProcessHeapAllocator<U>&) const noexcept
    {
        return true;
    }
};

/// Wide and narrow strings on the process heap.
template <class Char>
using HeapString = std::basic_string<Char, std::char_traits<Char>, ProcessHeapAllocator<Char>>;
using HeapStringW = HeapString<wchar_t>;

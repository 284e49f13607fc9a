#include "ExceptionReserve.h"

#if defined(__GNUC__) && defined(_WIN32)

#include <windows.h>

#include <cxxabi.h>

#include <atomic>
#include <cstdlib>

namespace {
std::atomic<DWORD> refusedThread{0}; // its next allocation fails

/// Whether this allocation is the one that is to fail.
bool isRefused() noexcept
{
    if (refusedThread.load(std::memory_order_relaxed) == 0 || refusedThread != GetCurrentThreadId())
        return false;
    refusedThread = 0;
    return true;
}
} // namespace

#ifdef __clang__

// The linker puts this name in the place of malloc. lld leads the name of the real one back to this function,
// because malloc is imported. Reallocating nothing allocates as well; the empty instruction hides the null,
// or the compiler would call malloc again.
extern "C" void* __wrap_malloc(std::size_t size) // NOLINT(bugprone-reserved-identifier)
{
    if (isRefused())
        return nullptr;
    void* nothing = nullptr;
    asm("" : "+r"(nothing));
    return std::realloc(nothing, size);
}

#else

#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <functional>
#include <new>

// NOLINTBEGIN(bugprone-reserved-identifier): the linker puts these names in the place of the functions
extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __real_calloc(std::size_t count, std::size_t size);
extern "C" void* __real_realloc(void* block, std::size_t size);
extern "C" void __real_free(void* block);

namespace {
/// Blocks for the runtime's own data. Usable before and after all static objects live.
class Reserve
{
public:
    [[nodiscard]] void* take(std::size_t size) noexcept
    {
        if (size > kRoom)
            return nullptr;
        for (Block& block : m_blocks) {
            if (!block.used.exchange(true))
                return block.bytes.data();
        }
        return nullptr;
    }
    /// Null for what does not come from here.
    [[nodiscard]] static bool holds(const void* bytes) noexcept
    {
        const auto* byte = static_cast<const std::byte*>(bytes);
        return !std::less<>()(byte, first()) && std::less<>()(byte, first() + sizeof(Reserve));
    }
    void giveBack(void* bytes) noexcept
    {
        const auto index = static_cast<std::size_t>(static_cast<std::byte*>(bytes) - first()) / sizeof(Block);
        m_blocks[index].used = false;
    }

    static constexpr std::size_t kRoom = 1008;

private:
    struct Block
    {
        alignas(16) std::array<std::byte, kRoom> bytes{};
        std::atomic<bool> used{false};
    };
    static std::byte* first() noexcept;

    std::array<Block, 64> m_blocks{};
};
constinit Reserve reserve{};

std::byte* Reserve::first() noexcept
{
    return reinterpret_cast<std::byte*>(&reserve);
}
} // namespace

extern "C" void* __wrap_malloc(std::size_t size)
{
    if (isRefused())
        return nullptr;
    void* const block = __real_malloc(size);
    return block != nullptr ? block : reserve.take(size);
}

extern "C" void* __wrap_calloc(std::size_t count, std::size_t size)
{
    void* block = __real_calloc(count, size);
    if (block == nullptr && (size == 0 || count <= Reserve::kRoom / size)) {
        block = reserve.take(count * size);
        if (block != nullptr)
            std::memset(block, 0, count * size);
    }
    return block;
}

extern "C" void __wrap_free(void* block)
{
    if (Reserve::holds(block))
        reserve.giveBack(block);
    else
        __real_free(block);
}

extern "C" void* __wrap_realloc(void* block, std::size_t size)
{
    const bool ours = Reserve::holds(block);
    if (!ours || size == 0) {
        void* const grown = ours ? nullptr : __real_realloc(block, size);
        if (grown != nullptr || size == 0) {
            if (ours)
                reserve.giveBack(block);
            return grown;
        }
    }
    if (ours && size <= Reserve::kRoom)
        return block;
    void* const moved = ours ? __real_malloc(size) : reserve.take(size);
    if (moved != nullptr && block != nullptr) {
        std::memcpy(moved, block, std::min(size, ours ? Reserve::kRoom : _msize(block)));
        __wrap_free(block);
    }
    return moved;
}

// The library's own allocations fail when memory is out: the reserve is the runtime's.
void* operator new(std::size_t size)
{
    for (;;) {
        if (void* const block = __real_malloc(std::max<std::size_t>(size, 1)); block != nullptr)
            return block;
        const std::new_handler handler = std::get_new_handler();
        if (handler == nullptr)
            throw std::bad_alloc();
        handler();
    }
}
// NOLINTEND(bugprone-reserved-identifier)

#endif

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

#pragma once

#include "core/win32/utils/objectmanager/include/Exception.h"
#include "support/ImportReplacement.h"
#include "support/Test.h"

/// Watches the heap of one module for a scope: what it allocates from the process heap and the runtime's and
/// does not free. The n-th allocation can be made to fail. The module or this program may free blocks. One at
/// a time; takes no lock, so threads may be suspended.
class HeapWatch
{
public:
    explicit HeapWatch(HMODULE module)
    {
        if (s_entries.empty()) // 32 MB that belong neither in the program's file nor in a heap
            s_entries = {static_cast<Entry*>(VirtualAlloc(nullptr, kEntries * sizeof(Entry),
                                                          MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)),
                         kEntries};
        for (Entry& entry : s_entries)
            entry = nullptr;
        s_live = 0;
        disarm();
        // This program itself uses the system's functions, except for what frees.
        replace(module, "HeapAlloc", [](HANDLE heap, DWORD flags, SIZE_T size) {
            return taken(nullptr, [&] { return HeapAlloc(heap, flags, size); });
        });
        replace(module, "HeapReAlloc", [](HANDLE heap, DWORD flags, void* old, SIZE_T size) {
            return taken(old, [&] { return HeapReAlloc(heap, flags, old, size); });
        });
        replace(module, "malloc", &allocate);
        replace(module, "calloc", [](std::size_t count, std::size_t size) {
            return taken(nullptr, [&] { return std::calloc(count, size); });
        });
        replace(module, "realloc", [](void* old, std::size_t size) {
            return old == nullptr ? allocate(size) : taken(old, [&] { return std::realloc(old, size); });
        });
        const HMODULE own = GetModuleHandleW(nullptr);
        for (const HMODULE giver : {module, own}) {
            replace(giver, "HeapFree", [](HANDLE heap, DWORD flags, void* address) {
                return given(address), s_heapFree(heap, flags, address);
            });
            replace(giver, "free", [](void* address) { given(address), s_free(address); });
        }
        const ImportReplacement measured(own, "malloc", reinterpret_cast<void*>(&measure));
        for (int turn = 0; turn < 2; ++turn) // a thread's first exception allocates more than itself
            try {
                throw 1L;
            } catch (long) {
                s_exceptionHead = s_measured - sizeof(long);
            }
    }
    HeapWatch(HeapWatch&&) = delete;
    ~HeapWatch() { disarm(); }

    /// The blocks allocated and not freed since the watch began; 0 without a watch.
    [[nodiscard]] static long liveBlocks() { return s_live; }
    /// The calling thread's allocation `number` (from 1, counted from now) fails, and later ones succeed. The
    /// memory of an exception does not count: the runtime has a reserve for it.
    static void arm(long number)
    {
        s_thread = GetCurrentThreadId();
        s_failed = false;
        s_number = number;
    }
    /// All allocations of the calling thread fail, those of exceptions too.
    static void armAll()
    {
        s_thread = GetCurrentThreadId();
        s_failed = false;
        s_failsAll = true;
    }
    /// The calling thread's allocation `number` fails, and all later ones do, those of exceptions too.
    static void armFrom(long number)
    {
        arm(number);
        s_lasts = true;
    }
    static void disarm()
    {
        s_lasts = false;
        s_number = 0;
        s_failsAll = false;
    }
    /// Whether the failing allocation was made.
    [[nodiscard]] static bool hasFailed() { return s_failed; }

private:
    using Entry = std::atomic<void*>;
    static constexpr std::size_t kBucketSize = 16;
    static constexpr std::size_t kEntries = kBucketSize << 18;

    static std::span<Entry> bucketOf(void* address)
    {
        const std::size_t hash = (reinterpret_cast<std::uintptr_t>(address) >> 4) * 0x9E3779B97F4A7C15U;
        return s_entries.subspan((hash >> 46) * kBucketSize, kBucketSize);
    }
    /// What `original` allocates, replacing the block `old` if there is one.
    template <class Original>
    static void* taken(void* old, Original&& original, bool canFail = true)
    {
        if ((s_failsAll || (canFail && s_number != 0)) && GetCurrentThreadId() == s_thread &&
            (s_failsAll || --s_number == 0)) {
            s_failed = true;
            s_failsAll = s_failsAll || s_lasts;
            return nullptr;
        }
        void* const address = original();
        if (address == nullptr)
            return nullptr;
        given(old);
        for (Entry& entry : bucketOf(address))
            if (void* nobody = nullptr; entry.compare_exchange_strong(nobody, address)) {
                ++s_live;
                return address;
            }
        std::abort(); // more blocks than the watch can hold
    }
    static void given(void* address)
    {
        for (Entry& entry : bucketOf(address))
            if (address != nullptr && entry == address) {
                entry = nullptr;
                --s_live;
                return;
            }
    }

    static void* allocate(std::size_t size)
    {
        const std::size_t thrown = size - s_exceptionHead;
        const bool isException =
            thrown == sizeof(long) || thrown == sizeof(Exception) || thrown == sizeof(std::bad_alloc);
        return taken(
            nullptr, [&] { return std::malloc(size); }, !isException);
    }
    static void* measure(std::size_t size)
    {
        s_measured = size;
        return std::calloc(size, 1);
    }

    template <class Hook>
    void replace(HMODULE module, const char* name, Hook hook)
    {
        m_replacements.emplace_back(module, name, reinterpret_cast<void*>(+hook));
    }

    std::deque<ImportReplacement> m_replacements;
    static inline std::span<Entry> s_entries;
    static inline std::atomic<long> s_live{0};
    static inline std::atomic<long> s_number{0};
    static inline std::size_t s_measured = 0;
    static inline std::size_t s_exceptionHead = 0;
    static inline bool s_failed = false;
    static inline bool s_failsAll = false;
    static inline bool s_lasts = false;
    static inline DWORD s_thread = 0;
    // The imports of these names are replaced.
    template <class Function>
    static Function* systemFunction(const wchar_t* library, const char* name)
    {
        return reinterpret_cast<Function*>(
            reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(library), name)));
    }
    static inline const auto s_heapFree = systemFunction<decltype(::HeapFree)>(L"kernel32.dll", "HeapFree");
    static inline const auto s_free = systemFunction<decltype(std::free)>(L"msvcrt.dll", "free");
};

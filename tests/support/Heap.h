#pragma once

#include <cstdlib>
#include <map>
#include <memory>

#include "core/win32/utils/objectmanager/include/Exception.h"
#include "support/ImportReplacement.h"

/// Watches the heap of one module for the length of a scope: what it takes from the process heap and from the
/// runtime's and is not given back, and the n-th taking, which can be made to find no memory. Blocks may be
/// given back by the module or by this program. One at a time; takes no lock, so threads may be suspended.
class HeapWatch
{
public:
    explicit HeapWatch(HMODULE module)
    {
        for (Entry& entry : s_entries)
            entry.address = nullptr;
        s_live = 0;
        disarm();
        replace<true>(module);
        if (const HMODULE own = GetModuleHandleW(nullptr); own != module)
            replace<false>(own);
        for (int turn = 0; turn < 2; ++turn) // the first exception of a thread takes more than itself
            try {
                throw 1L;
            } catch (long) {
                s_exceptionHead = s_lastSize - sizeof(long);
            }
    }
    HeapWatch(const HeapWatch&) = delete;
    HeapWatch& operator=(const HeapWatch&) = delete;
    ~HeapWatch() { disarm(); }

    /// The blocks taken and not given back since the watch began; 0 without a watch.
    [[nodiscard]] static long liveBlocks() { return s_live; }
    /// How many of them there are of each size, to tell who they are.
    [[nodiscard]] static std::string describe()
    {
        std::map<std::size_t, long> counts;
        for (const Entry& entry : s_entries)
            if (entry.address != nullptr)
                ++counts[entry.size];
        std::string text = "blocks:";
        for (const auto& [size, count] : counts)
            text += " " + std::to_string(count) + " of " + std::to_string(size);
        return text;
    }

    /// The calling thread's taking `number` (from 1, counted from now) finds no memory, and those after it
    /// do. What carries an exception is no taking: the runtime has a reserve for it.
    static void arm(long number)
    {
        s_thread = GetCurrentThreadId();
        s_failed = false;
        s_number = number;
    }
    static void disarm() { s_number = 0; }
    /// Whether the taking that was to fail has come.
    [[nodiscard]] static bool hasFailed() { return s_failed; }

private:
    struct Entry
    {
        std::atomic<void*> address;
        std::size_t size;
    };
    static constexpr std::size_t kBuckets = 1 << 18;
    static constexpr std::size_t kBucketSize = 16;

    static Entry* bucketOf(void* address)
    {
        const std::size_t hash = (reinterpret_cast<std::uintptr_t>(address) >> 4) * 0x9E3779B97F4A7C15U;
        return &s_entries[(hash >> 46) * kBucketSize];
    }
    template <bool Watched>
    static void* taken(void* address, std::size_t size)
    {
        if (!Watched || address == nullptr)
            return address;
        Entry* const bucket = bucketOf(address);
        for (Entry* entry = bucket; entry != bucket + kBucketSize; ++entry)
            if (void* nobody = nullptr; entry->address.compare_exchange_strong(nobody, address)) {
                entry->size = size;
                ++s_live;
                return address;
            }
        std::abort(); // more blocks than the watch can hold
    }
    static void given(void* address)
    {
        Entry* const bucket = bucketOf(address);
        for (Entry* entry = bucket; address != nullptr && entry != bucket + kBucketSize; ++entry)
            if (entry->address == address) {
                entry->address = nullptr;
                --s_live;
                return;
            }
    }
    template <bool Watched>
    static bool fails()
    {
        if (!Watched || s_number == 0 || GetCurrentThreadId() != s_thread)
            return false;
        s_failed = --s_number == 0;
        return s_failed;
    }

    template <bool Watched>
    struct Hooks
    {
        static void* WINAPI heapAlloc(HANDLE heap, DWORD flags, SIZE_T size)
        {
            return fails<Watched>() ? nullptr : taken<Watched>(s_heapAlloc(heap, flags, size), size);
        }
        static void* WINAPI heapReAlloc(HANDLE heap, DWORD flags, void* old, SIZE_T size)
        {
            if (fails<Watched>())
                return nullptr;
            void* const grown = s_heapReAlloc(heap, flags, old, size);
            if (grown != nullptr)
                given(old);
            return taken<Watched>(grown, size);
        }
        static BOOL WINAPI heapFree(HANDLE heap, DWORD flags, void* address)
        {
            given(address);
            return s_heapFree(heap, flags, address);
        }
        static void* allocate(std::size_t size)
        {
            s_lastSize = size;
            const std::size_t thrown = size - s_exceptionHead;
            const bool isException =
                thrown == sizeof(long) || thrown == sizeof(Exception) || thrown == sizeof(std::bad_alloc);
            return !isException && fails<Watched>() ? nullptr : taken<Watched>(s_malloc(size), size);
        }
        static void* allocateZeroed(std::size_t count, std::size_t size)
        {
            return fails<Watched>() ? nullptr : taken<Watched>(s_calloc(count, size), count * size);
        }
        static void* reallocate(void* old, std::size_t size)
        {
            if (fails<Watched>())
                return nullptr;
            void* const grown = s_realloc(old, size);
            if (grown != nullptr)
                given(old);
            return taken<Watched>(grown, size);
        }
        static void release(void* address)
        {
            given(address);
            s_free(address);
        }
    };

    template <bool Watched>
    void replace(HMODULE module)
    {
        const auto one = [&](const wchar_t* library, const char* name, auto& original, auto hook) {
            original = reinterpret_cast<std::remove_reference_t<decltype(original)>>(
                reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(library), name)));
            try {
                m_replacements.push_back(
                    std::make_unique<ImportReplacement>(module, name, reinterpret_cast<void*>(hook)));
            } catch (
                const std::runtime_error&) { // NOLINT(bugprone-empty-catch): not imported, so never called
            }
        };
        using Own = Hooks<Watched>;
        one(L"kernel32.dll", "HeapAlloc", s_heapAlloc, &Own::heapAlloc);
        one(L"kernel32.dll", "HeapReAlloc", s_heapReAlloc, &Own::heapReAlloc);
        one(L"kernel32.dll", "HeapFree", s_heapFree, &Own::heapFree);
        one(L"msvcrt.dll", "malloc", s_malloc, &Own::allocate);
        one(L"msvcrt.dll", "calloc", s_calloc, &Own::allocateZeroed);
        one(L"msvcrt.dll", "realloc", s_realloc, &Own::reallocate);
        one(L"msvcrt.dll", "free", s_free, &Own::release);
    }

    std::vector<std::unique_ptr<ImportReplacement>> m_replacements;
    static inline Entry s_entries[kBuckets * kBucketSize];
    static inline std::atomic<long> s_live{0};
    static inline std::atomic<long> s_number{0};
    static inline std::size_t s_lastSize = 0;
    static inline std::size_t s_exceptionHead = 0;
    static inline bool s_failed = false;
    static inline DWORD s_thread = 0;
    static inline decltype(&::HeapAlloc) s_heapAlloc;
    static inline decltype(&::HeapReAlloc) s_heapReAlloc;
    static inline decltype(&::HeapFree) s_heapFree;
    static inline decltype(&std::malloc) s_malloc;
    static inline decltype(&std::calloc) s_calloc;
    static inline decltype(&std::realloc) s_realloc;
    static inline decltype(&std::free) s_free;
};

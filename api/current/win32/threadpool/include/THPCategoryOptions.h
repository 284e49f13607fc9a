#pragma once

#include <cstdint>

/// How the worker threads of a category are made. Copied into the category when it is created. As built
/// here it holds what a category gets that work was queued into before anyone created it.
class THPCategoryOptions
{
public:
    /// In place of a maximum: threads are made as long as work arrives and none is free.
    static constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;
    /// Creation flags: workers run at once, or wait until their work is resumed. No others are accepted.
    static constexpr std::uint32_t kRunning = 0;
    static constexpr std::uint32_t kSuspended = 4;

    THPCategoryOptions() noexcept = default;
    THPCategoryOptions(std::uint32_t maximum, std::uint32_t flags, std::int32_t threadPriority,
                       std::uint64_t stack) noexcept
        : maximumThreads(maximum), creationFlags(flags), priority(threadPriority), stackSize(stack)
    {
    }
    THPCategoryOptions(const THPCategoryOptions&) noexcept = default;
    THPCategoryOptions& operator=(const THPCategoryOptions&) noexcept = default;
    virtual ~THPCategoryOptions() = default;

    std::uint32_t maximumThreads = kNoLimit; ///< 0: no thread of its own, work is queued and never begins
    std::uint32_t creationFlags = kRunning;
    std::int32_t priority = 0;   ///< a Win32 thread priority
    std::uint64_t stackSize = 0; ///< in bytes; 0 is the system's default
};

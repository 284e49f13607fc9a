#pragma once

#include <cstdint>

/// How the worker threads of a category are created. Copied into the category when it is created. The default
/// values apply to a category that comes into being because work was queued into it.
class THPCategoryOptions
{
public:
    /// Instead of a maximum: a thread is created whenever work arrives and none is free.
    static constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;
    /// Creation flags: workers run at once, or wait until their work is resumed. Any other flag is refused.
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

    std::uint32_t maximumThreads = kNoLimit; ///< 0: the category has no thread; queued work never begins
    std::uint32_t creationFlags = kRunning;
    std::int32_t priority = 0;   ///< a Win32 thread priority
    std::uint64_t stackSize = 0; ///< in bytes; 0 is the system's default
};

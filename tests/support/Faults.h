#pragma once

#include "support/Process.h"

inline constexpr DWORD kFailure = ERROR_IO_DEVICE;

/// Imports of the library, grouped by what they return when they fail, which may be the code itself.
inline const std::map<LONG_PTR, std::vector<std::string>> kFaults = [] {
    constexpr std::pair<LONG_PTR, const char*> kRows[] = {
        {0,
         "CreateDirectoryW CreateEventW CreateMutexW CreateThread DeleteFileW FindNextFileW FlushFileBuffers "
         "GetDiskFreeSpaceExW GetFileInformationByHandle GetFileInformationByHandleEx GetFileSizeEx "
         "GetFullPathNameW GetModuleFileNameW "
         "GetModuleHandleExW GetProcAddress ImpersonateLoggedOnUser ImpersonateSelf LoadLibraryExW "
         "OpenProcessToken OpenThreadToken ReadFile RemoveDirectoryW ResetEvent RevertToSelf SetEndOfFile "
         "SetEvent SetFileAttributesW SetFileInformationByHandle SetFilePointerEx SetThreadPriority "
         "SetThreadToken WriteFile"},
        {-1, "CreateFileW CreateNamedPipeW FindFirstFileExW FindFirstFileW GetFileAttributesW "
             "WTSGetActiveConsoleSessionId"},
        {kFailure,
         "RegCreateKeyExW RegDeleteValueW RegEnumKeyExW RegEnumValueW RegOpenCurrentUser RegOpenKeyExW "
         "RegQueryValueExW RegSetValueExW"},
        {static_cast<LONG>(0xC0000185), "NtDeleteKey"}};
    std::map<LONG_PTR, std::vector<std::string>> faults;
    for (const auto& [result, names] : kRows) {
        std::istringstream text(names);
        faults[result].assign(std::istream_iterator<std::string>(text), {});
    }
    return faults;
}();

/// Lets one of this thread's calls of an import, or of any thread's, fail for the length of a scope. One at a
/// time.
class FailingCall
{
public:
    static constexpr DWORD kAnyThread = 0xFFFFFFFF;

    FailingCall(const std::string& import, LONG_PTR result, long number, DWORD thread = GetCurrentThreadId())
        : m_import(sysmaintModule(), import.c_str(), reinterpret_cast<void*>(&call), &s_original)
    {
        s_result = result;
        s_thread = thread;
        s_left = number;
    }
    /// From now on none fails.
    static void end() { s_thread = 0; }
    /// Whether the call was made.
    [[nodiscard]] static bool hasCome() { return s_left <= 0; }

private:
    /// Stands for functions of up to twelve arguments of any type.
    using Any = LONG_PTR;
    static Any WINAPI call(Any a, Any b, Any c, Any d, Any e, Any f, Any g, Any h, Any i, Any j, Any k, Any l)
    {
        const auto original = reinterpret_cast<decltype(&call)>(s_original.load());
        if ((s_thread != kAnyThread && GetCurrentThreadId() != s_thread) || --s_left != 0)
            return original(a, b, c, d, e, f, g, h, i, j, k, l);
        SetLastError(kFailure);
        return s_result;
    }

    static inline std::atomic<void*> s_original;
    static inline LONG_PTR s_result;
    static inline std::atomic<DWORD> s_thread;
    static inline std::atomic<long> s_left = 0;
    ImportReplacement m_import;
};

/// Lets each call of each import, by whatever thread, fail in turn.
template <class Run>
void failCallsOf(std::initializer_list<const char*> imports, LONG_PTR result, const Run& run)
{
    for (const std::string import : imports)
        for (long call = 1; call == 1 || FailingCall::hasCome(); ++call) {
            const FailingCall failing(import, result, call, FailingCall::kAnyThread);
            run(import, call);
        }
}

inline bool isImpersonating()
{
    HANDLE token = nullptr;
    return OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token) && CloseHandle(token);
}

/// Lets each call that `operation` makes of each import fail in turn, after `prepare`. Nothing may stay open,
/// no thread may be running and nobody impersonated, at the latest after the second time; `check` gets the
/// import and what the operation returned.
template <class Prepare, class Operation, class Check>
void failEachCall(Prepare&& prepare, Operation&& operation, Check&& check)
{
    const auto failCall = [&](const std::string& import, LONG_PTR failure, long number) {
        SCOPED_TRACE(import + " " + std::to_string(number));
        ProcessCounts before;
        long result = 0;
        int times = 0;
        do {
            prepare();
            before = ProcessCounts::now();
            const FailingCall failing(import, failure, number);
            result = operation();
        } while (FailingCall::hasCome() && !before.isReachedAgain(40) && ++times < 2);
        if (!FailingCall::hasCome())
            return false;
        EXPECT_LT(times, 2) << before.isReachedAgain(1).message();
        EXPECT_FALSE(isImpersonating());
        check(import, result);
        return true;
    };
    for (const auto& [failure, imports] : kFaults)
        for (const std::string& import : imports)
            for (long number = 1; failCall(import, failure, number);)
                ++number;
}

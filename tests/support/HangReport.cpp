#include "support/HangReport.h"

#include <winternl.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace {
constexpr int kMostFrames = 40;
constexpr DWORD kHungCode = 3;

using NextThread = LONG(NTAPI*)(HANDLE process, HANDLE thread, ACCESS_MASK access, ULONG attributes,
                                ULONG flags, HANDLE* next);
NextThread nextThread = nullptr; // found while nothing hangs

template <class... Values>
void print(const char* format, Values... values)
{
    std::array<char, 512> line;
    const int length = std::snprintf(line.data(), line.size(), format, values...);
    DWORD done = 0;
    if (length > 0)
        WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), line.data(), static_cast<DWORD>(length), &done, nullptr);
}

// The name by which a module exports; programs have none.
const char* nameOf(DWORD64 base)
{
    const auto* const bytes = reinterpret_cast<const BYTE*>(base);
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(bytes);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(bytes + dos->e_lfanew);
    const DWORD table = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress;
    if (table == 0)
        return "program";
    return reinterpret_cast<const char*>(
        bytes + reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(bytes + table)->Name);
}

void printFrames(CONTEXT context)
{
    for (int frame = 0; frame < kMostFrames && context.Rip != 0; ++frame) {
        DWORD64 base = 0;
        PRUNTIME_FUNCTION function = RtlLookupFunctionEntry(context.Rip, &base, nullptr);
        if (function == nullptr) {
            print("    %p\n", reinterpret_cast<void*>(context.Rip));
            context.Rip = *reinterpret_cast<const DWORD64*>(context.Rsp); // a function without a frame
            context.Rsp += sizeof(DWORD64);
            continue;
        }
        print("    %s+0x%lx\n", nameOf(base), static_cast<DWORD>(context.Rip - base));
        void* handlerData = nullptr;
        DWORD64 establisher = 0;
        RtlVirtualUnwind(UNW_FLAG_NHANDLER, base, context.Rip, function, &context, &handlerData, &establisher,
                         nullptr);
    }
}
} // namespace

std::atomic<const testing::TestInfo*> HangReport::test{nullptr};

HangReport::HangReport(ULONGLONG longestTest) : m_longestTest(longestTest)
{
    nextThread = reinterpret_cast<NextThread>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtGetNextThread")));
    CloseHandle(CreateThread(nullptr, 0, watch, this, 0, nullptr));
}

void HangReport::OnTestStart(const testing::TestInfo& begun)
{
    m_begin = GetTickCount64();
    test = &begun;
}

DWORD WINAPI HangReport::watch(void* self)
{
    const auto& report = *static_cast<const HangReport*>(self);
    while (test == nullptr || GetTickCount64() - report.m_begin < report.m_longestTest)
        Sleep(1000);
    endProgram();
}

void HangReport::endProgram()
{
    const testing::TestInfo* const hung = test;
    print("[   HUNG   ] %s.%s\n", hung->test_suite_name(), hung->name());
    for (HANDLE thread = nullptr;
         nextThread(GetCurrentProcess(), thread, THREAD_ALL_ACCESS, 0, 0, &thread) >= 0;) {
        if (GetThreadId(thread) == GetCurrentThreadId())
            continue;
        alignas(16) CONTEXT context{};
        context.ContextFlags = CONTEXT_FULL;
        const DWORD suspended = SuspendThread(thread);
        print("  thread %lx, suspended %ld times:\n", GetThreadId(thread), static_cast<long>(suspended));
        if (GetThreadContext(thread, &context))
            printFrames(context);
        ResumeThread(thread);
    }
    TerminateProcess(GetCurrentProcess(), kHungCode);
    std::abort(); // not reached
}

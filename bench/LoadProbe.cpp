// What loading a DLL costs a program that has nothing but the runtime: load_probe DLL
// Prints the microseconds and the KiB of private memory of the first load, and the microseconds of a later
// one.

#include <windows.h>

#include <psapi.h>

#include <cstdio>

namespace {
double microseconds()
{
    LARGE_INTEGER frequency;
    LARGE_INTEGER now;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&now);
    return static_cast<double>(now.QuadPart) * 1e6 / static_cast<double>(frequency.QuadPart);
}

double privateKibibytes()
{
    PROCESS_MEMORY_COUNTERS memory{};
    GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory);
    return static_cast<double>(memory.PagefileUsage) / 1024;
}
} // namespace

int wmain(int count, wchar_t** arguments)
{
    if (count != 2)
        return 2;
    double taken[2];
    double memory = 0;
    for (double& time : taken) {
        const double before = privateKibibytes();
        const double begun = microseconds();
        const HMODULE module = LoadLibraryW(arguments[1]);
        time = microseconds() - begun;
        if (module == nullptr)
            return 1;
        if (&time == taken)
            memory = privateKibibytes() - before;
        FreeLibrary(module);
    }
    std::printf("%.3f %.3f %.3f", taken[0], memory, taken[1]);
    return 0;
}

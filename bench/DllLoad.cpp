#include <windows.h>

#include <cstdio>
#include <string>

#include "Bench.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

namespace {
std::wstring besideProgram(const wchar_t* name)
{
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    const std::wstring path = program;
    return path.substr(0, path.find_last_of(L'\\') + 1) + name;
}

struct LoadCost
{
    double firstMicroseconds = 0;
    double firstKibibytes = 0;
    double laterMicroseconds = 0;
};

/// Loads the DLL in a separate program: this one has already loaded the system libraries that ours needs.
LoadCost costOf(const wchar_t* dll)
{
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE ends[2];
    require(CreatePipe(&ends[0], &ends[1], &inherited, 0), "no pipe to the load probe");
    const Win32Handle reading(ends[0]);
    Win32Handle writing(ends[1]);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writing.get();
    PROCESS_INFORMATION started{};
    std::wstring command = L"\"" + besideProgram(L"load_probe.exe") + L"\" \"" + besideProgram(dll) + L"\"";
    require(CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                           &started),
            "the load probe cannot be started");
    const Win32Handle process(started.hProcess);
    const Win32Handle thread(started.hThread);
    writing.reset();
    char text[200] = {};
    for (DWORD size = 0, got = 0;
         size < sizeof text - 1 &&
         ReadFile(reading.get(), text + size, static_cast<DWORD>(sizeof text - 1 - size), &got, nullptr);)
        size += got;
    LoadCost cost;
    require(std::sscanf(text, "%lf %lf %lf", &cost.firstMicroseconds, &cost.firstKibibytes,
                        &cost.laterMicroseconds) == 3,
            "the load probe could not load the DLL");
    return cost;
}

FigureRow row(const char* name, const char* unit, double LoadCost::*figure)
{
    return {name,
            "a DLL with an empty body",
            unit,
            0,
            FigureRow::Of::Median,
            [=] { return costOf(L"sysmaint.dll").*figure; },
            [=] { return costOf(L"empty.dll").*figure; }};
}
} // namespace

BenchRows loadRows(BenchScale /*scale*/)
{
    BenchRows rows;
    rows.figures = {row("load the DLL, with its system libraries", "us", &LoadCost::firstMicroseconds),
                    row("load the DLL, these being there", "us", &LoadCost::laterMicroseconds),
                    row("load the DLL, private memory", "KiB", &LoadCost::firstKibibytes)};
    return rows;
}

#include <windows.h>

#include <string>

#include "Bench.h"

namespace {
std::wstring besideProgram(const wchar_t* name)
{
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    const std::wstring path = program;
    return path.substr(0, path.find_last_of(L'\\') + 1) + name;
}

std::function<void()> loadAndFree(const std::wstring& path, long count)
{
    return [=] {
        for (long i = 0; i < count; ++i) {
            const HMODULE module = LoadLibraryW(path.c_str());
            require(module != nullptr, "the DLL cannot be loaded");
            FreeLibrary(module);
        }
    };
}

/// What the loaded DLL adds to the memory that is this process's alone, in KiB.
std::function<double()> privateKilobytes(const std::wstring& path)
{
    return [=] {
        const auto before = static_cast<double>(privateBytes());
        const HMODULE module = LoadLibraryW(path.c_str());
        require(module != nullptr, "the DLL cannot be loaded");
        const auto after = static_cast<double>(privateBytes());
        FreeLibrary(module);
        return (after - before) / 1024;
    };
}
} // namespace

BenchRows loadRows(BenchScale scale)
{
    const long count = scale(100);
    const std::wstring ours = besideProgram(L"sysmaint.dll");
    const std::wstring empty = besideProgram(L"empty.dll");
    const char* peer = "a DLL with an empty body";
    BenchRows rows;
    rows.figures = {{"memory of the loaded DLL, private", peer, "KiB", 0, privateKilobytes(ours),
                     privateKilobytes(empty)}};
    rows.timed = {{"load the DLL", peer, 0, static_cast<double>(count), loadAndFree(ours, count),
                   loadAndFree(empty, count)}};
    return rows;
}

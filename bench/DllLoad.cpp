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

long privateKilobytes(const std::wstring& path)
{
    const unsigned long long before = privateBytes();
    const HMODULE module = LoadLibraryW(path.c_str());
    const unsigned long long after = privateBytes();
    FreeLibrary(module);
    return static_cast<long>((static_cast<long long>(after) - static_cast<long long>(before)) / 1024);
}
} // namespace

std::vector<BenchRow> loadRows(BenchScale scale)
{
    const long count = scale(100);
    const std::wstring ours = besideProgram(L"sysmaint.dll");
    const std::wstring empty = besideProgram(L"empty.dll");
    const std::string name = "load the DLL (" + std::to_string(privateKilobytes(ours)) + " KiB private)";
    const std::string peer = "a DLL with an empty body (" + std::to_string(privateKilobytes(empty)) + " KiB)";
    return {{name, peer, 0, static_cast<double>(count), loadAndFree(ours, count), loadAndFree(empty, count)}};
}

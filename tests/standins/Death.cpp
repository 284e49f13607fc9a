// Loaded by a copy of the boot-time program in the place of ntdll.dll, to which it gives everything on. Ends
// the process, as the power fails, before the call whose number the environment names in SYSMAINT_DEATH_AT.
// Of calls that change nothing none is counted: what is on the disk is the same before and after them.

#include <array>
#include <cstdlib>
#include <memory>
#include <utility>

#include "support/ImportReplacement.h"

namespace {
constexpr std::array<const char*, 7> kCounted = {"NtClose",    "NtCreateFile",         "NtFlushBuffersFile",
                                                 "NtFlushKey", "NtSetInformationFile", "NtSetValueKey",
                                                 "NtWriteFile"};
constexpr UINT kDead = 99;

using Any = LONG_PTR; // so many arguments can be given on, whatever they are
using Call = Any(NTAPI*)(Any, Any, Any, Any, Any, Any, Any, Any, Any, Any, Any);
std::array<std::atomic<void*>, kCounted.size()> originals;
long left = 0;

template <std::size_t I>
Any NTAPI counted(Any a, Any b, Any c, Any d, Any e, Any f, Any g, Any h, Any i, Any j, Any k)
{
    if (--left == 0)
        TerminateProcess(GetCurrentProcess(), kDead);
    return reinterpret_cast<Call>(originals[I].load())(a, b, c, d, e, f, g, h, i, j, k);
}

template <std::size_t... I>
void replaceAll(std::index_sequence<I...>)
{
    // For as long as the process lives, which nothing destroys.
    static auto* const replacements = new std::array<std::unique_ptr<ImportReplacement>, kCounted.size()>{
        std::make_unique<ImportReplacement>(GetModuleHandleW(nullptr), kCounted[I],
                                            reinterpret_cast<void*>(&counted<I>), &originals[I])...};
    static_cast<void>(replacements);
}
} // namespace

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void*)
{
    char text[16] = "";
    GetEnvironmentVariableA("SYSMAINT_DEATH_AT", text, sizeof text);
    left = std::strtol(text, nullptr, 10);
    if (reason == DLL_PROCESS_ATTACH)
        replaceAll(std::make_index_sequence<kCounted.size()>());
    return TRUE;
}

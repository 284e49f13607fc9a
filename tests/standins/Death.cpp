// Loaded by a copy of the boot-time program instead of ntdll.dll, to which it forwards everything. Ends the
// process, like a power failure, before the call whose number is in the environment variable
// SYSMAINT_DEATH_AT. Calls that change nothing are not counted: the disk is the same before and after them.

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

using Any = LONG_PTR; // enough to forward any arguments
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
    // Never destroyed while the process lives.
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

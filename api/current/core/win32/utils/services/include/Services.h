#pragma once

#include <windows.h>

#include <string>
#include <tuple>

#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "win32/services/include/ServiceRecord.h"

/// What the exported service functions do; see api.h. They raise bare codes.
namespace services {
[[nodiscard]] RecordList<ServiceRecord> enumerate(unsigned long kinds, unsigned long states);
/// Start type, program, account, dependencies.
[[nodiscard]] std::tuple<unsigned long, std::wstring, std::wstring, std::wstring> config(const wchar_t* name);
[[nodiscard]] unsigned long state(const wchar_t* name);
void start(const wchar_t* name, unsigned long timeout, HANDLE cancelEvent);
void stop(const wchar_t* name, bool withDependents, unsigned long timeout, HANDLE cancelEvent);
void setStartType(const wchar_t* name, unsigned long type);
void remove(const wchar_t* name);
[[nodiscard]] bool exists(const wchar_t* name);
[[nodiscard]] std::wstring description(const wchar_t* name);
} // namespace services

struct ServiceHandleTraits
{
    using Value = SC_HANDLE;
    static bool isValid(SC_HANDLE handle) noexcept { return handle != nullptr; }
    static void close(SC_HANDLE handle) noexcept { CloseServiceHandle(handle); }
};

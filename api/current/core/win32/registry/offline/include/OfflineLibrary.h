#pragma once

#include <windows.h>

#include <optional>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"

namespace offline {
/// The system's offreg.dll, loaded from the system folder alone. There is neither a header nor an import
/// library for it in every development kit, so what is used of it is declared here, as its documentation has
/// it.
class OfflineLibrary
{
public:
    /// A key, or the root key of a hive that is open.
    using Handle = void*;

    /// Nothing where the library, or one of the functions, is not there.
    [[nodiscard]] static std::optional<OfflineLibrary> load();

    DWORD(WINAPI* openHive)(PCWSTR path, Handle* hive) = nullptr;
    DWORD(WINAPI* saveHive)(Handle hive, PCWSTR path, DWORD osMajor, DWORD osMinor) = nullptr;
    DWORD(WINAPI* closeHive)(Handle hive) = nullptr;

    /// Which hives are written: those of the latest version that saveHive knows by its documentation.
    static constexpr DWORD kOsMajor = 6;
    static constexpr DWORD kOsMinor = 1;

private:
    explicit OfflineLibrary(SystemLibrary&& library);

    SystemLibrary m_library;
};
} // namespace offline

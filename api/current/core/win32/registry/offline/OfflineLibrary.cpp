#include "core/win32/registry/offline/include/OfflineLibrary.h"

#include "core/win32/registry/offline/include/OfflineFile.h"

namespace offline {
std::optional<OfflineLibrary> OfflineLibrary::load()
{
    try {
        return require();
    } catch (long) {
        return std::nullopt;
    }
}

OfflineLibrary::OfflineLibrary(SystemLibrary&& library) : m_library(std::move(library))
{
    const auto find = [this](auto& function, const char* name) {
        function = m_library.function<std::remove_reference_t<decltype(function)>>(name);
    };
    find(openHive, "OROpenHive");
    find(saveHive, "ORSaveHive");
    find(closeHive, "ORCloseHive");
    find(createHive, "ORCreateHive");
    find(openKey, "OROpenKey");
    find(createKey, "ORCreateKey");
    find(closeKey, "ORCloseKey");
    find(deleteKey, "ORDeleteKey");
    find(enumKey, "OREnumKey");
    find(queryInfoKey, "ORQueryInfoKey");
    find(getValue, "ORGetValue");
    find(setValue, "ORSetValue");
    find(deleteValue, "ORDeleteValue");
    find(enumValue, "OREnumValue");
}

void OfflineLibrary::saveNew(Handle hive, const wchar_t* path) const
{
    constexpr DWORD kOsMajor = 6; // the latest that the call supports by its documentation
    constexpr DWORD kOsMinor = 1;
    const DWORD code = saveHive(hive, path, kOsMajor, kOsMinor);
    if (code == ERROR_ALREADY_EXISTS || code == ERROR_FILE_EXISTS)
        raiseCode(DWORD{ERROR_ALREADY_EXISTS}); // the file is not ours
    try {
        requireSuccess(static_cast<long>(code));
        flushFile(path);
    } catch (...) {
        DeleteFileW(path);
        throw;
    }
}
} // namespace offline

#include "core/win32/registry/offline/include/OfflineLibrary.h"

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
} // namespace offline

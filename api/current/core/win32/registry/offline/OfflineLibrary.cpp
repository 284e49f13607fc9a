#include "core/win32/registry/offline/include/OfflineLibrary.h"

namespace offline {
std::optional<OfflineLibrary> OfflineLibrary::load()
{
    try {
        return OfflineLibrary(SystemLibrary(L"offreg.dll"));
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
}
} // namespace offline

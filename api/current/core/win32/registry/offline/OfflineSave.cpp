#include "core/win32/registry/offline/include/OfflineSave.h"

#include "core/win32/registry/offline/include/OfflineFile.h"
#include "core/win32/registry/offline/include/OfflineLibrary.h"
#include "core/win32/utils/paths/include/Win32Path.h"

namespace offline {
namespace {
class OpenHive
{
public:
    OpenHive(const OfflineLibrary& library, const wchar_t* path) : m_library(library)
    {
        requireSuccess(static_cast<long>(m_library.openHive(path, &m_hive)));
    }
    OpenHive(const OpenHive&) = delete;
    OpenHive& operator=(const OpenHive&) = delete;
    ~OpenHive() { m_library.closeHive(m_hive); }

    [[nodiscard]] OfflineLibrary::Handle get() const noexcept { return m_hive; }

private:
    const OfflineLibrary& m_library;
    OfflineLibrary::Handle m_hive = nullptr;
};

void saveByLibrary(const OfflineLibrary& library, const wchar_t* source, const wchar_t* destination)
{
    const OpenHive hive(library, source);
    // The library does not overwrite files.
    if (!DeleteFileW(destination) && GetLastError() != ERROR_FILE_NOT_FOUND)
        raiseLastError();
    library.saveNew(hive.get(), destination);
}
} // namespace

void saveCompact(const wchar_t* sourceFile, const wchar_t* destinationFile)
{
    if (const auto library = OfflineLibrary::load(); library.has_value()) {
        const Win32Path source(sourceFile);
        const Win32Path destination(destinationFile);
        saveByLibrary(*library, source, destination);
        return;
    }
    writeFile(destinationFile, Hive::parse(readFile(sourceFile)).compact());
}

std::tuple<RecordList<HiveLoss>, std::size_t> salvageFile(const wchar_t* damagedFile, const wchar_t* newFile)
{
    constexpr std::size_t kMostRecords = 10000; // a hostile file can have one for every few bytes
    constexpr std::size_t kLongestPath = 1000;
    std::vector<Loss> losses;
    const Hive hive = Hive::salvage(readFile(damagedFile), losses);
    RecordList<HiveLoss> records;
    for (const Loss& loss : losses) {
        if (records.count() == kMostRecords)
            break;
        const std::wstring path = wideOf(hive.path(loss.key)).substr(0, kLongestPath);
        records.add({static_cast<unsigned long>(loss.kind), loss.offset, nullptr}, {{&HiveLoss::key, path}});
    }
    createFile(newFile, [&](const wchar_t* name) { writeNew(name, hive.compact()); });
    return {std::move(records), losses.size()};
}
} // namespace offline

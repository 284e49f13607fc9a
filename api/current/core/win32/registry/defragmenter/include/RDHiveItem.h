#pragma once

#include <windows.h>

#include "core/win32/registry/defragmenter/include/CollectedResults.h"
#include "core/win32/registry/defragmenter/include/DriveLetters.h"
#include "core/win32/registry/defragmenter/include/HiveList.h"

/// One loaded hive to be measured, with the list for its result.
class RDHiveItem
{
public:
    /// The references must outlive the item.
    RDHiveItem(LoadedHive&& hive, const DriveLetters& drives, CollectedResults& results) noexcept
        : m_hive(std::move(hive)), m_drives(drives), m_results(results)
    {
    }

    /// Copies the hive's file, saves the copy compactly, and adds the sizes of both to the results. No file
    /// is left. Raises an Exception, with 1223 when `stopEvent` is signalled; the result may have been added
    /// even if one of the files could not be deleted.
    void analyze(HANDLE stopEvent);
    /// Deletes the temporary files of analyses whose process ended before they did.
    static void deleteLeftovers() noexcept;
    /// Adds the failure to the results. Raises std::bad_alloc.
    void addFailure(std::uint32_t code, const wchar_t* report);

private:
    LoadedHive m_hive; // with the drive path once that is known
    const DriveLetters& m_drives;
    CollectedResults& m_results;
};

#pragma once

#include <windows.h>

#include "core/win32/registry/defragmenter/include/CollectedResults.h"
#include "core/win32/registry/defragmenter/include/DriveLetters.h"
#include "core/win32/registry/defragmenter/include/HiveList.h"

/// One loaded hive that is to be measured, with the list that its result goes to.
class RDHiveItem
{
public:
    /// What is referred to must outlive the item.
    RDHiveItem(LoadedHive&& hive, const DriveLetters& drives, CollectedResults& results) noexcept
        : m_hive(std::move(hive)), m_drives(drives), m_results(results)
    {
    }

    /// Copies the hive's file, saves the copy compactly, and adds the sizes of both to the results. No file
    /// is left. Raises an Exception, with 1223 when `stopEvent` is signalled; the result may be there
    /// although one of the files could not be deleted.
    void analyze(HANDLE stopEvent);
    /// Adds why it failed to the results. Raises std::bad_alloc.
    void addFailure(std::uint32_t code, const wchar_t* report);

private:
    LoadedHive m_hive; // with the path from its drive's root once that is known
    const DriveLetters& m_drives;
    CollectedResults& m_results;
};

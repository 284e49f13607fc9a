#pragma once

#include "core/win32/utils/objectmanager/include/Export.h"

/// How settings are opened.
enum SettingsHiveFlag SYSMAINT_UNSIGNED_LONG
{
    kSettingsMustExist = 1, ///< a missing file is an error (2 or 3) instead of empty settings
    kSettingsReadOnly = 2   ///< nothing can be changed or saved
};

/// The bits of SettingsHiveGetState.
enum SettingsHiveState SYSMAINT_UNSIGNED_LONG
{
    kSettingsNew = 1, ///< there was no file; cleared by the first save
    kSettingsDamaged =
        2, ///< the file was damaged, and the settings are what could be read of it; cleared by a save
    kSettingsChanged = 4, ///< something was changed since the last save
    kSettingsUnclosed = 8 ///< the file was not closed by who wrote it: what is only in its logs is missing;
                          ///< cleared by a save
};

#pragma once

/// How settings are opened.
enum SettingsHiveFlag : unsigned long
{
    kSettingsMustExist = 1, ///< a missing file is an error (2 or 3) instead of empty settings
    kSettingsReadOnly = 2   ///< nothing can be changed or saved
};

/// The bits of SettingsHiveGetState.
enum SettingsHiveState : unsigned long
{
    kSettingsNew = 1, ///< there was no file; cleared by the first save
    kSettingsDamaged =
        2, ///< the file was damaged, and the settings are what could be read of it; cleared by a save
    kSettingsChanged = 4, ///< something was changed since the last save
    kSettingsUnclosed = 8 ///< the file was not closed by who wrote it: what is only in its logs is missing;
                          ///< cleared by a save
};

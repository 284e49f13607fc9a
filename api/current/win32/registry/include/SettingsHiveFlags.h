#pragma once

/// How settings are opened.
enum SettingsHiveFlag : unsigned long
{
    kSettingsMustExist = 1, ///< a file that is not there is an error (2 or 3), and not empty settings
    kSettingsReadOnly = 2   ///< nothing can be changed or saved
};

/// What SettingsHiveGetState tells.
enum SettingsHiveState : unsigned long
{
    kSettingsNew = 1, ///< there was no file; goes with the first save
    kSettingsDamaged =
        2, ///< the file was damaged, and the settings are what could be read of it; goes with a save
    kSettingsChanged = 4 ///< something was changed since the last save
};

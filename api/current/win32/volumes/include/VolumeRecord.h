#pragma once

#include <stddef.h>

/// A drive letter, or a volume with neither letter nor folder.
struct VolumeRecord
{
    const wchar_t* root;       ///< with its closing backslash
    const wchar_t* label;      ///< empty when it has none
    const wchar_t* fileSystem; ///< "NTFS"; empty when it is not ready
    unsigned long type;        ///< DRIVE_FIXED and the like
    unsigned long serial;
    int isReady; ///< 0: no medium, or unreadable
};

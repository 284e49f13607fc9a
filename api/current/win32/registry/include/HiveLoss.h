#pragma once

/// What a salvage of a hive file had to leave out.
enum HiveLossKind : unsigned long
{
    kLostBaseBlock =
        0,            ///< the file's head is wrong; what it says was not used where something else could tell
    kLostBin = 1,     ///< a part of the file; what was in it and can be reached is told for itself
    kLostKey = 2,     ///< a sub-key with all that is below it
    kLostKeyList = 3, ///< sub-keys
    kLostValue = 4,   ///< a value
    kLostValueList = 5, ///< values
    kLostData = 6,      ///< a value, since its data is lost
    kLostClass = 7,     ///< the class name
    kLostSecurity = 8   ///< the security descriptor: the key has the one of the key above it
};

/// One place that was left out.
struct HiveLoss
{
    unsigned long kind;   ///< a HiveLossKind
    unsigned long offset; ///< in the file, where the wrong bytes are or should be; 0xFFFFFFFF: nowhere
    const wchar_t* key;   ///< the key it belongs to, below the root; empty for the root and the whole file
};

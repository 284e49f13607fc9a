#pragma once

/// Bits of the load and dump codes: which common parts of an object's state a stream holds before the
/// object's own fields.
enum StateCode : unsigned long
{
    kStateNone = 0,
    kStateType = 1, ///< the item's type code, 32 bits
    kStatePath = 8, ///< the item's path text
    kStateAll = kStateType | kStatePath
};

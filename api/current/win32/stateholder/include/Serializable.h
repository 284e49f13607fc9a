#pragma once

#include "win32/communication/include/ByteStream.h"

/// An object whose state can be written to a byte stream and read back from one.
///
/// Both operations return 0 or a Win32 code, or raise an Exception or a bare long. `code` selects parts of
/// the state for classes that know such bits (StateCodes.h); the others ignore it. An object whose load
/// failed keeps what it had read by then and should be discarded.
struct SerializableW
{
    virtual ~SerializableW() = default;
    virtual long load(unsigned long code, IInputByteStream& stream) = 0;
    virtual long dump(unsigned long code, IOutputByteStream& stream) const = 0;
};

/// The same for classes with narrow texts.
struct SerializableA
{
    virtual ~SerializableA() = default;
    virtual long load(unsigned long code, IInputByteStream& stream) = 0;
    virtual long dump(unsigned long code, IOutputByteStream& stream) const = 0;
};

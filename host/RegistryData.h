#pragma once

#include <string>
#include <vector>

#include "win32/registry/include/IRegistryKey.h"

/// A value's type and data as they were read together.
struct RegistryData
{
    unsigned long type = 0;
    std::vector<unsigned char> bytes;
};

/// Raises an Exception when the value is gone or cannot be read.
RegistryData readData(IRegistryValue& value);

/// "REG_SZ", or "type 77" of a type without a name.
std::wstring typeName(unsigned long type);

/// The data in one short line for the eye: text in part and without control characters, numbers as such,
/// anything else as the first of its bytes.
std::wstring shortData(const RegistryData& data);

/// The data as members of a JSON object, whole: "data" with a number, a text, a list of texts or a text of
/// hexadecimal digits. Of a text one closing zero is left out, of a list the zero behind each text and the
/// one behind all; where the bytes are anything but that, they are also there as "hex".
std::wstring jsonData(const RegistryData& data);

#pragma once

#include <string>
#include <vector>

#include "win32/registry/include/IRegistryKey.h"

/// A value's type and data, read together.
struct RegistryData
{
    unsigned long type = 0;
    std::vector<unsigned char> bytes;
};

/// Raises an Exception when the value is gone or cannot be read.
RegistryData readData(IRegistryValue& value);

/// "REG_SZ", or "type 77" for a type without a name.
std::wstring typeName(unsigned long type);

/// The data on one short line for people: the beginning of a text without control characters, a number, or
/// the first bytes of anything else.
std::wstring shortData(const RegistryData& data);

/// The complete data as members of a JSON object: "data" with a number, a text, a list of texts or a text of
/// hexadecimal digits. A text omits one closing zero, a list the zero after each text and the one at the end;
/// where the bytes differ from that, they are added as "hex".
std::wstring jsonData(const RegistryData& data);

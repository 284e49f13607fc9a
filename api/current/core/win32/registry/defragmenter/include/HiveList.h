#pragma once

#include <string>
#include <vector>

#include "win32/communication/include/ByteStream.h"

/// One hive that the system has loaded.
struct LoadedHive
{
    std::wstring mountName;
    std::wstring path; // of its file, in the system's form; empty when the value is not a text
};

/// The system's list of loaded hives, without those that have no file. Raises an Exception.
[[nodiscard]] std::vector<LoadedHive> readHiveList();
/// Writes the list with drive paths; see DumpHiveList. Raises an Exception or a bare code.
void dumpHiveList(IOutputByteStream& stream);

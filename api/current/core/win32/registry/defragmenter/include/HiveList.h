#pragma once

#include <string>
#include <vector>

#include "win32/communication/include/ByteStream.h"

/// One hive that the system has loaded.
struct LoadedHive
{
    std::wstring mountName;
    std::wstring path; // of its file, as the system names it; empty when what stands there is no text
};

/// The system's list of loaded hives, without those that have no file. Raises an Exception.
[[nodiscard]] std::vector<LoadedHive> readHiveList();
/// Writes it with the paths from the drives' roots; see DumpHiveList. Raises an Exception or a bare code.
void dumpHiveList(IOutputByteStream& stream);

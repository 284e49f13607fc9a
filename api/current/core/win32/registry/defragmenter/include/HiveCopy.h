#pragma once

#include <windows.h>

/// Copies a file that may be locked by reading its clusters from the volume, one by one. `source` is a path
/// from a drive's root. The destination is created or overwritten. It first gets the source's size; then
/// every cluster that the file system reports is written, so it ends with whole clusters.
///
/// Raises an Exception: 1223 when `stopEvent` is signalled, which is polled before every extent and every
/// cluster; 38 for a source without clusters, which is empty or small enough for the file table; 8; or the
/// code of the call that failed. An incomplete destination is left then.
void HiveCopy(const wchar_t* source, const wchar_t* destination, HANDLE stopEvent);

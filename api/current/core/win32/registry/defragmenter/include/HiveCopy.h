#pragma once

#include <windows.h>

/// Copies a file that may be locked by reading its clusters from the volume, one by one. `source` is a path
/// from a drive's root. The destination is made anew; it is given the source's size, and then every cluster
/// that the file system tells of is written: its size is that of whole clusters in the end.
///
/// Raises an Exception: 1223 when `stopEvent` is signalled, which is asked before every extent and every
/// cluster; 38 for a source without clusters, which is empty or small enough for the file table; 8; or the
/// code of the call that failed. The destination is left as it is then.
void HiveCopy(const wchar_t* source, const wchar_t* destination, HANDLE stopEvent);

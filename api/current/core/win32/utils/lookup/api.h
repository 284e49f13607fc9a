#pragma once

// The lookup client: plain.h has what C takes as well, and describes all of it.

#include <windows.h>

#include "core/win32/utils/lookup/plain.h"
#include "core/win32/utils/objectmanager/include/Api.h"

/// Adds a file. One that waits already, under whatever form of its path, is not added again, but gets the
/// higher priority of the two; paths that differ in case may name two files, so each of them counts. Files of
/// higher priority come first, the first added among equals; without one it is 0. What a relative path names
/// is settled now. Codes: 87 null or empty path, priority LONG_MIN; the system's for a path that names
/// nothing.
SYSMAINT_API long HVKAddPath(void* hvk, const wchar_t* path);
SYSMAINT_API long HVKAddPath(void* hvk, const wchar_t* path, long priority);

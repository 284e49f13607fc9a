#pragma once

#include "core/win32/utils/objectmanager/include/Api.h"
#include "core/win32/utils/paths/plain.h"
#include "win32/paths/include/IPathValidatorA.h"
#include "win32/paths/include/IPathValidatorW.h"

/// The process-wide folder-macro expander. Never fails; do not delete it.
SYSMAINT_API IPathValidatorW* DllGetPathValidatorW();
/// The same for UTF-8.
SYSMAINT_API IPathValidatorA* DllGetPathValidatorA();

#pragma once

#include "core/win32/utils/objectmanager/include/Api.h"
#include "win32/paths/include/IPathValidatorW.h"

/// The process-wide folder-macro expander. Never fails; not to be deleted.
SYSMAINT_API IPathValidatorW* DllGetPathValidatorW();

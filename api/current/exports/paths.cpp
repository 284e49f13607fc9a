// The exported functions of paths.

#include "core/win32/utils/paths/api.h"
#include "core/win32/utils/paths/include/PathValidatorW.h"

IPathValidatorW* DllGetPathValidatorW()
{
    return &PathValidatorW::getInstance();
}

#include "core/win32/utils/memory/api.h"
#include "core/win32/utils/memory/include/UtilityMemory.h"

void utilsFreeMemory(void* memory)
{
    utilitymemory::Free()(memory);
}

#include <windows.h>

#include "objecttables.h"

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved)
{
    switch (reason) {
    case DLL_PROCESS_ATTACH:
        DisableThreadLibraryCalls(module);
        break;
    case DLL_PROCESS_DETACH:
        if (reserved == nullptr) // FreeLibrary, not the end of the process
            destroyObjectTables();
        break;
    default:
        break;
    }
    return TRUE;
}

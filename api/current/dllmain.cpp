#include <windows.h>

#include "objecttables.h"

// The calls for the begin and the end of threads stay on: the runtime that is linked in frees by them what it
// keeps for each thread.
BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_DETACH && reserved == nullptr) // FreeLibrary, not the end of the process
        destroyObjectTables();
    return TRUE;
}

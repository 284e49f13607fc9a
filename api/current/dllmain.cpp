#include <windows.h>

#include "core/win32/utils/communication/include/ObjectRequestServer.h"
#include "core/win32/utils/objectmanager/include/ObjectTable.h"

// The calls for the begin and the end of threads stay on: the runtime that is linked in frees by them what it
// keeps for each thread.
BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_DETACH && reserved == nullptr) { // FreeLibrary, not the end of the process
        // While all tables are there: a topic's handle is given back to the table of topics.
        ObjectRequestServer::getInstance().stopAll();
        AnyObjectTable::destroyAll();
    }
    return TRUE;
}

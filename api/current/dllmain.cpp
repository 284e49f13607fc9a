#include <windows.h>

#include "ExceptionReserve.h"
#include "core/win32/utils/communication/include/ObjectRequestServer.h"
#include "core/win32/utils/objectmanager/include/ObjectTable.h"

// Thread notifications stay enabled: the linked runtime uses them to free its per-thread data.
BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_ATTACH)
        exceptionreserve::prepare();
    if (reason == DLL_PROCESS_DETACH && reserved == nullptr) { // FreeLibrary, not the end of the process
        // While all tables exist: a topic's handle is returned to the table of topics.
        ObjectRequestServer::getInstance().stopAll();
        AnyObjectTable::destroyAll();
    }
    return TRUE;
}

#include <windows.h>

#include "core/win32/utils/communication/include/ObjectRequestServer.h"
#include "core/win32/utils/objectmanager/include/ObjectTable.h"

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved)
{
    switch (reason) {
    case DLL_PROCESS_ATTACH:
        DisableThreadLibraryCalls(module);
        break;
    case DLL_PROCESS_DETACH:
        if (reserved == nullptr) { // FreeLibrary, not the end of the process
            // While all tables are there: a topic's handle is given back to the table of topics.
            ObjectRequestServer::getInstance().stopAll();
            AnyObjectTable::destroyAll();
        }
        break;
    default:
        break;
    }
    return TRUE;
}

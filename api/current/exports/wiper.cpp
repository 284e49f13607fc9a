// The exported functions of wiping and of the boot-time lists.

#include "core/win32/utils/wiper/include/Wiper.h"
#include "core/win32/utils/wiper/api.h"
#include "core/win32/utils/wiper/include/BootExecute.h"
#include "core/win32/utils/wiper/include/FileTable.h"
#include "core/win32/utils/wiper/include/ForceDelete.h"
#include "exports/Frames.h"

using boundary::resultFrame;
using boundary::statusFrame;

IWiper* DllGetWiper()
{
    return frames::makeObject<IWiper, Wiper>();
}

long WipeFileTable(const wchar_t* volume, WipeCallback callback, WipeProgress* progress, HANDLE cancelEvent)
{
    return statusFrame([&] { return filetable::wipe(volume, callback, progress, cancelEvent); });
}

int ForceDeleteIsScheduled(const wchar_t* path)
{
    return resultFrame(0, [&] {
        if (path == nullptr)
            raiseCode(ERROR_INVALID_PARAMETER);
        const int found = forcedelete::isScheduled(path) ? 1 : 0;
        SetLastError(ERROR_SUCCESS);
        return found;
    });
}

long AddBootExecute(const wchar_t* entry)
{
    return statusFrame([&] { return bootexecute::add(entry); });
}

long RemoveBootExecute(const wchar_t* entry)
{
    return statusFrame([&] { return bootexecute::remove(entry); });
}

int BootExecuteIsScheduled(const wchar_t* entry)
{
    return resultFrame(0, [&] { return bootexecute::isScheduled(entry) ? 1 : 0; });
}

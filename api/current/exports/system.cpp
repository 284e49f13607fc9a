#include "core/win32/utils/system/include/System.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/system/api.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long WaitEvent(void* event, void* extra, unsigned long timeout)
{
    return utilityFrame(
        outputs(),
        [](void* first, void* second, unsigned long most) {
            if (const long code = waitForEvent(first, most, second); code != ERROR_SUCCESS)
                raiseCode(code);
        },
        event, optional(extra), timeout);
}

long EnvironmentExpand(const wchar_t* text, unsigned long session, wchar_t** expanded)
{
    return utilityFrame(outputs(expanded), environment::expand, text, session);
}

long EnvironmentGet(const wchar_t* name, wchar_t** text)
{
    return utilityFrame(outputs(text), environment::get, name);
}

long EnvironmentSetPersistent(const wchar_t* name, const wchar_t* text, int forMachine)
{
    return utilityFrame(outputs(), environment::setPersistent, name, text, forMachine);
}

long SystemIsOnBattery(int* isOnBattery)
{
    return utilityFrame(outputs(isOnBattery), systemstate::isOnBattery);
}

long SystemIsSafeMode(int* isSafeMode)
{
    return utilityFrame(outputs(isSafeMode), systemstate::isSafeMode);
}

long SystemGetIdleTime(unsigned long long* milliseconds)
{
    return utilityFrame(outputs(milliseconds), systemstate::idleTime);
}

long SystemRestart(unsigned long kind, unsigned long seconds)
{
    return utilityFrame(outputs(), systemstate::restart, kind, seconds);
}

#include "core/win32/utils/services/include/Services.h"
#include "core/win32/utils/services/api.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long ServiceEnumerate(unsigned long kinds, unsigned long states, struct ServiceRecord** records,
                      size_t* count)
{
    return utilityFrame(outputs(counted(records, count)), services::enumerate, kinds, states);
}

long ServiceGetConfig(const wchar_t* name, unsigned long* startType, wchar_t** program, wchar_t** account,
                      wchar_t** dependencies)
{
    return utilityFrame(outputs(startType, program, account, dependencies), services::config, name);
}

long ServiceGetState(const wchar_t* name, unsigned long* state)
{
    return utilityFrame(outputs(state), services::state, name);
}

long ServiceStart(const wchar_t* name, unsigned long timeout, void* cancelEvent)
{
    return utilityFrame(outputs(), services::start, name, timeout, optional(cancelEvent));
}

long ServiceStop(const wchar_t* name, int withDependents, unsigned long timeout, void* cancelEvent)
{
    return utilityFrame(outputs(), services::stop, name, withDependents, timeout, optional(cancelEvent));
}

long ServiceSetStartType(const wchar_t* name, unsigned long type)
{
    return utilityFrame(outputs(), services::setStartType, name, type);
}

long ServiceDelete(const wchar_t* name)
{
    return utilityFrame(outputs(), services::remove, name);
}

long ServiceExists(const wchar_t* name, int* exists)
{
    return utilityFrame(outputs(exists), services::exists, name);
}

long ServiceGetDescription(const wchar_t* name, wchar_t** text)
{
    return utilityFrame(outputs(text), services::description, name);
}

#include "core/win32/utils/processes/include/Processes.h"
#include "core/win32/utils/processes/api.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long ProcessGetPath(unsigned long id, wchar_t** path)
{
    return utilityFrame(outputs(path), processes::path, id);
}

long ProcessGetCommandLine(unsigned long id, wchar_t** commandLine)
{
    return utilityFrame(outputs(commandLine), processes::commandLine, id);
}

long ProcessGetStartTime(unsigned long id, unsigned long long* time)
{
    return utilityFrame(outputs(time), processes::startTime, id);
}

long ProcessGetParent(unsigned long id, unsigned long* parent)
{
    return utilityFrame(outputs(parent), processes::parent, id);
}

long ProcessTerminateTree(unsigned long id, unsigned long timeout)
{
    return utilityFrame(outputs(), processes::terminateTree, id, timeout);
}

long ProcessRunAndWait(const wchar_t* program, const wchar_t* arguments, unsigned long timeout,
                       void* cancelEvent, unsigned long* exitCode)
{
    return utilityFrame(outputs(exitCode), processes::runAndWait, program, optionalText(arguments), timeout,
                        optional(cancelEvent));
}

long ProcessIs32Bit(unsigned long id, int* is32Bit)
{
    return utilityFrame(outputs(is32Bit), processes::is32Bit, id);
}

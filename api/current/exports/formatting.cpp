#include "core/win32/utils/formatting/include/Formatting.h"
#include "core/win32/utils/formatting/api.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long FormatByteSize(unsigned long long bytes, unsigned int decimals, wchar_t** text)
{
    return utilityFrame(outputs(text), formatting::byteSize, bytes, decimals);
}

long FormatCount(unsigned long long number, wchar_t** text)
{
    return utilityFrame(outputs(text), formatting::count, number);
}

long FormatDuration(unsigned long long milliseconds, wchar_t** text)
{
    return utilityFrame(outputs(text), formatting::duration, milliseconds);
}

long FormatPercent(unsigned long long part, unsigned long long whole, wchar_t** text)
{
    return utilityFrame(outputs(text), formatting::percent, part, whole);
}

long FormatDateTime(unsigned long long time, int longForm, wchar_t** text)
{
    return utilityFrame(outputs(text), formatting::dateTime, time, longForm);
}

long FormatSystemError(unsigned long code, wchar_t** text)
{
    return utilityFrame(outputs(text), formatting::systemError, code);
}

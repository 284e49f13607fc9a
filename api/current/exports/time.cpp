#include "core/win32/utils/time/include/Time.h"
#include "core/win32/utils/time/api.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long TimeFromUnix(long long seconds, unsigned long long* time)
{
    return utilityFrame(outputs(time), timetext::fromUnix, seconds);
}

long TimeToUnix(unsigned long long time, long long* seconds)
{
    return utilityFrame(outputs(seconds), timetext::toUnix, time);
}

long TimeToText(unsigned long long time, wchar_t** text)
{
    return utilityFrame(outputs(text), timetext::toText, time);
}

long TimeFromText(const wchar_t* text, unsigned long long* time)
{
    return utilityFrame(outputs(time), timetext::fromText, text);
}

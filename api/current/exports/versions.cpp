#include "core/win32/utils/versions/include/Versions.h"
#include "core/win32/utils/versions/api.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long VersionGetFileVersion(const wchar_t* path, unsigned long long* version, wchar_t** text)
{
    return utilityFrame(outputs(version, text), versions::ofFile, path);
}

long VersionGetString(const wchar_t* path, const wchar_t* name, wchar_t** text)
{
    return utilityFrame(outputs(text), versions::fileString, path, name);
}

long VersionCompare(const wchar_t* first, const wchar_t* second, int* order)
{
    return utilityFrame(outputs(order), versions::compare, first, second);
}

long SystemGetVersion(unsigned long* major, unsigned long* minor, unsigned long* build, int* isServer)
{
    return utilityFrame(outputs(major, minor, build, isServer), versions::ofSystem);
}

#include "core/win32/utils/volumes/include/Volumes.h"
#include "core/win32/utils/volumes/api.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long VolumeEnumerate(struct VolumeRecord** records, size_t* count)
{
    return utilityFrame(outputs(counted(records, count)), volumes::enumerate);
}

long VolumeGetClusterSize(const wchar_t* root, unsigned long* bytes)
{
    return utilityFrame(outputs(bytes), volumes::clusterSize, root);
}

long VolumeIsSolidState(const wchar_t* root, int* isSolidState)
{
    return utilityFrame(outputs(isSolidState), volumes::isSolidState, root);
}

long VolumeGetLetters(const wchar_t* volume, wchar_t** mountPoints, size_t* count)
{
    return utilityFrame(outputs(mountPoints, count), volumes::letters, volume);
}

long VolumeFlush(const wchar_t* root)
{
    return utilityFrame(outputs(), volumes::flush, root);
}

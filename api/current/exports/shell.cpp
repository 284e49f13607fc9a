#include "core/win32/utils/shell/include/Shell.h"
#include "core/win32/utils/shell/api.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long ShellGetFolder(int folder, unsigned long session, wchar_t** path)
{
    return utilityFrame(outputs(path), shell::folder, folder, session);
}

long ShellCreateShortcut(const wchar_t* link, const wchar_t* target, const wchar_t* arguments,
                         const wchar_t* icon, int iconIndex)
{
    return utilityFrame(outputs(), shell::createShortcut, link, target, optionalText(arguments),
                        optionalText(icon), iconIndex);
}

long ShellReadShortcut(const wchar_t* link, wchar_t** target, wchar_t** arguments, wchar_t** folder)
{
    return utilityFrame(outputs(target, arguments, folder), shell::readShortcut, link);
}

long ShellShortcutIsBroken(const wchar_t* link, int* isBroken)
{
    return utilityFrame(outputs(isBroken), shell::isShortcutBroken, link);
}

long RecycleBinQuery(const wchar_t* drive, unsigned long long* bytes, unsigned long long* items)
{
    return utilityFrame(outputs(bytes, items), shell::queryBin, optionalText(drive));
}

long RecycleBinEmpty(const wchar_t* drive, void* cancelEvent)
{
    return utilityFrame(outputs(), shell::emptyBin, optionalText(drive), optional(cancelEvent));
}

long ShellGetTypeName(const wchar_t* path, wchar_t** name)
{
    return utilityFrame(outputs(name), shell::typeName, path);
}

long ShellOpenFolder(const wchar_t* folder, const wchar_t* item)
{
    return utilityFrame(outputs(), shell::openFolder, folder, optionalText(item));
}

long IconExtract(const wchar_t* file, int index, int size, void** icon)
{
    return utilityFrame(outputs(icon), icons::extract, file, index, size);
}

long IconCount(const wchar_t* file, unsigned long* count)
{
    return utilityFrame(outputs(count), icons::count, file);
}

long IconForPath(const wchar_t* path, int large, void** icon)
{
    return utilityFrame(outputs(icon), icons::ofPath, path, large);
}

long IconToBitmapFile(void* icon, const wchar_t* file)
{
    return utilityFrame(outputs(), icons::toBitmapFile, icon, file);
}

long IconDestroy(void* icon)
{
    return utilityFrame(outputs(), icons::destroy, icon);
}

long SignatureVerifyFile(const wchar_t* path, long* verdict, wchar_t** signer)
{
    return utilityFrame(outputs(verdict, signer), signatures::verifyFile, path);
}

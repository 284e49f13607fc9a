#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/paths/api.h"
#include "core/win32/utils/paths/include/PathValidatorA.h"
#include "core/win32/utils/paths/include/PathValidatorW.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

IPathValidatorW* DllGetPathValidatorW()
{
    return &PathValidatorW::getInstance();
}

IPathValidatorA* DllGetPathValidatorA()
{
    return &PathValidatorA::getInstance();
}

long PathCombinePartsW(const wchar_t* folder, const wchar_t* name, int strict, wchar_t** path)
{
    return utilityFrame(outputs(path), paths::combineParts, folder, name, strict);
}

long PathCombinePartsA(const char* folder, const char* name, int strict, char** path)
{
    return utilityFrame(outputs(path), paths::combineParts, folder, name, strict);
}

long PathNormalizeW(const wchar_t* path, wchar_t** result)
{
    return utilityFrame(outputs(result), paths::normalize, path);
}

long PathNormalizeA(const char* path, char** result)
{
    return utilityFrame(outputs(result), paths::normalize, path);
}

long PathToLongFormW(const wchar_t* path, wchar_t** result)
{
    return utilityFrame(outputs(result), paths::toLongForm, path);
}

long PathToLongFormA(const char* path, char** result)
{
    return utilityFrame(outputs(result), paths::toLongForm, path);
}

long PathToExtendedFormW(const wchar_t* path, wchar_t** result)
{
    return utilityFrame(outputs(result), paths::toExtendedForm, path);
}

long PathToExtendedFormA(const char* path, char** result)
{
    return utilityFrame(outputs(result), paths::toExtendedForm, path);
}

long PathFileNameW(const wchar_t* path, const wchar_t** fileName)
{
    return utilityFrame(outputs(fileName), paths::fileName<wchar_t>, asItIs(path));
}

long PathFileNameA(const char* path, const char** fileName)
{
    return utilityFrame(outputs(fileName), paths::fileName<char>, asItIs(path));
}

long PathExtensionW(const wchar_t* path, const wchar_t** extension)
{
    return utilityFrame(outputs(extension), paths::extension<wchar_t>, asItIs(path));
}

long PathExtensionA(const char* path, const char** extension)
{
    return utilityFrame(outputs(extension), paths::extension<char>, asItIs(path));
}

long PathParentW(const wchar_t* path, wchar_t** folder)
{
    return utilityFrame(outputs(folder), paths::parent, path);
}

long PathParentA(const char* path, char** folder)
{
    return utilityFrame(outputs(folder), paths::parent, path);
}

long PathIsInsideW(const wchar_t* path, const wchar_t* folder, int* inside)
{
    return utilityFrame(outputs(inside), paths::isInside, path, folder);
}

long PathIsInsideA(const char* path, const char* folder, int* inside)
{
    return utilityFrame(outputs(inside), paths::isInside, path, folder);
}

long PathFromNative(const wchar_t* native, wchar_t** path)
{
    return utilityFrame(outputs(path), paths::fromNative, native);
}

long PathToNative(const wchar_t* path, wchar_t** native)
{
    return utilityFrame(outputs(native), paths::toNative, path);
}

long PathExtractFromCommand(const wchar_t* command, wchar_t** program, wchar_t** arguments)
{
    return utilityFrame(outputs(program, arguments), paths::extractFromCommand, command);
}

long PathCompactForDisplay(const wchar_t* path, size_t characters, wchar_t** text)
{
    return utilityFrame(outputs(text), paths::compactForDisplay, path, characters);
}

long PathIsReparsePoint(const wchar_t* path, int* is, unsigned long* tag)
{
    return utilityFrame(outputs(is, tag), paths::isReparsePoint, path);
}

long PathReadLinkTarget(const wchar_t* path, wchar_t** target)
{
    return utilityFrame(outputs(target), paths::readLinkTarget, path);
}

long PathIsProtected(const wchar_t* path, int* isProtected)
{
    return utilityFrame(outputs(isProtected), paths::isProtected, path);
}

long PathMakeUnique(const wchar_t* folder, const wchar_t* stem, const wchar_t* extension, wchar_t** path)
{
    return utilityFrame(outputs(path), paths::makeUnique, folder, stem, extension);
}

long PathIsValidFileName(const wchar_t* name, int* valid)
{
    return utilityFrame(outputs(valid), paths::isValidFileName, name);
}

#include "core/win32/utils/files/include/Files.h"
#include "core/win32/utils/files/api.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

long FileGetSizes(const wchar_t* path, unsigned long long* size, unsigned long long* allocated)
{
    return utilityFrame(outputs(size, allocated), files::sizes, path);
}

long FileGetTimes(const wchar_t* path, unsigned long long* created, unsigned long long* accessed,
                  unsigned long long* written)
{
    return utilityFrame(outputs(created, accessed, written), files::times, path);
}

long FileSetTimes(const wchar_t* path, const unsigned long long* created, const unsigned long long* accessed,
                  const unsigned long long* written)
{
    return utilityFrame(outputs(), files::setTimes, path, optional(created), optional(accessed),
                        optional(written));
}

long FileGetIdentity(const wchar_t* path, unsigned long* volumeSerial, unsigned long long* fileId,
                     unsigned long* links)
{
    return utilityFrame(outputs(volumeSerial, fileId, links), files::identity, path);
}

long FileReadAll(const wchar_t* path, unsigned long long limit, unsigned char** bytes, size_t* size)
{
    return utilityFrame(outputs(counted(bytes, size)), files::readAll, path, limit);
}

long FileWriteAtomically(const wchar_t* path, const void* bytes, size_t size)
{
    return utilityFrame(outputs(), files::writeAtomically, path, Bytes{bytes, size});
}

long FileClearReadOnly(const wchar_t* path, unsigned long* oldAttributes)
{
    return utilityFrame(outputs(oldAttributes), files::clearReadOnly, path);
}

long FileDeleteForced(const wchar_t* path, int* waits)
{
    return utilityFrame(outputs(waits), files::deleteForced, path);
}

long FileIsInUse(const wchar_t* path, int* inUse)
{
    return utilityFrame(outputs(inUse), files::isInUse, path);
}

long FileGetLockers(const wchar_t* path, unsigned long** processIds, size_t* count)
{
    return utilityFrame(outputs(counted(processIds, count)), files::lockers, path);
}

long FileMoveToRecycleBin(const wchar_t* path)
{
    return utilityFrame(outputs(), files::moveToRecycleBin, path);
}

long FolderCreateTree(const wchar_t* path)
{
    return utilityFrame(outputs(), folders::createTree, path);
}

long FolderDeleteTree(const wchar_t* path, void* cancelEvent)
{
    return utilityFrame(outputs(), folders::deleteTree, path, optional(cancelEvent));
}

long FolderGetSize(const wchar_t* path, void* cancelEvent, unsigned long long* bytes,
                   unsigned long long* files, unsigned long long* folders)
{
    return utilityFrame(outputs(bytes, files, folders), folders::size, path, optional(cancelEvent));
}

long FolderIsEmpty(const wchar_t* path, int* isEmpty)
{
    return utilityFrame(outputs(isEmpty), folders::isEmpty, path);
}

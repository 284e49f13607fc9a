#include "core/win32/utils/scanengine/include/FileScanEngine.h"

#include "core/win32/utils/scanengine/include/FilePath.h"

#define FILE_SCAN_ENGINE_HEADER "core\\win32\\utils\\scanengine\\include\\FileScanEngine.h"

using namespace primitives;

void FileScanEngine::addPath(const wchar_t* path, int expand)
{
    placedStep(PLACE(FILE_SCAN_ENGINE_HEADER, "FileScanEngine::addPath", __LINE__), [&] {
        if (path == nullptr)
            throw static_cast<long>(ERROR_INVALID_PARAMETER);
        const SharedPtr<ScanItem> root = makeShared<ScanItem, FilePath>(path, expand, 0U);
        appendRoot(root->getIdentifier().getIdentifier(), [&] { return root; });
    });
}

long FileScanEngine::scan(HANDLE cancelEvent, const SharedPtr<IScanValidator>& validator,
                          const ScanOptions& options)
{
    return scanRoots(PLACE(FILE_SCAN_ENGINE_HEADER, "FileScanEngine::scan", __LINE__), cancelEvent, validator,
                     options);
}

void FileScanEngine::clearNotifyHandlers()
{
    placedStep(PLACE(FILE_SCAN_ENGINE_HEADER, "FileScanEngine::clearNotifyHandlers", __LINE__),
               [&] { clearHandlers(); });
}

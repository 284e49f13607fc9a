#include "core/win32/utils/scanengine/include/FileScanEngine.h"

#include "core/win32/utils/scanengine/include/FilePath.h"

#define FILE_SCAN_ENGINE_HEADER "core\\win32\\utils\\scanengine\\include\\FileScanEngine.h"

using namespace primitives;

void FileScanEngine::addPath(const wchar_t* path, int expand)
{
    placedStep(PLACE(FILE_SCAN_ENGINE_HEADER, "FileScanEngine::addPath", __LINE__), [&] {
        if (path == nullptr)
            throw static_cast<long>(ERROR_INVALID_PARAMETER);
        appendRoot(makeShared<ScanItem, FilePath>(path, expand, 0U));
    });
}

const char* FileScanEngine::scanPlace() const noexcept
{
    return PLACE(FILE_SCAN_ENGINE_HEADER, "FileScanEngine::scan", __LINE__);
}

#include "core/win32/utils/scanengine/include/FileScanEngine.h"

#include "core/win32/utils/scanengine/include/FilePath.h"

constexpr char kFileScanEngineHeader[] = "core\\win32\\utils\\scanengine\\include\\FileScanEngine.h";

using namespace primitives;

ObjectTable<SharedPtr<FileScanEngine>> fileScanEngines(30); // they hold scan items

void FileScanEngine::addPath(const wchar_t* path, int expand)
{
    placedStep(PLACE(kFileScanEngineHeader, "FileScanEngine::addPath", __LINE__), [&] {
        if (path == nullptr)
            raiseCode(ERROR_INVALID_PARAMETER);
        const SharedPtr<ScanItem> root = makeShared<ScanItem, FilePath>(path, expand, 0U);
        if (root->getPath()[0] == L'\0') // not a folder, though a search would use the current one
            raiseCode(ERROR_INVALID_PARAMETER);
        appendRoot(root);
    });
}

const char* FileScanEngine::scanPlace() const noexcept
{
    return PLACE(kFileScanEngineHeader, "FileScanEngine::scan", __LINE__);
}

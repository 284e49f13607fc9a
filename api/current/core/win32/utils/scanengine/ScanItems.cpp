#include "core/win32/utils/scanengine/include/ScanItems.h"

ObjectTable<SharedPtr<ScanItem>> scanItems(40);

void* openOrRegisterItem(const char* place, const wchar_t* name, const SharedPtr<ScanItem>& item)
{
    if (!item)
        throw Exception(place, ERROR_INVALID_ADDRESS);
    const std::wstring key = scanItemKey(name, item->getIdentifier().getIdentifier());
    bool isNew = false;
    ScanItemHandle handle(scanItems().openOrCreate(key.c_str(), [&] {
        isNew = true;
        return item;
    }));
    if (!isNew) {
        SharedPtr<ScanItem> registered;
        requireSuccess(scanItems().get(handle.get(), registered));
        if (!item->isInterchangeable(*registered))
            throw Exception(place, ERROR_ALREADY_EXISTS);
    }
    return handle.release();
}

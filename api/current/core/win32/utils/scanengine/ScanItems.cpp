#include "core/win32/utils/scanengine/include/ScanItems.h"

ObjectTable<SharedPtr<ScanItem>> scanItems(40);

void* openOrFileItem(const char* place, const wchar_t* name, const SharedPtr<ScanItem>& item)
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
        SharedPtr<ScanItem> filed;
        requireSuccess(scanItems().get(handle.get(), filed));
        if (!item->isInterchangeable(*filed))
            throw Exception(place, ERROR_ALREADY_EXISTS);
    }
    return handle.release();
}

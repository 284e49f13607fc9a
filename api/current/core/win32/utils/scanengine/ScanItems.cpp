#include "core/win32/utils/scanengine/include/ScanItems.h"

ObjectTable<SharedPtr<ScanItem>> scanItems(40);

bool isRegisteredAs(const ScanItem& item, std::wstring_view identifier)
{
    return item.getIdentifier().getIdentifier() == identifier;
}

void* openOrRegisterItem(const char* place, const wchar_t* name, const SharedPtr<ScanItem>& item)
{
    if (!item)
        throw Exception(place, ERROR_INVALID_ADDRESS);
    const std::wstring identifier = item->getIdentifier().getIdentifier();
    const std::wstring key = scanItemKey(name, identifier.c_str());
    bool isNew = false;
    ScanItemHandle handle(scanItems().openOrCreate(key.c_str(), [&] {
        isNew = true;
        return item;
    }));
    if (!isNew) {
        SharedPtr<ScanItem> registered;
        requireSuccess(scanItems().get(handle.get(), registered));
        if (!isRegisteredAs(*registered, identifier) || !item->isInterchangeable(*registered))
            throw Exception(place, ERROR_ALREADY_EXISTS);
    }
    return handle.release();
}

void* openRegisteredItem(const wchar_t* name, const wchar_t* identifier, SharedPtr<ScanItem>& item)
{
    void* const found = scanItems().lookup(scanItemKey(name, identifier).c_str());
    if (found == INVALID_HANDLE_VALUE)
        raiseLastError();
    ScanItemHandle handle(found);
    SharedPtr<ScanItem> registered;
    requireSuccess(scanItems().get(handle.get(), registered));
    if (!isRegisteredAs(*registered, identifier))
        raiseCode(ERROR_NOT_FOUND);
    item.swap(registered);
    return handle.release();
}

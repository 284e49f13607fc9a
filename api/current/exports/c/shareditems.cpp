// The C interface: items that are shared with C++ code by a name.

#include "core/win32/utils/scanengine/include/ScanItems.h"
#include "exports/c/Items.h"

using cframes::requireArguments;
using cframes::status;

namespace {
constexpr char kHeader[] = "c\\sysmaint.h";

int closeItem(void* handle)
{
    return scanItems().close(handle);
}
using SharedItem = cframes::Opening<SharedPtr<ScanItem>, closeItem>;
cframes::Table<sysmaint_shared_item, SharedItem> sharedItems;
} // namespace

std::int32_t sysmaint_item_share(sysmaint_item* item, const wchar_t* name, sysmaint_shared_item** shared)
{
    return status(__func__, [&] {
        const SharedPtr<ScanItem> object = items().get(item);
        requireArguments(name != nullptr && shared != nullptr);
        *shared = sharedItems().add(makeShared<SharedItem>(scanItems(), [&] {
            return openOrRegisterItem(PLACE(kHeader, "sysmaint_item_share", __LINE__), name, object);
        }));
    });
}

std::int32_t sysmaint_item_find(const wchar_t* name, const wchar_t* path, sysmaint_item** item)
{
    return status(__func__, [&] {
        requireArguments(name != nullptr && path != nullptr && item != nullptr);
        SharedPtr<ScanItem> object;
        const ScanItemHandle handle(openRegisteredItem(name, path, object));
        *item = items().add(object);
    });
}

std::int32_t sysmaint_item_unshare(sysmaint_shared_item* shared)
{
    return status(__func__, [&] { sharedItems().remove(shared)->close(); });
}

// The C interface: scan items, and connections to FTP servers for them.

#include "exports/c/Items.h"
#include "core/win32/registry/include/RegistryPath.h"
#include "core/win32/registry/include/RegistryValue.h"
#include "core/win32/utils/ftp/include/FtpFile.h"
#include "core/win32/utils/scanengine/include/File.h"
#include "core/win32/utils/scanengine/include/FilePath.h"
#include "exports/c/Rules.h"

using cframes::requireArguments;
using cframes::status;
using cframes::storeBytes;

cframes::Table<sysmaint_item, ScanItem> items;

namespace {
cframes::Table<sysmaint_ftp, FtpConnection> connections;

/// What the item is as the interface of some types. Raises 120 for all others.
template <class Interface>
Interface& as(const SharedPtr<ScanItem>& item)
{
    auto* const found = dynamic_cast<Interface*>(item.get());
    if (found == nullptr)
        raiseCode(ERROR_CALL_NOT_IMPLEMENTED);
    return *found;
}

/// The frame of a function that makes an item.
template <class Make>
std::int32_t makeItem(const char* function, sysmaint_item** item, bool given, Make&& make) noexcept
{
    return status(function, [&] {
        requireArguments(item != nullptr && given);
        *item = items().add(make());
    });
}

/// The frame of a function that works on an item: `operation` takes its pointer.
template <class Operation>
std::int32_t withItem(const char* function, sysmaint_item* item, bool given, Operation&& operation,
                      HANDLE cancelEvent = nullptr) noexcept
{
    return cframes::cancellable(function, cancelEvent, [&] {
        const SharedPtr<ScanItem> object = items().get(item);
        requireArguments(given);
        operation(object);
    });
}

/// The lock for the content that an item keeps, which the classes leave to who changes items. A few locks
/// serve all items.
ReadWriteLock& contentLockOf(const SharedPtr<ScanItem>& item) noexcept
{
    static std::array<ReadWriteLock, 64> locks;
    constexpr unsigned kAlignmentBits = 6;
    return locks[(reinterpret_cast<std::uintptr_t>(item.get()) >> kAlignmentBits) % locks.size()];
}

/// An empty item of a type, to be loaded. Raises 13 for a number of none.
SharedPtr<ScanItem> makeEmpty(std::uint32_t type)
{
    switch (type) {
    case kDirectoryItem:
        return makeShared<ScanItem, FilePath>(L"", 0, 0U);
    case kFileItem:
        return makeShared<ScanItem, File>();
    case kFtpFileItem:
        return makeShared<ScanItem, FtpFile>();
    case kRegistryKeyItem:
        return makeShared<ScanItem, RegistryPath>(HKEY_CURRENT_USER, L"", 0UL);
    case kRegistryValueItem:
        return makeShared<ScanItem, RegistryValue>();
    default:
        raiseCode(ERROR_INVALID_DATA);
    }
}

std::uint64_t sizeOf(const SharedPtr<ScanItem>& item)
{
    if (const auto* file = dynamic_cast<const IFile*>(item.get()))
        return file->getSize();
    if (item->getType() == kFtpFileItem)
        return as<IFtpFile>(item).getSize();
    unsigned long size = 0;
    const ReadLocker locker(contentLockOf(item));
    as<IRegistryValue>(item).getData(size);
    return size;
}
} // namespace

std::int32_t sysmaint_ftp_create(const sysmaint_ftp_account* account, sysmaint_ftp** ftp)
{
    return status(__func__, [&] {
        requireArguments(ftp != nullptr);
        const sysmaint_ftp_account copy = givenAccount(account);
        const auto connection = makeShared<FtpConnection>(copy.server, static_cast<unsigned short>(copy.port),
                                                          copy.user, copy.password);
        if (copy.timeout != 0)
            connection->setTimeout(copy.timeout);
        *ftp = connections().add(connection);
    });
}

std::int32_t sysmaint_ftp_connect(sysmaint_ftp* ftp, void* cancel_event)
{
    return cframes::cancellable(__func__, cancel_event,
                                [&] { connections().get(ftp)->connect(cancel_event); });
}

std::int32_t sysmaint_ftp_set_timeout(sysmaint_ftp* ftp, std::uint32_t timeout)
{
    return status(__func__, [&] { connections().get(ftp)->setTimeout(timeout); });
}

std::int32_t sysmaint_ftp_close(sysmaint_ftp* ftp)
{
    return status(__func__, [&] { connections().remove(ftp)->close(); });
}

std::int32_t sysmaint_item_file(const wchar_t* path, std::int32_t expand, sysmaint_item** item)
{
    return makeItem(__func__, item, path != nullptr,
                    [&] { return makeShared<ScanItem, File>(path, expand); });
}

std::int32_t sysmaint_item_folder(const wchar_t* path, std::int32_t expand, sysmaint_item** item)
{
    return makeItem(__func__, item, path != nullptr,
                    [&] { return makeShared<ScanItem, FilePath>(path, expand, 0U); });
}

std::int32_t sysmaint_item_registry_key(void* root, const wchar_t* key, std::uint32_t options,
                                        sysmaint_item** item)
{
    return makeItem(__func__, item, root != nullptr && key != nullptr, [&] {
        return makeShared<ScanItem, RegistryPath>(static_cast<HKEY>(root), key,
                                                  givenRegistryOptions(options));
    });
}

std::int32_t sysmaint_item_registry_value(void* root, const wchar_t* key, const wchar_t* name,
                                          std::uint32_t options, sysmaint_item** item)
{
    return makeItem(__func__, item, root != nullptr && key != nullptr && name != nullptr, [&] {
        return makeShared<ScanItem, RegistryValue>(static_cast<HKEY>(root), key, name,
                                                   static_cast<unsigned long>(givenRegistryOptions(options)));
    });
}

std::int32_t sysmaint_item_ftp_file(sysmaint_ftp* ftp, const wchar_t* path, sysmaint_item** item)
{
    return status(__func__, [&] {
        const auto connection = connections().get(ftp);
        requireArguments(path != nullptr && item != nullptr);
        *item = items().add(makeShared<ScanItem, FtpFile>(connection, FtpLocation::fromFilePath(path), false,
                                                          std::optional<unsigned long long>()));
    });
}

std::int32_t sysmaint_item_load(const void* bytes, std::uint64_t size, sysmaint_item** item)
{
    return makeItem(__func__, item, bytes != nullptr, [&] {
        MemoryInputByteStream typeStream(bytes, size);
        const SharedPtr<ScanItem> made = makeEmpty(primitives::readU32(typeStream));
        cframes::loadWhole(bytes, size, [&](auto& stream) { return made->load(kStateAll, stream); });
        return made;
    });
}

std::int32_t sysmaint_item_keep(sysmaint_item* item, sysmaint_item** kept)
{
    return withItem(__func__, item, kept != nullptr,
                    [&](const auto& object) { *kept = items().add(object); });
}

std::int32_t sysmaint_item_close(sysmaint_item* item)
{
    return status(__func__, [&] { items().remove(item); });
}

std::int32_t sysmaint_item_type(sysmaint_item* item, std::uint32_t* type)
{
    return withItem(__func__, item, type != nullptr, [&](const auto& object) { *type = object->getType(); });
}

std::int32_t sysmaint_item_path(sysmaint_item* item, const wchar_t** path)
{
    return withItem(__func__, item, path != nullptr, [&](const auto& object) { *path = object->getPath(); });
}

std::int32_t sysmaint_item_level(sysmaint_item* item, std::uint32_t* level)
{
    return withItem(__func__, item, level != nullptr,
                    [&](const auto& object) { *level = as<IScanPath>(object).getLevel(); });
}

std::int32_t sysmaint_item_root(sysmaint_item* item, void** root)
{
    return withItem(__func__, item, root != nullptr,
                    [&](const auto& object) { *root = as<IRegistryKey>(object).getHKEY(); });
}

std::int32_t sysmaint_item_is_link(sysmaint_item* item, std::int32_t* is)
{
    return withItem(__func__, item, is != nullptr,
                    [&](const auto& object) { *is = as<IFtpFile>(object).isLink() ? 1 : 0; });
}

std::int32_t sysmaint_item_value_name(sysmaint_item* item, const wchar_t** name)
{
    return withItem(__func__, item, name != nullptr,
                    [&](const auto& object) { *name = as<IRegistryValue>(object).getName(); });
}

std::int32_t sysmaint_item_value_type(sysmaint_item* item, std::uint32_t* type)
{
    return withItem(__func__, item, type != nullptr, [&](const auto& object) {
        const ReadLocker locker(contentLockOf(object));
        *type = as<IRegistryValue>(object).getValueType();
    });
}

std::int32_t sysmaint_item_size(sysmaint_item* item, std::uint64_t* bytes)
{
    return withItem(__func__, item, bytes != nullptr, [&](const auto& object) { *bytes = sizeOf(object); });
}

std::int32_t sysmaint_item_exists(sysmaint_item* item, std::int32_t* exists)
{
    return withItem(__func__, item, exists != nullptr,
                    [&](const auto& object) { *exists = object->exists() != 0 ? 1 : 0; });
}

std::int32_t sysmaint_item_has_containers(sysmaint_item* item, void* cancel_event, std::int32_t* has)
{
    return withItem(
        __func__, item, has != nullptr,
        [&](const auto& object) { *has = as<IScanPath>(object).hasSubfolders(cancel_event) != 0 ? 1 : 0; },
        cancel_event);
}

std::int32_t sysmaint_item_matches(sysmaint_item* item, sysmaint_validator* validator, std::int32_t* accepts)
{
    return withItem(__func__, item, accepts != nullptr, [&](const auto& object) {
        validators().get(validator)->read(
            [&](const IScanValidator& rules) { *accepts = rules.validate(*object) ? 1 : 0; });
    });
}

std::int32_t sysmaint_item_read(sysmaint_item* item, void** bytes, std::uint64_t* size)
{
    return withItem(__func__, item, bytes != nullptr && size != nullptr, [&](const auto& object) {
        const ReadLocker locker(contentLockOf(object));
        if (auto* file = dynamic_cast<IFile*>(object.get())) {
            unsigned long long length = 0;
            const void* data = file->getData(length);
            storeBytes(data, length, bytes, size);
            return;
        }
        unsigned long length = 0;
        const void* data = as<IRegistryValue>(object).getData(length);
        storeBytes(data, length, bytes, size);
    });
}

std::int32_t sysmaint_item_write(sysmaint_item* item, std::uint32_t value_type, const void* bytes,
                                 std::uint64_t size)
{
    return withItem(__func__, item, bytes != nullptr || size == 0, [&](const auto& object) {
        const WriteLocker locker(contentLockOf(object));
        if (auto* file = dynamic_cast<File*>(object.get())) {
            requireArguments(value_type == 0);
            file->write(bytes, size);
            return;
        }
        auto& value = as<IRegistryValue>(object);
        requireArguments(size <= 0xFFFFFFFF);
        value.setValue(value_type, bytes, static_cast<unsigned long>(size));
    });
}

std::int32_t sysmaint_item_create(sysmaint_item* item)
{
    return withItem(__func__, item, true, [](const auto& object) {
        if (auto* folder = dynamic_cast<IDirectory*>(object.get()))
            folder->create();
        else if (object->getType() == kRegistryKeyItem)
            as<IRegistryKey>(object).create();
        else
            raiseCode(ERROR_CALL_NOT_IMPLEMENTED);
    });
}

std::int32_t sysmaint_item_delete(sysmaint_item* item, void* cancel_event)
{
    const auto operation = [&](const auto& object) {
        if (object->getType() != kFtpFileItem && isCancelled(cancel_event))
            raiseCode(ERROR_CANCELLED);
        if (auto* file = dynamic_cast<IFileSystemItem*>(object.get()))
            file->deleteItem();
        else if (auto* key = dynamic_cast<IRegistryKey*>(object.get()))
            key->deleteItem(); // or the value
        else
            as<IFtpFile>(object).deleteItem(cancel_event);
    };
    return withItem(__func__, item, true, operation, cancel_event);
}

std::int32_t sysmaint_item_download(sysmaint_item* item, const wchar_t* local_path, std::int32_t go_on,
                                    void* cancel_event)
{
    return withItem(
        __func__, item, local_path != nullptr,
        [&](const auto& object) { as<IFtpFile>(object).download(local_path, go_on != 0, cancel_event); },
        cancel_event);
}

std::int32_t sysmaint_item_upload(sysmaint_item* item, const wchar_t* local_path, void* cancel_event)
{
    return withItem(
        __func__, item, local_path != nullptr,
        [&](const auto& object) { as<IFtpFile>(object).upload(local_path, cancel_event); }, cancel_event);
}

std::int32_t sysmaint_item_dump(sysmaint_item* item, void** bytes, std::uint64_t* size)
{
    return withItem(__func__, item, true, [&](const auto& object) {
        const ReadLocker locker(contentLockOf(object));
        cframes::storeDump(bytes, size, [&](auto& stream) { return object->dump(kStateAll, stream); });
    });
}

// The C interface: hive files that are not loaded.

#include "core/win32/registry/offline/api.h"

#include "exports/c/CFrames.h"

using cframes::requireArguments;
using cframes::status;

static_assert(SYSMAINT_OFFLINE_ANY == kOfflineAny && SYSMAINT_OFFLINE_LIBRARY == kOfflineLibrary &&
              SYSMAINT_OFFLINE_ENGINE == kOfflineEngine);

namespace {
using KeyPtr = SharedPtr<IOfflineRegistryKey>;
cframes::Table<sysmaint_offline_key, IOfflineRegistryKey> keys;

/// The frame of an operation on a key, which returns its code.
template <class Operation>
std::int32_t onKey(const char* function, sysmaint_offline_key* key, Operation&& operation)
{
    return status(function, [&]() -> long {
        const KeyPtr object = keys().get(key);
        return operation(*object);
    });
}

/// The same for an operation on one of its values.
template <class Operation>
std::int32_t onValue(const char* function, sysmaint_offline_key* key, const wchar_t* name,
                     Operation&& operation)
{
    return onKey(function, key, [&](IOfflineRegistryKey& object) -> long {
        IOfflineRegistryValue* value = nullptr;
        requireSuccess(object.getValue(name, &value));
        const std::unique_ptr<IOfflineRegistryValue> owner(value);
        return operation(*value);
    });
}
} // namespace

std::int32_t sysmaint_offline_open(const wchar_t* hive_file, const wchar_t* path, std::uint32_t way,
                                   sysmaint_offline_key** key)
{
    return status(__func__, [&] {
        requireArguments(key != nullptr);
        IOfflineRegistryKey* const made = DllGetOfflineRegistryKey(hive_file, path, way);
        if (made == nullptr)
            raiseLastError();
        *key = keys().add(KeyPtr(made));
    });
}

std::int32_t sysmaint_offline_open_below(sysmaint_offline_key* key, const wchar_t* path,
                                         sysmaint_offline_key** below)
{
    return onKey(__func__, key, [&](IOfflineRegistryKey& object) -> long {
        requireArguments(below != nullptr);
        IOfflineRegistryKey* made = nullptr;
        requireSuccess(object.getKey(path, &made));
        *below = keys().add(KeyPtr(made));
        return ERROR_SUCCESS;
    });
}

std::int32_t sysmaint_offline_path(sysmaint_offline_key* key, const wchar_t** path)
{
    return onKey(__func__, key, [&](IOfflineRegistryKey& object) -> long {
        requireArguments(path != nullptr);
        *path = object.getPath();
        return ERROR_SUCCESS;
    });
}

std::int32_t sysmaint_offline_way(sysmaint_offline_key* key, std::uint32_t* way)
{
    return onKey(__func__, key, [&](IOfflineRegistryKey& object) -> long {
        requireArguments(way != nullptr);
        *way = object.getWay();
        return ERROR_SUCCESS;
    });
}

std::int32_t sysmaint_offline_exists(sysmaint_offline_key* key, std::int32_t* exists)
{
    return onKey(__func__, key, [&](IOfflineRegistryKey& object) { return object.exists(exists); });
}

std::int32_t sysmaint_offline_create(sysmaint_offline_key* key, const wchar_t* class_name)
{
    return onKey(__func__, key, [&](IOfflineRegistryKey& object) { return object.create(class_name); });
}

std::int32_t sysmaint_offline_delete(sysmaint_offline_key* key)
{
    return onKey(__func__, key, [](IOfflineRegistryKey& object) { return object.deleteItem(); });
}

std::int32_t sysmaint_offline_information(sysmaint_offline_key* key, std::uint64_t* last_write_time,
                                          wchar_t** class_name)
{
    return onKey(__func__, key, [&](IOfflineRegistryKey& object) {
        return object.getInformation(last_write_time, class_name);
    });
}

std::int32_t sysmaint_offline_counts(sysmaint_offline_key* key, std::uint64_t* sub_keys,
                                     std::uint64_t* values, std::uint64_t* keys_below)
{
    return onKey(__func__, key,
                 [&](IOfflineRegistryKey& object) { return object.getCounts(sub_keys, values, keys_below); });
}

std::int32_t sysmaint_offline_sub_keys(sysmaint_offline_key* key, wchar_t** names, std::uint64_t* count)
{
    return onKey(__func__, key,
                 [&](IOfflineRegistryKey& object) { return object.listSubKeys(names, count); });
}

std::int32_t sysmaint_offline_values(sysmaint_offline_key* key, wchar_t** names, std::uint64_t* count)
{
    return onKey(__func__, key, [&](IOfflineRegistryKey& object) { return object.listValues(names, count); });
}

std::int32_t sysmaint_offline_value_exists(sysmaint_offline_key* key, const wchar_t* name,
                                           std::int32_t* exists)
{
    return onValue(__func__, key, name, [&](IOfflineRegistryValue& value) { return value.exists(exists); });
}

std::int32_t sysmaint_offline_value_get(sysmaint_offline_key* key, const wchar_t* name, std::uint32_t* type,
                                        void** data, std::uint64_t* size)
{
    return onValue(__func__, key, name, [&](IOfflineRegistryValue& value) -> long {
        requireArguments(type != nullptr && data != nullptr && size != nullptr);
        unsigned long found = 0;
        unsigned char* bytes = nullptr;
        requireSuccess(value.getData(&found, &bytes, size));
        *type = found;
        *data = bytes;
        return ERROR_SUCCESS;
    });
}

std::int32_t sysmaint_offline_value_set(sysmaint_offline_key* key, const wchar_t* name, std::uint32_t type,
                                        const void* data, std::uint64_t size)
{
    return onValue(__func__, key, name,
                   [&](IOfflineRegistryValue& value) { return value.setData(type, data, size); });
}

std::int32_t sysmaint_offline_value_delete(sysmaint_offline_key* key, const wchar_t* name)
{
    return onValue(__func__, key, name, [](IOfflineRegistryValue& value) { return value.deleteItem(); });
}

std::int32_t sysmaint_offline_save(sysmaint_offline_key* key, const wchar_t* new_file)
{
    return onKey(__func__, key, [&](IOfflineRegistryKey& object) { return object.save(new_file); });
}

std::int32_t sysmaint_offline_close(sysmaint_offline_key* key)
{
    return status(__func__, [&] { keys().remove(key); });
}

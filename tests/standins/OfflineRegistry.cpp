// Stands in for the system's offreg.dll, which the platform lacks. Its functions work on hives that are
// really read and written, and follow the documentation: 234 for a buffer that is too small, 2 for what does
// not exist, 259 after the last; a key with sub-keys is not deleted, a file is not overwritten.

#include <windows.h>

#include <algorithm>
#include <bit>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <utility>

#include "core/win32/registry/offline/include/HiveFile.h"

namespace {
using namespace offline;

struct Key
{
    std::shared_ptr<Hive> hive;
    KeyId id = Hive::root();
};

template <class Body>
DWORD guarded(Body&& body)
{
    try {
        body();
        return ERROR_SUCCESS;
    } catch (const long code) {
        return static_cast<DWORD>(code);
    } catch (const std::bad_optional_access&) {
        return ERROR_FILE_NOT_FOUND;
    } catch (const std::exception&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

const auto keyOf = [](void* handle) -> Key& { return *static_cast<Key*>(handle); };
HiveTime now()
{
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    return std::bit_cast<HiveTime>(time);
}
std::u16string units(PCWSTR text)
{
    const std::wstring_view view(text != nullptr ? text : L"");
    return {view.begin(), view.end()};
}
Key below(void* key, const std::u16string& path)
{
    return {keyOf(key).hive, keyOf(key).hive->findPath(keyOf(key).id, path).value()};
}
template <class Ids>
auto at(const Ids& ids, DWORD index)
{
    if (index >= ids.size())
        throw long{ERROR_NO_MORE_ITEMS};
    return ids[index];
}
void copyText(const std::u16string& text, PWSTR target, PDWORD length)
{
    if (*length <= text.size())
        throw long{ERROR_MORE_DATA};
    std::copy(text.begin(), text.end(), target);
    target[text.size()] = L'\0';
    *length = static_cast<DWORD>(text.size());
}
} // namespace

#define STAND_IN extern "C" __declspec(dllexport) DWORD WINAPI

STAND_IN OROpenHive(PCWSTR path, void** hive)
{
    return guarded([&] {
        std::ifstream file(std::filesystem::path(path), std::ios::binary);
        if (!file)
            throw long{ERROR_FILE_NOT_FOUND};
        const std::vector<char> text((std::istreambuf_iterator<char>(file)), {});
        const auto bytes = std::as_bytes(std::span(text));
        *hive =
            new Key{std::make_shared<Hive>(Hive::parse(std::vector<std::byte>(bytes.begin(), bytes.end())))};
    });
}

STAND_IN ORCreateHive(void** hive)
{
    return guarded([&] { *hive = new Key{std::make_shared<Hive>(Hive::create(now()))}; });
}

STAND_IN ORSaveHive(void* hive, PCWSTR path, DWORD major, DWORD minor)
{
    if (major != 6 || minor != 1)
        return ERROR_INVALID_PARAMETER;
    static bool isAnother = false;
    if (std::filesystem::exists(path)) // either code says so
        return (isAnother = !isAnother) ? ERROR_FILE_EXISTS : ERROR_ALREADY_EXISTS;
    return guarded([&] {
        const std::vector<std::byte> bytes = keyOf(hive).hive->compact();
        std::ofstream(std::filesystem::path(path), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    });
}

STAND_IN ORCloseKey(void* key)
{
    delete static_cast<Key*>(key);
    return ERROR_SUCCESS;
}

STAND_IN ORCloseHive(void* hive)
{
    return ORCloseKey(hive);
}

STAND_IN OROpenKey(void* key, PCWSTR path, void** opened)
{
    return guarded([&] { *opened = new Key(below(key, units(path))); });
}

STAND_IN ORCreateKey(void* key, PCWSTR path, PWSTR className, DWORD options, void* security, void** created,
                     PDWORD)
{
    if (options != 0 || security != nullptr)
        return ERROR_INVALID_PARAMETER;
    return guarded([&] {
        const std::u16string name = units(path);
        const std::size_t end = name.rfind(u'\\') + 1;
        const Key above = below(key, name.substr(0, std::max<std::size_t>(end, 1) - 1));
        const KeyId made = above.hive->createKey(above.id, name.substr(end), now());
        if (className != nullptr)
            above.hive->setClassName(made, units(className));
        *created = new Key{above.hive, made};
    });
}

STAND_IN ORDeleteKey(void* key, PCWSTR path)
{
    return guarded([&] {
        const Key found = below(key, units(path));
        if (!found.hive->subKeys(found.id).empty())
            throw long{ERROR_KEY_HAS_CHILDREN};
        found.hive->deleteKey(found.id, now());
    });
}

STAND_IN OREnumKey(void* key, DWORD index, PWSTR name, PDWORD length, PWSTR, PDWORD, PFILETIME)
{
    return guarded([&] {
        const Hive& hive = *keyOf(key).hive;
        copyText(hive.name(at(hive.subKeys(keyOf(key).id), index)).text(), name, length);
    });
}

STAND_IN ORQueryInfoKey(void* key, PWSTR className, PDWORD length, PDWORD, PDWORD, PDWORD, PDWORD, PDWORD,
                        PDWORD, PDWORD, PFILETIME written)
{
    return guarded([&] {
        copyText(keyOf(key).hive->className(keyOf(key).id), className, length);
        *written = std::bit_cast<FILETIME>(keyOf(key).hive->lastWriteTime(keyOf(key).id));
    });
}

STAND_IN ORGetValue(void* key, PCWSTR path, PCWSTR name, PDWORD type, void* data, PDWORD size)
{
    return guarded([&] {
        const Key above = below(key, units(path));
        const ValueId found = above.hive->findValue(above.id, units(name)).value();
        const std::vector<std::byte> bytes = above.hive->data(found);
        *type = above.hive->type(found);
        const DWORD room = std::exchange(*size, static_cast<DWORD>(bytes.size()));
        if (data != nullptr && room < bytes.size())
            throw long{ERROR_MORE_DATA};
        std::copy_n(bytes.begin(), data != nullptr ? bytes.size() : 0, static_cast<std::byte*>(data));
    });
}

STAND_IN ORSetValue(void* key, PCWSTR name, DWORD type, const BYTE* data, DWORD size)
{
    return guarded([&] {
        keyOf(key).hive->setValue(keyOf(key).id, units(name), type, std::as_bytes(std::span(data, size)),
                                  now());
    });
}

STAND_IN ORDeleteValue(void* key, PCWSTR name)
{
    return guarded([&] {
        if (!keyOf(key).hive->deleteValue(keyOf(key).id, units(name), now()))
            throw long{ERROR_FILE_NOT_FOUND};
    });
}

STAND_IN OREnumValue(void* key, DWORD index, PWSTR name, PDWORD length, PDWORD, PBYTE, PDWORD)
{
    return guarded([&] {
        const Hive& hive = *keyOf(key).hive;
        copyText(hive.valueName(at(hive.values(keyOf(key).id), index)).text(), name, length);
    });
}

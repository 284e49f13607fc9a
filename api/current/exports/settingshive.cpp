// The exported functions of settings.

#include "core/win32/registry/settingshive/include/SettingsHive.h"
#include "core/win32/registry/settingshive/api.h"
#include "exports/Frames.h"
#include "exports/UtilityFrame.h"

using namespace utilityframe;

namespace {
constexpr char kSettingsHiveApi[] = "core\\win32\\registry\\settingshive\\api.h";

/// The settings behind a handle, for calls by utility functions. Raises the table's code.
SharedPtr<SettingsHive> settings(void* hive)
{
    SharedPtr<SettingsHive> object;
    requireSuccess(settingsHives().get(hive, object));
    if (!object)
        raiseCode(ERROR_INVALID_ADDRESS);
    return object;
}

/// Converts a number to its little-endian data and back.
template <class Number>
long setNumber(void* hive, const wchar_t* key, const wchar_t* value, unsigned long type,
               Number number) noexcept
{
    return utilityFrame(
        outputs(),
        [&](std::wstring_view at, std::wstring_view name) {
            settings(hive)->setValue(at, name, type, &number, sizeof number);
        },
        key, value);
}
template <class Number>
long getNumber(void* hive, const wchar_t* key, const wchar_t* value, unsigned long type,
               Number* number) noexcept
{
    return utilityFrame(
        outputs(number),
        [&](std::wstring_view at, std::wstring_view name) {
            const SettingsHive::Bytes bytes = settings(hive)->data(at, name, type, sizeof(Number));
            Number found = 0;
            CopyMemory(&found, bytes.data(), sizeof found);
            return found;
        },
        key, value);
}
} // namespace

void* CreateSettingsHive(const wchar_t* name, unsigned long flags)
{
    return boundary::handleFrame([&]() -> void* {
        if (name == nullptr)
            throw Exception(PLACE(kSettingsHiveApi, "CreateSettingsHive", __LINE__), ERROR_INVALID_PARAMETER);
        void* const handle = settingsHives().openOrCreate(SettingsHive::nameOf(name).c_str(), [&] {
            return SharedPtr<SettingsHive>(std::make_unique<SettingsHive>(name, flags).release());
        });
        const DWORD isNew = GetLastError();
        if ((flags & kSettingsReadOnly) == 0 && settings(handle)->isReadOnly()) {
            settingsHives().close(handle);
            raiseCode(ERROR_ACCESS_DENIED);
        }
        SetLastError(isNew);
        return handle;
    });
}

void* OpenSettingsHive(const wchar_t* name)
{
    return boundary::handleFrame([&]() -> void* {
        if (name == nullptr)
            raiseCode(ERROR_INVALID_PARAMETER);
        void* const handle = settingsHives().lookup(SettingsHive::nameOf(name).c_str());
        if (handle == INVALID_HANDLE_VALUE)
            raiseLastError();
        return handle;
    });
}

int CloseSettingsHive(void* hive)
{
    return settingsHives().close(hive);
}

long SettingsHiveSave(void* hive)
{
    return utilityFrame(outputs(), [&] { settings(hive)->save(); });
}

long SettingsHiveGetState(void* hive, unsigned long* state)
{
    return utilityFrame(outputs(state), [&] { return settings(hive)->state(); });
}

long SettingsHiveCreateKey(void* hive, const wchar_t* key)
{
    return utilityFrame(
        outputs(), [&](std::wstring_view at) { settings(hive)->createKey(at); }, key);
}

long SettingsHiveDeleteKey(void* hive, const wchar_t* key)
{
    return utilityFrame(
        outputs(), [&](std::wstring_view at) { settings(hive)->deleteKey(at); }, key);
}

long SettingsHiveEnumerateKeys(void* hive, const wchar_t* key, wchar_t** names, size_t* count)
{
    return utilityFrame(
        outputs(names, count), [&](std::wstring_view at) { return settings(hive)->keys(at); }, key);
}

long SettingsHiveEnumerateValues(void* hive, const wchar_t* key, wchar_t** names, size_t* count)
{
    return utilityFrame(
        outputs(names, count), [&](std::wstring_view at) { return settings(hive)->values(at); }, key);
}

long SettingsHiveGetValue(void* hive, const wchar_t* key, const wchar_t* value, unsigned long* type,
                          unsigned char** data, size_t* size)
{
    return utilityFrame(
        outputs(type, counted(data, size)),
        [&](std::wstring_view at, std::wstring_view name) { return settings(hive)->value(at, name); }, key,
        value);
}

long SettingsHiveSetValue(void* hive, const wchar_t* key, const wchar_t* value, unsigned long type,
                          const void* data, size_t size)
{
    return utilityFrame(
        outputs(),
        [&](std::wstring_view at, std::wstring_view name, std::basic_string_view<unsigned char> bytes) {
            settings(hive)->setValue(at, name, type, bytes.data(), bytes.size());
        },
        key, value, Bytes{data, size});
}

long SettingsHiveDeleteValue(void* hive, const wchar_t* key, const wchar_t* value)
{
    return utilityFrame(
        outputs(),
        [&](std::wstring_view at, std::wstring_view name) { settings(hive)->deleteValue(at, name); }, key,
        value);
}

long SettingsHiveGetNumber32(void* hive, const wchar_t* key, const wchar_t* value, unsigned long* number)
{
    return getNumber(hive, key, value, REG_DWORD, number);
}

long SettingsHiveSetNumber32(void* hive, const wchar_t* key, const wchar_t* value, unsigned long number)
{
    return setNumber(hive, key, value, REG_DWORD, number);
}

long SettingsHiveGetNumber64(void* hive, const wchar_t* key, const wchar_t* value, unsigned long long* number)
{
    return getNumber(hive, key, value, REG_QWORD, number);
}

long SettingsHiveSetNumber64(void* hive, const wchar_t* key, const wchar_t* value, unsigned long long number)
{
    return setNumber(hive, key, value, REG_QWORD, number);
}

long SettingsHiveGetText(void* hive, const wchar_t* key, const wchar_t* value, wchar_t** text)
{
    return utilityFrame(
        outputs(text),
        [&](std::wstring_view at, std::wstring_view name) { return settings(hive)->text(at, name); }, key,
        value);
}

long SettingsHiveSetText(void* hive, const wchar_t* key, const wchar_t* value, const wchar_t* text)
{
    return utilityFrame(
        outputs(),
        [&](std::wstring_view at, std::wstring_view name, std::wstring_view given) {
            settings(hive)->setValue(at, name, REG_SZ, given.data(), (given.size() + 1) * sizeof(wchar_t));
        },
        key, value, text);
}

long SettingsHiveGetTexts(void* hive, const wchar_t* key, const wchar_t* value, wchar_t** texts,
                          size_t* count)
{
    return utilityFrame(
        outputs(texts, count),
        [&](std::wstring_view at, std::wstring_view name) { return settings(hive)->texts(at, name); }, key,
        value);
}

long SettingsHiveSetTexts(void* hive, const wchar_t* key, const wchar_t* value, const wchar_t* texts)
{
    return utilityFrame(
        outputs(),
        [&](std::wstring_view at, std::wstring_view name, const std::wstring& given) {
            settings(hive)->setValue(at, name, REG_MULTI_SZ, given.c_str(),
                                     (given.size() + 1) * sizeof(wchar_t));
        },
        key, value, listed(texts));
}

long SettingsHiveGetBytes(void* hive, const wchar_t* key, const wchar_t* value, unsigned char** bytes,
                          size_t* size)
{
    return utilityFrame(
        outputs(counted(bytes, size)),
        [&](std::wstring_view at, std::wstring_view name) {
            return settings(hive)->data(at, name, REG_BINARY, 0);
        },
        key, value);
}

long SettingsHiveSetBytes(void* hive, const wchar_t* key, const wchar_t* value, const void* bytes,
                          size_t size)
{
    return SettingsHiveSetValue(hive, key, value, REG_BINARY, bytes, size);
}

#include "BootExecuteEntry.h"

#include "engine/BootNames.h"
#include "engine/PageBlock.h"

extern "C" {
native::Status NTAPI NtOpenKey(HANDLE* key, ACCESS_MASK access, native::ObjectAttributes* object);
native::Status NTAPI NtQueryValueKey(HANDLE key, const native::UnicodeString* name, ULONG question,
                                     void* answer, ULONG length, ULONG* needed);
native::Status NTAPI NtSetValueKey(HANDLE key, const native::UnicodeString* name, ULONG title, ULONG type,
                                   const void* data, ULONG length);
native::Status NTAPI NtFlushKey(HANDLE key);
}

namespace {
constexpr ULONG kPartialInformation = 2;
constexpr ULONG kRoom = 65536;

struct PartialInformation
{
    ULONG title;
    ULONG type;
    ULONG length; // in bytes
    wchar_t data[1];
};

native::UnicodeString stringOf(Text text)
{
    const auto bytes = static_cast<USHORT>(text.length * sizeof(wchar_t));
    return {bytes, bytes, text.data};
}

/// Removes this program's entries from a list. Returns the new length, or the old one when the list is
/// malformed.
std::size_t withoutOwnEntries(wchar_t* list, std::size_t length)
{
    const Text own(bootnames::kEntry);
    for (std::size_t at = 0; at < length;) { // each entry is terminated, and the empty one is the last
        const std::size_t end = Text(list + at, length - at).find(L'\0');
        if (end == Text::kNone || (end == 0) != (at + 1 == length))
            return length;
        at += end + 1;
    }
    std::size_t kept = 0;
    for (std::size_t at = 0; at < length;) {
        const std::size_t size = Text(list + at, length - at).find(L'\0') + 1;
        if (!Text(list + at, size - 1).isName(own))
            for (std::size_t i = 0; i < size; ++i)
                list[kept++] = list[at + i];
        at += size;
    }
    return kept;
}
} // namespace

native::Status removeOwnEntry(const native::Api& api)
{
    PageBlock answer(api);
    native::Status status = answer.allocate(kRoom);
    if (status < 0)
        return status;
    const native::UnicodeString path =
        stringOf(L"\\Registry\\Machine\\System\\CurrentControlSet\\Control\\Session Manager");
    const native::UnicodeString name = stringOf(L"BootExecute");
    native::ObjectAttributes object = {sizeof object, nullptr, &path, 0x40, nullptr, nullptr};
    HANDLE key = nullptr;
    status = NtOpenKey(&key, KEY_QUERY_VALUE | KEY_SET_VALUE, &object);
    if (status < 0)
        return status;
    ULONG needed = 0;
    auto& value = *answer.as<PartialInformation>();
    status = NtQueryValueKey(key, &name, kPartialInformation, &value, kRoom, &needed);
    if (status >= 0 && value.type == REG_MULTI_SZ && value.length % sizeof(wchar_t) == 0) {
        const std::size_t length = value.length / sizeof(wchar_t);
        const std::size_t kept = withoutOwnEntries(value.data, length);
        if (kept != length)
            status = NtSetValueKey(key, &name, 0, REG_MULTI_SZ, value.data,
                                   static_cast<ULONG>(kept * sizeof(wchar_t)));
        if (status >= 0 && kept != length)
            status = NtFlushKey(key);
    }
    api.close(key);
    return status;
}

#include "core/win32/registry/include/KeyPath.h"

#include <winternl.h>

#include <string>
#include <string_view>

#include "core/win32/utils/objectmanager/include/Raise.h"

// The platform headers leave it out.
extern "C" NTSTATUS NTAPI NtQueryKey(HANDLE key, int what, void* result, ULONG size, ULONG* length);

namespace {
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestStep = 16383; // leaves room for what the system puts in front
constexpr REGSAM kViews = KEY_WOW64_64KEY | KEY_WOW64_32KEY;

bool isPredefined(HKEY key) noexcept
{
    return reinterpret_cast<std::intptr_t>(key) < 0; // these numbers are sign-extended
}

bool hasLongName(std::wstring_view path) noexcept
{
    while (path.size() > kLongestName) {
        const std::size_t end = path.find(L'\\');
        if (end > kLongestName)
            return true;
        path.remove_prefix(end + 1);
    }
    return false;
}

/// Goes along `path`, by one call where that takes it. `step` opens what the text names below a key, as the
/// last of the path or on the way there.
template <class Step>
LSTATUS goAlong(HKEY root, const wchar_t* path, HKEY* opened, Step&& step)
{
    std::wstring_view rest(path);
    if (hasLongName(rest))
        return ERROR_FILENAME_EXCED_RANGE;
    if (rest.size() <= kLongestStep)
        return step(root, path, true, opened);
    rest = rest.substr(0, rest.find_last_not_of(L'\\') + 1);
    if (rest.empty())
        return ERROR_BAD_PATHNAME;
    RegistryKeyHandle parent;
    HKEY at = root;
    while (rest.size() > kLongestStep) {
        const std::size_t end = rest.rfind(L'\\', kLongestStep);
        HKEY next = nullptr;
        const LSTATUS status = step(at, std::wstring(rest.substr(0, end)).c_str(), false, &next);
        if (status != ERROR_SUCCESS)
            return status;
        parent.reset(next);
        at = next;
        rest.remove_prefix(rest.find_first_not_of(L'\\', end));
    }
    return step(at, std::wstring(rest).c_str(), true, opened);
}
} // namespace

LSTATUS keypath::open(HKEY root, const wchar_t* path, DWORD options, REGSAM access, HKEY* opened)
{
    return goAlong(root, path, opened, [&](HKEY parent, const wchar_t* name, bool isLast, HKEY* key) {
        return RegOpenKeyExW(parent, name, isLast ? options : 0,
                             isLast ? access : MAXIMUM_ALLOWED | (access & kViews), key);
    });
}

LSTATUS keypath::create(HKEY root, const wchar_t* path, REGSAM access, HKEY* opened)
{
    return goAlong(root, path, opened, [&](HKEY parent, const wchar_t* name, bool, HKEY* key) {
        return RegCreateKeyExW(parent, name, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, key,
                               nullptr);
    });
}

bool keypath::isMissing(long status) noexcept
{
    return status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND || status == ERROR_KEY_DELETED;
}

bool keypath::isStandIn(HKEY opened, HKEY root) noexcept
{
    return isPredefined(opened) && opened != root; // an empty path opens a predefined root as it is
}

RegistryKeyHandle keypath::itself(HKEY key)
{
    HANDLE copy = nullptr;
    if (!DuplicateHandle(GetCurrentProcess(), key, GetCurrentProcess(), &copy, 0, FALSE,
                         DUPLICATE_SAME_ACCESS))
        raiseLastError();
    return RegistryKeyHandle(static_cast<HKEY>(copy));
}

std::wstring keypath::nameOf(HKEY key)
{
    constexpr int kNameInformation = 3; // KeyNameInformation
    struct
    {
        ULONG length; // in bytes
        wchar_t name[512];
    } information{};
    ULONG length = 0;
    if (NtQueryKey(key, kNameInformation, &information, sizeof information, &length) != 0)
        return {};
    return {information.name, information.length / sizeof(wchar_t)};
}

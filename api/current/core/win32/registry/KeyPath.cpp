#include "core/win32/registry/include/KeyPath.h"

#include <winternl.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/OpenedItself.h"

// Missing from the platform headers.
extern "C" NTSTATUS NTAPI NtQueryKey(HANDLE key, int information, void* data, ULONG size, ULONG* length);

namespace {
constexpr int kKeyNameInformation = 3;
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestStep = 16383; // leaves room for what the system puts in front
constexpr std::wstring_view kUserClasses = L"Software\\Classes";
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

/// Opens `path`, with one call if it is short enough. `step` opens what a text names below a key, either the
/// end of the path or a key on the way.
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

/// The system's name of an open key. Returns 0 or the system's code.
long queryName(HKEY key, std::wstring& name)
{
    std::vector<std::byte> answer;
    ULONG length = 1024;
    NTSTATUS status = 0;
    do {
        answer.resize(length);
        status =
            NtQueryKey(key, kKeyNameInformation, answer.data(), static_cast<ULONG>(answer.size()), &length);
    } while (status != 0 && length > answer.size());
    if (status != 0)
        return static_cast<long>(RtlNtStatusToDosError(status));
    const auto* text = reinterpret_cast<const wchar_t*>(answer.data() + sizeof(ULONG)); // follows its length
    name.assign(text, (length - sizeof(ULONG)) / sizeof(wchar_t));
    return ERROR_SUCCESS;
}

std::wstring requireName(HKEY key)
{
    std::wstring name;
    requireSuccess(queryName(key, name));
    return name;
}

LSTATUS openNamed(HKEY parent, const std::wstring& name, DWORD options, REGSAM access, RegistryKeyHandle& key,
                  std::wstring& systemName)
{
    HKEY opened = nullptr;
    const LSTATUS status = RegOpenKeyExW(parent, name.c_str(), options, access, &opened);
    if (status != ERROR_SUCCESS)
        return status;
    key.reset(opened);
    systemName = requireName(opened);
    return ERROR_SUCCESS;
}

/// Opens the sub-key `name` of `parent` without following links and replaces `key` by it; `above` is the name
/// of `parent`. If the result is not below it, a link led elsewhere. On the way further down the system's own
/// link to a user's classes is followed, as by a walk.
LSTATUS stepDown(RegistryKeyHandle& key, std::wstring& above, HKEY parent, const std::wstring& name,
                 REGSAM access, bool isLast)
{
    RegistryKeyHandle next;
    std::wstring below;
    LSTATUS status = openNamed(parent, name, REG_OPTION_OPEN_LINK, access, next, below);
    if (status != ERROR_SUCCESS)
        return status;
    if (!above.empty() && below.compare(0, above.size() + 1, above + L'\\') != 0)
        return kStoppedOnSymlink;
    if (!isLast && keypath::isUserClassesName(below)) {
        RegistryKeyHandle target;
        std::wstring led;
        status = openNamed(parent, name, 0, access, target, led);
        if (status != ERROR_SUCCESS)
            return status;
        if (keypath::isUserClasses(below.substr(0, below.size() - kUserClasses.size() - 1), led)) {
            next = std::move(target);
            below = std::move(led);
        }
    }
    key = std::move(next);
    above = std::move(below);
    return ERROR_SUCCESS;
}
} // namespace

LSTATUS keypath::openFound(HKEY root, const wchar_t* path, std::size_t rootLength, REGSAM access,
                           HKEY* opened)
{
    // Opened in one step, and name by name from the walk's root on; both must yield the same key.
    HKEY direct = nullptr;
    LSTATUS status = open(root, path, REG_OPTION_OPEN_LINK, access, &direct);
    if (status != ERROR_SUCCESS)
        return status;
    if (isStandIn(direct, root))
        return ERROR_NOT_SUPPORTED;
    const RegistryKeyHandle owned(direct);
    const std::wstring_view whole(path);
    const REGSAM passing = MAXIMUM_ALLOWED | (access & kViews);
    std::wstring above;
    RegistryKeyHandle key;
    const std::wstring top(whole.substr(0, whole.substr(0, rootLength).find_last_not_of(L'\\') + 1));
    if (!top.empty()) {
        HKEY topKey = nullptr;
        status = open(root, top.c_str(), 0, passing, &topKey);
        if (status != ERROR_SUCCESS)
            return status;
        key.reset(topKey);
        above = requireName(topKey);
    }
    std::size_t end = top.size();
    for (;;) {
        const std::size_t begin = whole.find_first_not_of(L'\\', end);
        if (begin == std::wstring_view::npos)
            break;
        end = std::min(whole.find(L'\\', begin), whole.size());
        const bool isLast = whole.find_first_not_of(L'\\', end) == std::wstring_view::npos;
        status = stepDown(key, above, key.isValid() ? key.get() : root,
                          std::wstring(whole.substr(begin, end - begin)), isLast ? access : passing, isLast);
        if (status != ERROR_SUCCESS)
            return isMissing(status) ? kStoppedOnSymlink : status;
    }
    if (above != requireName(direct))
        return kStoppedOnSymlink;
    *opened = key.release();
    return ERROR_SUCCESS;
}

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

bool keypath::isUserClassesName(std::wstring_view systemName) noexcept
{
    constexpr std::wstring_view kUsers = L"\\REGISTRY\\USER\\";
    const std::size_t closing = kUserClasses.size() + 1;
    return systemName.size() > kUsers.size() + closing &&
           _wcsnicmp(systemName.data(), kUsers.data(), kUsers.size()) == 0 &&
           systemName.find(L'\\', kUsers.size()) == systemName.size() - closing &&
           _wcsnicmp(systemName.data() + systemName.size() - kUserClasses.size(), kUserClasses.data(),
                     kUserClasses.size()) == 0;
}

bool keypath::isUserClasses(const std::wstring& hive, const std::wstring& systemName)
{
    return !hive.empty() && _wcsicmp(systemName.c_str(), (hive + L"_Classes").c_str()) == 0;
}

bool keypath::isMissing(long status) noexcept
{
    return status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND || status == ERROR_KEY_DELETED;
}

bool keypath::isStandIn(HKEY opened, HKEY root) noexcept
{
    return isPredefined(opened) && opened != root; // an empty path returns a predefined root itself
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
    std::wstring name;
    static_cast<void>(queryName(key, name)); // on failure the name stays empty
    return name;
}

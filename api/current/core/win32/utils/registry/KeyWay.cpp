#include "core/win32/utils/registry/include/KeyWay.h"

#include <algorithm>

#include "core/win32/registry/include/KeyPath.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/strings/include/Strings.h"

namespace {
/// Whether the link from `from` to `to` is one of the system's. The owner of a hive may create links in it,
/// so both ends are checked.
bool isSystemLink(std::wstring_view from, const std::wstring& to)
{
    constexpr std::wstring_view kSets = LR"(\REGISTRY\MACHINE\SYSTEM\ControlSet)";
    if (strings::equalsIgnoringCase(from, LR"(\REGISTRY\MACHINE\SYSTEM\CurrentControlSet)"))
        return strings::startsWith(to, kSets, true) && to.find(L'\\', kSets.size()) == std::wstring::npos;
    constexpr std::wstring_view kUsers = LR"(\REGISTRY\USER\)";
    constexpr std::wstring_view kClasses = LR"(\Software\Classes)";
    if (strings::startsWith(from, kUsers, true) && strings::endsWith(from, kClasses, true)) {
        const std::wstring_view hive = from.substr(0, from.size() - kClasses.size());
        return strings::equalsIgnoringCase(to, std::wstring(hive) + L"_Classes");
    }
    // The views share keys through links from one to the other.
    constexpr std::wstring_view kSoftware = LR"(\REGISTRY\MACHINE\SOFTWARE\)";
    const auto inBothViews = [&](std::wstring_view name) {
        return strings::startsWith(name, kSoftware, true)
                   ? strings::replaceAll(name, LR"(\Wow6432Node)", L"", true)
                   : std::wstring();
    };
    const std::wstring shared = inBothViews(from);
    return !shared.empty() && strings::equalsIgnoringCase(shared, inBothViews(to));
}

RegistryKeyHandle opened(HKEY above, const std::wstring& name, DWORD options, REGSAM access)
{
    HKEY key = nullptr;
    requireSuccess(RegOpenKeyExW(above, name.c_str(), options, access, &key));
    RegistryKeyHandle handle(key);
    if (keypath::isStandIn(key, above))
        raiseCode(ERROR_NOT_SUPPORTED);
    return handle;
}
} // namespace

bool keyway::isLink(HKEY opened)
{
    DWORD type = REG_NONE;
    const LSTATUS status = RegQueryValueExW(opened, L"SymbolicLinkValue", nullptr, &type, nullptr, nullptr);
    if (status == ERROR_FILE_NOT_FOUND)
        return false;
    requireSuccess(status);
    return type == REG_LINK;
}

RegistryKeyHandle KeyWay::step(HKEY above, const std::wstring& name, bool makes) const
{
    const REGSAM access = MAXIMUM_ALLOWED | m_view;
    RegistryKeyHandle key;
    while (!key.isValid()) {
        try {
            key = opened(above, name, REG_OPTION_OPEN_LINK, access);
        } catch (long code) {
            if (!makes || !keypath::isMissing(code))
                throw;
            HKEY made = nullptr;
            DWORD disposition = 0;
            requireSuccess(RegCreateKeyExW(above, name.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access,
                                           nullptr, &made, &disposition));
            key.reset(made);
            if (disposition == REG_CREATED_NEW_KEY)
                return key;
            key.reset(); // somebody else created it meanwhile, maybe as a link
        }
    }
    if (!keyway::isLink(key.get()))
        return key;
    const std::wstring link = keypath::nameOf(key.get());
    key = opened(above, name, 0, access);
    if (!isSystemLink(link, keypath::nameOf(key.get())))
        raiseCode(kStoppedOnSymlink);
    return key;
}

HKEY KeyWay::go(std::wstring_view path, bool makes)
{
    std::vector<std::wstring> names = paths::namesOf(path);
    if (std::any_of(names.begin(), names.end(),
                    [](const std::wstring& name) { return name.size() > keyway::kLongestName; }))
        raiseCode(ERROR_FILENAME_EXCED_RANGE);
    std::size_t kept = 0;
    while (kept < m_steps.size() && kept < names.size() &&
           strings::equalsIgnoringCase(m_steps[kept].name, names[kept]))
        ++kept;
    m_steps.resize(kept);
    for (; kept < names.size(); ++kept) {
        RegistryKeyHandle key = step(last(), names[kept], makes);
        m_steps.push_back({std::move(names[kept]), std::move(key)});
    }
    return last();
}

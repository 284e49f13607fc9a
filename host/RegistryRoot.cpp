#include "RegistryRoot.h"

namespace {
const struct
{
    const wchar_t* names[2];
    HKEY root;
} kRoots[] = {
    {{L"HKLM", L"HKEY_LOCAL_MACHINE"}, HKEY_LOCAL_MACHINE},
    {{L"HKCU", L"HKEY_CURRENT_USER"}, HKEY_CURRENT_USER},
    {{L"HKCR", L"HKEY_CLASSES_ROOT"}, HKEY_CLASSES_ROOT},
    {{L"HKU", L"HKEY_USERS"}, HKEY_USERS},
    {{L"HKCC", L"HKEY_CURRENT_CONFIG"}, HKEY_CURRENT_CONFIG},
};
} // namespace

std::optional<RegistryRoot> parseRegistryRoot(const std::wstring& text)
{
    const std::wstring name = text.substr(0, text.find(L'\\'));
    for (const auto& known : kRoots)
        for (const wchar_t* each : known.names)
            if (_wcsicmp(each, name.c_str()) == 0)
                return RegistryRoot{known.root,
                                    name.size() < text.size() ? text.substr(name.size() + 1) : L""};
    return std::nullopt;
}

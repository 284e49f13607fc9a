#include "Rules.h"

#include <algorithm>
#include <cwctype>

#include "Console.h"

#include "core/win32/utils/scanengine/api.h"

namespace {
/// What is wrong with an entry; empty when it is right.
std::wstring faultOf(const std::wstring& entry)
{
    const std::size_t colon = entry.find(L':');
    if (colon == std::wstring::npos)
        return L"";
    const std::wstring digits = entry.substr(colon + 1);
    if (colon == 1 && std::iswalpha(entry[0]) != 0 && digits.find_first_of(L"\\/") == 0)
        return L"drive paths cannot be entries, because an entry's pattern ends at its first ':'; "
               L"a pattern for full paths is for example *\\keep\\*:001";
    if (digits.size() != 3 || digits.find_first_not_of(L"0123456789") != std::wstring::npos)
        return L"its first ':' must be followed by exactly three digits";
    if (digits[0] > L'1' || digits[1] > L'1' || digits[2] > L'2')
        return L"its digits are 0 or 1, the third also 2";
    return colon == 0 ? L"there is no pattern before its ':'" : L"";
}

/// "--filter: entry 2, "*.tmp""
std::wstring nameOf(const wchar_t* option, std::size_t number, const std::wstring& entry)
{
    return std::wstring(option) + L": entry " + std::to_wstring(number) + L", \"" + printable(entry) + L"\"";
}

/// Checks every entry of one option's text.
void checkEntries(const Arguments& arguments, const wchar_t* option)
{
    if (!arguments.has(option))
        return;
    const std::wstring text = arguments.value(option, L"");
    std::size_t number = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(L',', at), text.size());
        const std::wstring entry = text.substr(at, end - at);
        at = end + 1;
        if (entry.empty())
            continue;
        ++number;
        const std::wstring name = nameOf(option, number, entry);
        const std::wstring fault = faultOf(entry);
        if (!fault.empty())
            throw UsageError{std::wstring(name).append(L": ").append(fault)};
        const std::wstring pattern = entry.substr(0, entry.find(L':'));
        if (std::iswspace(pattern.front()) != 0 || std::iswspace(pattern.back()) != 0)
            messages().writeLine(L"warning: " + name + L": the blanks around it are part of the pattern");
    }
    if (number == 0)
        throw UsageError{std::wstring(option) + L" holds no entry; is a variable not set?"};
}
} // namespace

SharedPtr<IScanValidator> makeValidator(const Arguments& arguments)
{
    checkEntries(arguments, L"--filter");
    checkEntries(arguments, L"--ignore");
    SharedPtr<IScanValidator> validator(DllGetScanValidator(arguments.value(L"--filter", L"").c_str(),
                                                            arguments.value(L"--ignore", L"").c_str()));
    if (!validator)
        throw static_cast<long>(ERROR_NOT_ENOUGH_MEMORY);
    return validator;
}

#include "core/win32/utils/paths/include/Variables.h"

#include <windows.h>

#include <algorithm>

#include "core/win32/utils/objectmanager/include/SystemText.h"

std::wstring variables::expand(std::wstring_view text, const Lookup& lookup)
{
    std::wstring result;
    for (;;) {
        const std::size_t begin = std::min(text.find(L'%'), text.size());
        result.append(text.substr(0, begin));
        text.remove_prefix(begin);
        const std::size_t end = text.find(L'%', 1);
        if (end == std::wstring_view::npos)
            return result.append(text);
        const std::optional<std::wstring> value =
            end > 1 ? lookup(std::wstring(text.substr(1, end - 1))) : std::nullopt;
        result.append(value ? std::wstring_view(*value) : text.substr(0, end + 1));
        text.remove_prefix(end + 1);
    }
}

std::wstring variables::expand(std::wstring_view text)
{
    return expand(text, ofProcess);
}

std::optional<std::wstring> variables::ofProcess(const std::wstring& name)
{
    if (GetEnvironmentVariableW(name.c_str(), nullptr, 0) == 1) // an empty one has its terminator
        return std::wstring();
    try {
        return systemText(
            [&](wchar_t* text, DWORD size) { return GetEnvironmentVariableW(name.c_str(), text, size); });
    } catch (long code) {
        if (code != ERROR_ENVVAR_NOT_FOUND)
            throw;
        return std::nullopt;
    }
}

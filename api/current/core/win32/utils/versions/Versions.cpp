#include "core/win32/utils/versions/include/Versions.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <vector>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/paths/include/Win32Path.h"

extern "C" NTSYSAPI LONG NTAPI RtlGetVersion(OSVERSIONINFOW* version);

namespace {
/// The version resource of one file.
class VersionInfo
{
public:
    explicit VersionInfo(const wchar_t* path) : m_library(L"version.dll")
    {
        const Win32Path target(path);
        DWORD handle = 0;
        const DWORD size = m_library.function<decltype(&GetFileVersionInfoSizeW)>("GetFileVersionInfoSizeW")(
            target, &handle);
        if (size == 0)
            raiseLastError();
        m_data.resize(size);
        if (!m_library.function<decltype(&GetFileVersionInfoW)>("GetFileVersionInfoW")(target, 0, size,
                                                                                       m_data.data()))
            raiseLastError();
    }

    /// The value `name`, or null. A hostile resource may give a false length.
    const void* find(const std::wstring& name, std::size_t& length) const
    {
        void* value = nullptr;
        UINT size = 0;
        if (!m_library.function<decltype(&VerQueryValueW)>("VerQueryValueW")(m_data.data(), name.c_str(),
                                                                             &value, &size))
            return nullptr;
        const auto* begin = static_cast<const unsigned char*>(value);
        const unsigned char* end = m_data.data() + m_data.size();
        if (begin < m_data.data() || begin > end)
            return nullptr;
        length = std::min<std::size_t>(size, static_cast<std::size_t>(end - begin));
        return value;
    }
    /// A text of at most `length` characters, up to its zero.
    bool findText(const std::wstring& name, std::wstring& text) const
    {
        std::size_t length = 0;
        const void* found = find(name, length);
        if (found == nullptr)
            return false;
        const std::size_t room = static_cast<std::size_t>(m_data.data() + m_data.size() -
                                                          static_cast<const unsigned char*>(found));
        text.resize(std::min(length, room / sizeof(wchar_t)));
        if (!text.empty())
            std::memcpy(text.data(), found, text.size() * sizeof(wchar_t));
        text.resize(std::min(text.find(L'\0'), text.size()));
        return true;
    }

private:
    SystemLibrary m_library;
    std::vector<unsigned char> m_data;
};

/// Removes the next number from the front of a version and returns it without leading zeros. A version that
/// has ended yields nothing, which counts as zero.
std::wstring_view takeField(std::wstring_view& rest)
{
    std::wstring_view field = rest.substr(0, rest.find(L'.'));
    if (field.find_first_not_of(L"0123456789") != std::wstring_view::npos)
        raiseCode(ERROR_INVALID_PARAMETER);
    rest.remove_prefix(std::min(field.size() + 1, rest.size()));
    field.remove_prefix(std::min(field.find_first_not_of(L'0'), field.size()));
    return field;
}

void requireVersion(std::wstring_view text)
{
    if (text.empty() || text.front() == L'.' || text.back() == L'.' ||
        text.find(L"..") != std::wstring_view::npos)
        raiseCode(ERROR_INVALID_PARAMETER);
}
} // namespace

namespace versions {
std::tuple<unsigned long long, std::wstring> ofFile(const wchar_t* path)
{
    const VersionInfo info(path);
    std::size_t length = 0;
    VS_FIXEDFILEINFO fixed;
    const void* found = info.find(L"\\", length);
    if (found == nullptr || length < sizeof fixed)
        raiseCode(ERROR_RESOURCE_TYPE_NOT_FOUND);
    std::memcpy(&fixed, found, sizeof fixed);
    std::wstring text;
    for (const DWORD part : {fixed.dwFileVersionMS, fixed.dwFileVersionLS})
        text += (text.empty() ? L"" : L".") + std::to_wstring(HIWORD(part)) + L"." +
                std::to_wstring(LOWORD(part));
    return {static_cast<unsigned long long>(fixed.dwFileVersionMS) << 32U | fixed.dwFileVersionLS, text};
}

std::wstring fileString(const wchar_t* path, const wchar_t* name)
{
    const VersionInfo info(path);
    std::vector<std::wstring> languages;
    std::size_t length = 0;
    const void* found = info.find(LR"(\VarFileInfo\Translation)", length);
    wchar_t language[16];
    if (found != nullptr && length >= 2 * sizeof(WORD)) {
        WORD codes[2];
        std::memcpy(codes, found, sizeof codes);
        std::swprintf(language, 16, L"%04x%04x", codes[0], codes[1]);
        languages.emplace_back(language);
    }
    // Used by files that declare no language, or a wrong one.
    languages.insert(languages.end(), {L"040904b0", L"040904e4", L"04090000", L"000004b0"});
    std::wstring text;
    for (const std::wstring& each : languages)
        if (info.findText(LR"(\StringFileInfo\)" + each + L"\\" + name, text))
            return text;
    raiseCode(ERROR_RESOURCE_NAME_NOT_FOUND);
}

int compare(std::wstring_view first, std::wstring_view second)
{
    requireVersion(first);
    requireVersion(second);
    int order = 0;
    while (!first.empty() || !second.empty()) { // to the end, so that both are checked
        const std::wstring_view left = takeField(first);
        const std::wstring_view right = takeField(second);
        if (order == 0 && left != right)
            order =
                left.size() != right.size() ? (left.size() < right.size() ? -1 : 1) : (left < right ? -1 : 1);
    }
    return order;
}

std::tuple<unsigned long, unsigned long, unsigned long, bool> ofSystem()
{
    OSVERSIONINFOEXW version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (RtlGetVersion(reinterpret_cast<OSVERSIONINFOW*>(&version)) != 0)
        raiseCode(ERROR_GEN_FAILURE);
    return {version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber,
            version.wProductType != VER_NT_WORKSTATION};
}
} // namespace versions

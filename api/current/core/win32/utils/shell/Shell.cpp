#include "core/win32/utils/shell/include/Shell.h"

#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>
#include <shobjidl.h>

#include <cstring>
#include <cwchar>
#include <memory>
#include <vector>

#include "core/win32/utils/files/include/Files.h"
#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/paths/include/Paths.h"
#include "core/win32/utils/paths/include/ShellFolder.h"
#include "core/win32/utils/paths/include/Variables.h"
#include "core/win32/utils/security/include/Security.h"

namespace {
constexpr std::size_t kLongestText = 65536;      // the longest text in a shortcut, with its terminator
constexpr std::size_t kLongestArguments = 32767; // as for any command line, including the terminator

/// Raises the equivalent Win32 code, or `otherwise` for an unspecific failure.
void requireResult(HRESULT result, long otherwise = ERROR_GEN_FAILURE)
{
    constexpr long kLastOfStorage = 0x70; // up to here they are the numbers of Win32
    const long code = HRESULT_CODE(result);
    if (SUCCEEDED(result))
        return;
    if (HRESULT_FACILITY(result) == FACILITY_WIN32 ||
        (HRESULT_FACILITY(result) == FACILITY_STORAGE && code <= kLastOfStorage))
        raiseCode(code);
    raiseCode(result == E_NOTIMPL || result == E_NOINTERFACE || result == REGDB_E_CLASSNOTREG
                  ? ERROR_NOT_SUPPORTED
                  : otherwise);
}

struct Release
{
    void operator()(IUnknown* object) const noexcept { object->Release(); }
};
template <class T>
using ComPtr = std::unique_ptr<T, Release>;

/// COM on the calling thread, which may already have an apartment of either kind.
class ComScope
{
public:
    ComScope() : m_library(L"ole32.dll")
    {
        const HRESULT result = m_library.function<decltype(&CoInitializeEx)>("CoInitializeEx")(
            nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
        m_isOurs = SUCCEEDED(result);
        if (result != RPC_E_CHANGED_MODE)
            requireResult(result);
    }
    ComScope(const ComScope&) = delete;
    ComScope& operator=(const ComScope&) = delete;
    ~ComScope()
    {
        if (m_isOurs)
            m_library.function<decltype(&CoUninitialize)>("CoUninitialize")();
    }

    template <class Function>
    [[nodiscard]] Function function(const char* name) const
    {
        return m_library.function<Function>(name);
    }
    template <class T>
    [[nodiscard]] ComPtr<T> create(const CLSID& id) const
    {
        void* made = nullptr;
        requireResult(function<decltype(&CoCreateInstance)>("CoCreateInstance")(
            id, nullptr, CLSCTX_INPROC_SERVER, __uuidof(T), &made));
        return ComPtr<T>(static_cast<T*>(made));
    }

private:
    SystemLibrary m_library;
    bool m_isOurs = false;
};

template <class T>
ComPtr<T> asked(IUnknown& object)
{
    void* found = nullptr;
    requireResult(object.QueryInterface(__uuidof(T), &found));
    return ComPtr<T>(static_cast<T*>(found));
}

/// Whether a file begins like a shortcut: with the length of its header, and its class.
bool isShortcut(const std::vector<unsigned char>& file)
{
    constexpr DWORD kHeaderSize = 0x4C;
    struct
    {
        DWORD size;
        CLSID id;
    } begin;
    if (file.size() < kHeaderSize)
        return false;
    std::memcpy(&begin, file.data(), sizeof begin);
    return begin.size == kHeaderSize && IsEqualGUID(begin.id, CLSID_ShellLink);
}

/// Raises 80 for an existing file that is not a shortcut.
void requireReplaceable(const std::wstring& path)
{
    constexpr unsigned long long kMost = 1U << 20U; // no shortcut is that large
    try {
        if (!isShortcut(files::readAll(path.c_str(), kMost)))
            raiseCode(ERROR_FILE_EXISTS);
    } catch (long code) {
        if (code == ERROR_FILE_TOO_LARGE)
            raiseCode(ERROR_FILE_EXISTS);
        // Whether it is a folder shows when it is written.
        if (code != ERROR_FILE_NOT_FOUND && code != ERROR_PATH_NOT_FOUND && code != ERROR_ACCESS_DENIED)
            throw;
    }
}

/// The bytes that an object saves to a stream.
std::vector<unsigned char> savedBytes(const ComScope& com, IUnknown& object)
{
    IStream* made = nullptr;
    requireResult(
        com.function<decltype(&CreateStreamOnHGlobal)>("CreateStreamOnHGlobal")(nullptr, TRUE, &made));
    const ComPtr<IStream> stream(made);
    requireResult(asked<IPersistStream>(object)->Save(stream.get(), TRUE));
    STATSTG state{};
    requireResult(stream->Stat(&state, STATFLAG_NONAME));
    requireResult(stream->Seek({}, STREAM_SEEK_SET, nullptr));
    std::vector<unsigned char> bytes(static_cast<std::size_t>(state.cbSize.QuadPart));
    ULONG read = 0;
    requireResult(stream->Read(bytes.data(), static_cast<ULONG>(bytes.size()), &read));
    bytes.resize(read);
    return bytes;
}

/// The shell's library, which stays loaded: it leaves its own windows and threads behind.
SystemLibrary shellLibrary()
{
    SystemLibrary library(L"shell32.dll");
    SystemLibrary(L"shell32.dll").keep();
    return library;
}

ComPtr<IShellLinkW> loadedLink(const ComScope& com, const wchar_t* link)
{
    ComPtr<IShellLinkW> shortcut = com.create<IShellLinkW>(CLSID_ShellLink);
    requireResult(asked<IPersistFile>(*shortcut)->Load(paths::normalize(link).c_str(), STGM_READ),
                  ERROR_INVALID_DATA);
    return shortcut;
}
} // namespace

namespace shell {
std::wstring folder(int number, unsigned long session)
{
    constexpr unsigned long kOwn = 0xFFFFFFFF;
    if (session == kOwn)
        return shellFolder(number);
    return shellFolder(number, sessions::userToken(session).get());
}

void createShortcut(const wchar_t* link, const wchar_t* target, const wchar_t* arguments, const wchar_t* icon,
                    int iconIndex)
{
    const std::wstring path = paths::normalize(link);
    if (*target == L'\0')
        raiseCode(ERROR_INVALID_PARAMETER);
    // The shell would cut them.
    if (std::wcslen(target) >= MAX_PATH || (icon != nullptr && std::wcslen(icon) >= MAX_PATH) ||
        (arguments != nullptr && std::wcslen(arguments) >= kLongestArguments))
        raiseCode(ERROR_FILENAME_EXCED_RANGE);
    const ComScope com;
    const ComPtr<IShellLinkW> shortcut = com.create<IShellLinkW>(CLSID_ShellLink);
    requireResult(shortcut->SetPath(target), ERROR_INVALID_PARAMETER);
    if (arguments != nullptr)
        requireResult(shortcut->SetArguments(arguments));
    if (icon != nullptr)
        requireResult(shortcut->SetIconLocation(icon, iconIndex));
    const std::vector<unsigned char> bytes = savedBytes(com, *shortcut);
    requireReplaceable(path);
    files::writeAtomically(path.c_str(), {bytes.data(), bytes.size()});
}

std::tuple<std::wstring, std::wstring, std::wstring> readShortcut(const wchar_t* link)
{
    const ComScope com;
    const ComPtr<IShellLinkW> shortcut = loadedLink(com, link);
    const auto text = [](auto&& ask) {
        std::wstring buffer(kLongestText, L'\0');
        requireResult(ask(buffer.data(), static_cast<int>(buffer.size())));
        buffer.resize(buffer.find(L'\0'));
        return buffer;
    };
    return {text([&](wchar_t* t, int n) { return shortcut->GetPath(t, n, nullptr, SLGP_RAWPATH); }),
            text([&](wchar_t* t, int n) { return shortcut->GetArguments(t, n); }),
            text([&](wchar_t* t, int n) { return shortcut->GetWorkingDirectory(t, n); })};
}

bool isShortcutBroken(const wchar_t* link)
{
    // Only read, not resolved: resolving would search, and might ask the user.
    const std::wstring raw = std::get<0>(readShortcut(link));
    if (raw.empty())
        return false; // the target is not a file
    const std::wstring path = paths::normalize(variables::expand(raw));
    // Shares, media and missing drives may come back.
    if (path.size() < 3 || path[1] != L':' || GetDriveTypeW(path.substr(0, 3).c_str()) != DRIVE_FIXED)
        return false;
    return GetFileAttributesW(paths::toExtendedForm(path.c_str()).c_str()) == INVALID_FILE_ATTRIBUTES &&
           (GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND);
}

std::tuple<unsigned long long, unsigned long long> queryBin(const wchar_t* drive)
{
    SHQUERYRBINFO information{};
    information.cbSize = sizeof information;
    requireResult(
        shellLibrary().function<decltype(&SHQueryRecycleBinW)>("SHQueryRecycleBinW")(drive, &information));
    return {static_cast<unsigned long long>(information.i64Size),
            static_cast<unsigned long long>(information.i64NumItems)};
}

void emptyBin(const wchar_t* drive, HANDLE cancelEvent)
{
    requireEvent(cancelEvent);
    if (std::get<1>(queryBin(drive)) == 0)
        return; // the shell would return a failure
    requireResult(shellLibrary().function<decltype(&SHEmptyRecycleBinW)>("SHEmptyRecycleBinW")(
        nullptr, drive, SHERB_NOCONFIRMATION | SHERB_NOPROGRESSUI | SHERB_NOSOUND));
}

std::wstring typeName(const wchar_t* path)
{
    const std::wstring target = paths::normalize(path);
    SHFILEINFOW information{};
    if (shellLibrary().function<decltype(&SHGetFileInfoW)>("SHGetFileInfoW")(
            target.c_str(), 0, &information, sizeof information, SHGFI_TYPENAME) == 0)
        raiseCode(ERROR_FILE_NOT_FOUND);
    return information.szTypeName;
}

void openFolder(const wchar_t* folder, const wchar_t* item)
{
    const ComScope com;
    const SystemLibrary library = shellLibrary();
    const auto parse = library.function<decltype(&SHParseDisplayName)>("SHParseDisplayName");
    const auto release = library.function<decltype(&ILFree)>("ILFree");
    using List = std::unique_ptr<ITEMIDLIST, decltype(release)>;
    const auto parsed = [&](const std::wstring& path) {
        LPITEMIDLIST list = nullptr;
        requireResult(parse(path.c_str(), nullptr, &list, 0, nullptr));
        return List(list, release);
    };
    const std::wstring path = paths::normalize(folder);
    const List place = parsed(path);
    const List selected =
        item != nullptr ? parsed(paths::combineParts(path, item, true)) : List(nullptr, release);
    LPCITEMIDLIST items[] = {selected.get()};
    requireResult(library.function<decltype(&SHOpenFolderAndSelectItems)>("SHOpenFolderAndSelectItems")(
        place.get(), selected ? 1 : 0, items, 0));
}
} // namespace shell

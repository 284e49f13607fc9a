#include "core/win32/utils/paths/include/ShellFolder.h"

#include <shlobj.h>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/paths/include/UserSession.h"

namespace {
/// Whose folders are meant: those of the user that the thread impersonates, otherwise the current user's.
/// Empty for the process's own.
Win32Handle userToken()
{
    HANDLE token = nullptr;
    if (OpenThreadToken(GetCurrentThread(), TOKEN_QUERY | TOKEN_IMPERSONATE, TRUE, &token))
        return Win32Handle(token);
    return usersession::token();
}
} // namespace

// The shell's library is large and seldom needed, so it is loaded here, not together with ours.
std::wstring shellFolder(int number, HANDLE token)
{
    const SystemLibrary shell(L"shell32.dll");
    const auto getFolderPath = shell.function<decltype(&SHGetFolderPathW)>("SHGetFolderPathW");
    const bool isMachines = number == CSIDL_PROGRAM_FILES || number == CSIDL_COMMON_APPDATA;
    const Win32Handle own = token != nullptr || isMachines ? Win32Handle() : userToken();
    wchar_t folder[MAX_PATH];
    const HRESULT result = getFolderPath(nullptr, number | CSIDL_FLAG_DONT_VERIFY,
                                         token != nullptr ? token : own.get(), SHGFP_TYPE_CURRENT, folder);
    if (result != S_OK || folder[0] == L'\0') // S_FALSE means a folder that does not exist
        raiseCode(FAILED(result) && HRESULT_CODE(result) != 0 ? HRESULT_CODE(result) : ERROR_PATH_NOT_FOUND);
    return folder;
}

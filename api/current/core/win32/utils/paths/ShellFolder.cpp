#include "core/win32/utils/paths/include/ShellFolder.h"

#include <shlobj.h>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"

// The shell's library is large and seldom needed, so it is loaded here and not with ours.
std::wstring shellFolder(int number, HANDLE token)
{
    const SystemLibrary shell(L"shell32.dll");
    const auto getFolderPath = shell.function<decltype(&SHGetFolderPathW)>("SHGetFolderPathW");
    HANDLE threadToken = nullptr;
    if (token == nullptr)
        OpenThreadToken(GetCurrentThread(), TOKEN_QUERY | TOKEN_IMPERSONATE, TRUE, &threadToken);
    const Win32Handle own(threadToken); // none unless the thread impersonates
    wchar_t folder[MAX_PATH];
    const HRESULT result = getFolderPath(nullptr, number | CSIDL_FLAG_DONT_VERIFY,
                                         token != nullptr ? token : own.get(), SHGFP_TYPE_CURRENT, folder);
    if (result != S_OK || folder[0] == L'\0') // S_FALSE is a folder that is not there
        raiseCode(FAILED(result) && HRESULT_CODE(result) != 0 ? HRESULT_CODE(result) : ERROR_PATH_NOT_FOUND);
    return folder;
}

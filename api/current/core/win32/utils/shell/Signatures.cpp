#include <windows.h>

#include <wincrypt.h>

#include <mscat.h>
#include <softpub.h>
#include <wintrust.h>

#include <vector>

#include "core/win32/utils/objectmanager/include/SystemLibrary.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/shell/include/Shell.h"
#include "core/win32/utils/strings/include/Strings.h"

namespace {
/// The signer, while the verification's state exists; empty when that does not tell.
std::wstring signerOf(const SystemLibrary& trust, HANDLE state)
{
    CRYPT_PROVIDER_DATA* data =
        trust.function<decltype(&WTHelperProvDataFromStateData)>("WTHelperProvDataFromStateData")(state);
    CRYPT_PROVIDER_SGNR* signer = data == nullptr ? nullptr
                                                  : trust.function<decltype(&WTHelperGetProvSignerFromChain)>(
                                                        "WTHelperGetProvSignerFromChain")(data, 0, FALSE, 0);
    if (signer == nullptr || signer->csCertChain == 0 || signer->pasCertChain == nullptr)
        return {};
    const SystemLibrary crypto(L"crypt32.dll");
    std::wstring name(512, L'\0');
    const DWORD length = crypto.function<decltype(&CertGetNameStringW)>("CertGetNameStringW")(
        signer->pasCertChain[0].pCert, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name.data(),
        static_cast<DWORD>(name.size()));
    name.resize(length > 0 ? length - 1 : 0);
    return name;
}

std::tuple<long, std::wstring> verify(const SystemLibrary& trust, WINTRUST_DATA& data)
{
    const auto call = trust.function<LONG(WINAPI*)(HWND, GUID*, void*)>("WinVerifyTrust");
    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    const auto nobody = static_cast<HWND>(INVALID_HANDLE_VALUE); // never shows a window
    data.cbStruct = sizeof data;
    data.dwUIChoice = WTD_UI_NONE;
    data.fdwRevocationChecks = WTD_REVOKE_NONE;
    data.dwStateAction = WTD_STATEACTION_VERIFY;
    data.dwProvFlags = WTD_CACHE_ONLY_URL_RETRIEVAL; // fetches nothing
    const long code = call(nobody, &action, &data);
    std::wstring signer;
    if (code != static_cast<long>(TRUST_E_NOSIGNATURE) && data.hWVTStateData != nullptr)
        signer = signerOf(trust, data.hWVTStateData);
    data.dwStateAction = WTD_STATEACTION_CLOSE;
    call(nobody, &action, &data);
    return {code, signer};
}

/// The verdict of a system catalogue that lists the file.
std::tuple<long, std::wstring> verifyByCatalogue(const SystemLibrary& trust, HANDLE file,
                                                 const std::wstring& path)
{
    HCATADMIN admin = nullptr;
    if (!trust.function<decltype(&CryptCATAdminAcquireContext)>("CryptCATAdminAcquireContext")(&admin,
                                                                                               nullptr, 0))
        return {static_cast<long>(TRUST_E_NOSIGNATURE), L""};
    std::tuple<long, std::wstring> result = {static_cast<long>(TRUST_E_NOSIGNATURE), L""};
    BYTE hash[64];
    DWORD size = sizeof hash;
    HCATINFO catalogue = nullptr;
    if (trust.function<decltype(&CryptCATAdminCalcHashFromFileHandle)>("CryptCATAdminCalcHashFromFileHandle")(
            file, &size, hash, 0))
        catalogue = trust.function<decltype(&CryptCATAdminEnumCatalogFromHash)>(
            "CryptCATAdminEnumCatalogFromHash")(admin, hash, size, 0, nullptr);
    CATALOG_INFO found{};
    found.cbStruct = sizeof found;
    if (catalogue != nullptr && trust.function<decltype(&CryptCATCatalogInfoFromContext)>(
                                    "CryptCATCatalogInfoFromContext")(catalogue, &found, 0)) {
        const std::wstring tag = strings::toUpper(strings::formatHex({hash, size}));
        WINTRUST_CATALOG_INFO member{};
        member.cbStruct = sizeof member;
        member.pcwszCatalogFilePath = found.wszCatalogFile;
        member.pcwszMemberTag = tag.c_str();
        member.pcwszMemberFilePath = path.c_str();
        member.hMemberFile = file;
        member.pbCalculatedFileHash = hash;
        member.cbCalculatedFileHash = size;
        WINTRUST_DATA data{};
        data.dwUnionChoice = WTD_CHOICE_CATALOG;
        data.pCatalog = &member;
        result = verify(trust, data);
    }
    if (catalogue != nullptr)
        trust.function<decltype(&CryptCATAdminReleaseCatalogContext)>("CryptCATAdminReleaseCatalogContext")(
            admin, catalogue, 0);
    trust.function<decltype(&CryptCATAdminReleaseContext)>("CryptCATAdminReleaseContext")(admin, 0);
    return result;
}
} // namespace

std::tuple<long, std::wstring> signatures::verifyFile(const wchar_t* path)
{
    const std::wstring target = settledPath(path);
    // One handle for everything, so the same file is verified.
    const Win32Handle file(
        CreateFileW(target.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!file.isValid())
        raiseLastError();
    const SystemLibrary trust(L"wintrust.dll");
    WINTRUST_FILE_INFO information{};
    information.cbStruct = sizeof information;
    information.pcwszFilePath = target.c_str();
    information.hFile = file.get();
    WINTRUST_DATA data{};
    data.dwUnionChoice = WTD_CHOICE_FILE;
    data.pFile = &information;
    std::tuple<long, std::wstring> result = verify(trust, data);
    if (std::get<0>(result) == static_cast<long>(TRUST_E_NOSIGNATURE))
        result = verifyByCatalogue(trust, file.get(), target);
    return result;
}

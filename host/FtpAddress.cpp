#include "FtpAddress.h"

#include <set>
#include <tuple>

#include "Command.h"
#include "Console.h"

namespace {
constexpr const wchar_t* kPasswordVariable = L"SYSMAINT_FTP_PASSWORD";

unsigned short parsePort(const std::wstring& digits)
{
    const bool isNumber = !digits.empty() && digits.size() <= 5 &&
                          digits.find_first_not_of(L"0123456789") == std::wstring::npos;
    const unsigned long port = isNumber ? std::stoul(digits) : 0;
    if (port == 0 || port > 65535)
        throw UsageError{L"the port of an FTP server is a number from 1 to 65535"};
    return static_cast<unsigned short>(port);
}
/// Of the password in the environment, in characters with a zero; 0 if there is none.
DWORD passwordRoom()
{
    return GetEnvironmentVariableW(kPasswordVariable, nullptr, 0);
}
} // namespace

std::optional<FtpAddress> parseFtpAddress(const std::wstring& text)
{
    constexpr std::wstring_view kScheme = L"ftp://";
    if (text.size() < kScheme.size() || _wcsnicmp(text.c_str(), kScheme.data(), kScheme.size()) != 0) {
        const std::size_t scheme = text.find(L"://");
        if (scheme != std::wstring::npos && scheme > 1 && text.find_first_of(L"\\/.:") == scheme)
            throw UsageError{L"of addresses only those with ftp:// are known"};
        return {};
    }
    FtpAddress address;
    const std::size_t slash = text.find(L'/', kScheme.size());
    std::wstring server = text.substr(kScheme.size(), slash - kScheme.size());
    address.path = slash != std::wstring::npos ? text.substr(slash) : L"/";
    if (const std::size_t at = server.rfind(L'@'); at != std::wstring::npos) {
        address.user = server.substr(0, at);
        server.erase(0, at + 1);
        // It would stand in the list of processes and in the shell's history.
        if (address.user.find(L':') != std::wstring::npos)
            throw UsageError{L"the password is asked for, or taken from SYSMAINT_FTP_PASSWORD"};
    }
    const std::size_t bracket = server.rfind(L']');
    const std::size_t colon = server.rfind(L':');
    if (colon != std::wstring::npos && (bracket == std::wstring::npos || colon > bracket)) {
        address.port = parsePort(server.substr(colon + 1));
        server.erase(colon);
    }
    const bool isBracketed = server.starts_with(L'[') && server.ends_with(L']');
    if (isBracketed)
        server = server.substr(1, server.size() - 2);
    if (server.find_first_of(isBracketed ? L"[]" : L"[]:") != std::wstring::npos)
        throw UsageError{L"an IPv6 address stands in brackets: ftp://[ADDRESS]"};
    if (server.empty())
        throw UsageError{L"which FTP server? ftp://[USER@]HOST[:PORT][/FOLDER]"};
    address.host = server;
    return address;
}

void requireOneAccount(const std::vector<FtpAddress>& addresses)
{
    std::set<std::tuple<std::wstring, unsigned short, std::wstring>> accounts;
    for (const FtpAddress& address : addresses)
        if (!address.user.empty())
            accounts.emplace(address.host, address.port, address.user);
    if (accounts.size() > 1 && passwordRoom() != 0)
        throw UsageError{L"the password in SYSMAINT_FTP_PASSWORD is for one account, and here are several"};
}

bool findPassword(FtpAddress& address)
{
    if (address.user.empty())
        return true;
    if (const DWORD size = passwordRoom(); size != 0) {
        std::vector<wchar_t> password(size);
        GetEnvironmentVariableW(kPasswordVariable, password.data(), size);
        address.password = password.data();
        return true;
    }
    return askSecret(L"Password of " + printable(address.user) + L" at " + printable(address.host) +
                         L" (sent without encryption): ",
                     address.password) == Answer::kYes;
}

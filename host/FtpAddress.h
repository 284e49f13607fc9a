#pragma once

#include <optional>
#include <string>
#include <vector>

/// A folder on an FTP server, as the user names it.
struct FtpAddress
{
    std::wstring host;
    unsigned short port = 0; // 0: the usual one
    std::wstring user;       // empty: anonymous
    std::wstring password;
    std::wstring path;
};

/// "ftp://[USER@]HOST[:PORT][/PATH]"; nothing for texts that are no address. Throws UsageError for one that
/// is wrong or has another scheme.
std::optional<FtpAddress> parseFtpAddress(const std::wstring& text);
/// Takes a user's password from the environment, or asks for it. False when the question was cancelled.
bool findPassword(FtpAddress& address);
/// Throws UsageError for addresses of several accounts when the environment holds a password: it belongs to
/// one of them.
void requireOneAccount(const std::vector<FtpAddress>& addresses);

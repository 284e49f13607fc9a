#pragma once

#include <optional>
#include <string>

#include "core/win32/utils/connections/include/OverlappedCall.h"
#include "core/win32/utils/ftp/include/FtpSession.h"
#include "core/win32/utils/objectmanager/include/ObjectTable.h"

/// Where a file or a folder stands on a server: its path for the eye, and the bytes that the server knows.
struct FtpLocation
{
    std::string bytes; ///< from the root, with slashes
    std::wstring text;
    std::string unique; ///< what the listing above calls it; empty: nothing

    /// A path from a caller; a slash at the beginning may be missing, and one at the end is dropped. Raises
    /// 87 for "." and "..", backslashes, control characters and what is no text.
    static FtpLocation fromPath(std::wstring_view path);
    /// The same for a file: raises 87 for a path that names a folder, too.
    static FtpLocation fromFilePath(std::wstring_view path);
    [[nodiscard]] FtpLocation joined(const FtpEntry& entry) const;
};

/// An account at a server, with a session that is opened when it is needed and again after a failure. Threads
/// take turns. The operations raise bare codes.
class FtpConnection
{
public:
    static constexpr const char* kClassName = "FtpConnection";

    /// Null or empty `user`: anonymous. Port 0 is 21. Raises 87.
    FtpConnection(const wchar_t* host, unsigned short port, const wchar_t* user, const wchar_t* password);
    FtpConnection(const FtpConnection&) = delete;
    FtpConnection& operator=(const FtpConnection&) = delete;
    ~FtpConnection() = default;

    [[nodiscard]] const FtpServer& getServer() const noexcept { return m_server; }
    /// "ftp://host/path", with the port unless it is 21.
    [[nodiscard]] std::wstring urlOf(const std::wstring& path) const;
    void setTimeout(DWORD timeout) noexcept { m_timeout = timeout; }

    void connect(HANDLE cancelEvent);
    [[nodiscard]] FtpListing list(const std::string& folder, HANDLE cancelEvent);
    [[nodiscard]] std::string uniqueOf(const std::string& folder, HANDLE cancelEvent);
    [[nodiscard]] bool enter(const std::string& folder);
    [[nodiscard]] std::optional<unsigned long long> sizeOf(const std::string& file, HANDLE cancelEvent);
    void download(const std::string& file, const wchar_t* localPath, bool goOn, HANDLE cancelEvent);
    void upload(const std::string& file, const wchar_t* localPath, HANDLE cancelEvent);
    void remove(const std::string& file, HANDLE cancelEvent);

    /// Whether the last attempt to log in succeeded: if not, nothing else will.
    [[nodiscard]] bool isReachable() const noexcept { return m_isReachable; }
    /// Ends what waits, for good.
    void close() noexcept
    {
        m_isClosed = true;
        SetEvent(m_stop.get());
    }

private:
    class Turn;
    template <class Operation>
    auto use(HANDLE cancelEvent, bool canRepeat, Operation&& operation);

    FtpServer m_server;
    std::atomic<DWORD> m_timeout;
    std::atomic<bool> m_isReachable{true};
    std::atomic<bool> m_isClosed{false};
    Win32Handle m_stop = makeEvent();
    ReadWriteLock m_lock;
    bool m_isTaken = false;   // somebody uses the session
    unsigned m_waiting = 0;   // threads that want to
    Win32Handle m_handedOver; // to one of them
    FtpWays m_ways;           // that sessions may use
    std::optional<FtpSession> m_session;
};
using FtpConnectionPtr = SharedPtr<FtpConnection>;

/// The table of the connections with a handle.
extern ObjectTable<FtpConnectionPtr> ftpConnections;

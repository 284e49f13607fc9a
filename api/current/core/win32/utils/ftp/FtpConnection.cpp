#include "core/win32/utils/ftp/include/FtpConnection.h"

#include "core/win32/utils/objectmanager/include/FileTransfer.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/strings/include/Unicode.h"

ObjectTable<FtpConnectionPtr> ftpConnections(50); // scan items hold them

namespace {
constexpr unsigned short kUsualPort = 21;
constexpr DWORD kUsualTimeout = 30000;

bool isControl(wchar_t c)
{
    return c < L' ' || c == 0x7F;
}

/// What goes to the server in a command: a line's end would begin another one.
std::wstring requireText(const wchar_t* text)
{
    const std::wstring_view view = text;
    if (std::any_of(view.begin(), view.end(), &isControl))
        raiseCode(ERROR_INVALID_PARAMETER);
    return std::wstring(view);
}

/// What says that the server ended the session while nobody used it.
bool isLost(long code)
{
    return code == ERROR_BROKEN_PIPE || code == WSAECONNRESET || code == WSAECONNABORTED ||
           code == ERROR_CONNECTION_ABORTED || code == ERROR_NETNAME_DELETED;
}

/// A local file that is read or written, never through a link.
class LocalFile
{
public:
    LocalFile(const wchar_t* path, DWORD access, DWORD how)
    {
        const std::wstring settled = settledPath(path);
        if (settled != path && isDeviceName(std::wstring_view(settled).substr(settled.rfind(L'\\') + 1)))
            raiseCode(ERROR_BAD_PATHNAME);
        m_file.reset(::CreateFileW(Win32Path(settled.c_str()), access, FILE_SHARE_READ, nullptr, how,
                                   FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        if (m_file.isValid() && GetFileType(m_file.get()) != FILE_TYPE_DISK)
            raiseCode(ERROR_BAD_PATHNAME);
        BY_HANDLE_FILE_INFORMATION information{};
        if (!m_file.isValid() || !GetFileInformationByHandle(m_file.get(), &information))
            raiseLastError();
        if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
            raiseCode(kStoppedOnSymlink);
        m_size = std::uint64_t{information.nFileSizeHigh} << 32U | information.nFileSizeLow;
    }
    [[nodiscard]] HANDLE get() const noexcept { return m_file.get(); }
    [[nodiscard]] unsigned long long getSize() const noexcept { return m_size; }

private:
    Win32Handle m_file;
    unsigned long long m_size = 0;
};

/// What a download writes: an own new file, or behind what a file holds already.
class DownloadTarget
{
public:
    DownloadTarget(const wchar_t* path, bool goOn, unsigned long long size)
        : m_file(open(path, goOn, m_isNew)), m_size(size), m_done(m_file.getSize())
    {
        if (m_done > m_size)
            raiseCode(ERROR_INVALID_DATA);
        move(m_done);
    }

    [[nodiscard]] unsigned long long getDone() const noexcept { return m_done; }
    [[nodiscard]] bool isComplete() const noexcept { return m_done == m_size; }

    void write(const char* data, std::size_t length)
    {
        m_isWrong = length > m_size - m_done;
        if (m_isWrong)
            raiseCode(ERROR_INVALID_DATA);
        requireSuccess(filetransfer::write(m_file.get(), data, length));
        m_done += length;
    }
    /// After a failure: leaves only what can be gone on with. `verdict` is what the server has said of the
    /// transfer: false that it failed, true that it was done. Raises the system's code.
    void cutBack(long code, std::optional<bool> verdict)
    {
        const bool isUnanswered =
            isLost(code) || code == WAIT_TIMEOUT || code == ERROR_CANCELLED || code == ERROR_NOT_CONNECTED;
        unsigned long long kept = m_done;
        if (m_isWrong || (isComplete() && !verdict.value_or(isUnanswered)))
            kept = m_file.getSize();
        else if (isComplete() && !verdict.has_value())
            kept = m_size - 1; // the server is asked for the last byte again, and says whether all is well
        FILE_DISPOSITION_INFO deletion{TRUE};
        if (m_isNew && kept == 0 &&
            !SetFileInformationByHandle(m_file.get(), FileDispositionInfo, &deletion, sizeof deletion))
            raiseLastError();
        if (kept == m_done)
            return;
        move(kept);
        if (!SetEndOfFile(m_file.get()))
            raiseLastError();
    }

private:
    static LocalFile open(const wchar_t* path, bool goOn, bool& isNew)
    {
        constexpr DWORD kAccess = GENERIC_WRITE | FILE_READ_ATTRIBUTES;
        isNew = false;
        if (goOn) {
            try {
                return {path, kAccess, OPEN_EXISTING};
            } catch (long code) {
                if (code != ERROR_FILE_NOT_FOUND)
                    throw;
            }
        }
        isNew = true;
        return {path, kAccess | DELETE, CREATE_NEW};
    }
    void move(unsigned long long position)
    {
        LARGE_INTEGER to{};
        to.QuadPart = static_cast<LONGLONG>(position);
        if (!SetFilePointerEx(m_file.get(), to, nullptr, FILE_BEGIN))
            raiseLastError();
    }

    bool m_isNew = false; // stands before what sets it
    LocalFile m_file;
    unsigned long long m_size;
    unsigned long long m_done;
    bool m_isWrong = false;
};
} // namespace

FtpLocation FtpLocation::fromPath(std::wstring_view path)
{
    FtpLocation location;
    while (!path.empty()) {
        const std::wstring_view name = path.substr(0, path.find(L'/'));
        path.remove_prefix(std::min(name.size() + 1, path.size()));
        if (name.empty())
            continue;
        const bool isPlain = name != L"." && name != L".." && name.find(L'\\') == std::wstring_view::npos &&
                             std::none_of(name.begin(), name.end(), &isControl);
        if (!isPlain)
            raiseCode(ERROR_INVALID_PARAMETER);
        location.text.append(L"/").append(name);
    }
    if (location.text.empty())
        location.text = L"/";
    try {
        location.bytes = unicode::utf8FromWide(location.text);
    } catch (long) {
        raiseCode(ERROR_INVALID_PARAMETER);
    }
    return location;
}

FtpLocation FtpLocation::fromFilePath(std::wstring_view path)
{
    if (path.empty() || path.back() == L'/')
        raiseCode(ERROR_INVALID_PARAMETER);
    return fromPath(path);
}

FtpLocation FtpLocation::joined(const FtpEntry& entry) const
{
    FtpLocation location = *this;
    if (location.bytes != "/") {
        location.bytes.push_back('/');
        location.text.push_back(L'/');
    }
    location.bytes.append(entry.bytes);
    location.text.append(entry.name);
    location.unique = entry.unique;
    return location;
}

/// The only user of the session. Who waits gets it handed over, so nobody is passed over, and while nobody
/// waits it takes no call of the system.
class FtpConnection::Turn
{
public:
    Turn(FtpConnection& connection, const WaitLimits& limits) : m_connection(connection)
    {
        {
            const WriteLocker locker(connection.m_lock);
            if (!connection.m_isTaken) {
                connection.m_isTaken = true;
                return;
            }
            ++connection.m_waiting;
        }
        const long code = limits.wait(connection.m_handedOver.get());
        if (code != ERROR_SUCCESS && !withdraw())
            raiseCode(code);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn()
    {
        const WriteLocker locker(m_connection.m_lock);
        if (m_connection.m_waiting == 0) {
            m_connection.m_isTaken = false;
        } else {
            --m_connection.m_waiting;
            SetEvent(m_connection.m_handedOver.get());
        }
    }

private:
    /// Waits no more; true when it has been handed to us all the same.
    [[nodiscard]] bool withdraw() noexcept
    {
        const WriteLocker locker(m_connection.m_lock);
        const bool isOurs = WaitForSingleObject(m_connection.m_handedOver.get(), 0) == WAIT_OBJECT_0;
        m_connection.m_waiting -= isOurs ? 0 : 1;
        return isOurs;
    }

    FtpConnection& m_connection;
};

FtpConnection::FtpConnection(const wchar_t* host, unsigned short port, const wchar_t* user,
                             const wchar_t* password)
    : m_timeout(kUsualTimeout), m_handedOver(CreateEventW(nullptr, FALSE, FALSE, nullptr))
{
    if (!m_handedOver.isValid())
        raiseLastError();
    if (host == nullptr || *host == L'\0')
        raiseCode(ERROR_INVALID_PARAMETER);
    const bool isAnonymous = user == nullptr || *user == L'\0';
    m_server = {
        requireText(host), port != 0 ? port : kUsualPort, isAnonymous ? L"anonymous" : requireText(user),
        password != nullptr ? requireText(password) : std::wstring(isAnonymous ? L"anonymous@" : L"")};
}

std::wstring FtpConnection::urlOf(const std::wstring& path) const
{
    const bool isV6 = m_server.host.find(L':') != std::wstring::npos;
    std::wstring url = L"ftp://";
    url.append(isV6 ? L"[" : L"").append(m_server.host).append(isV6 ? L"]" : L"");
    if (m_server.port != kUsualPort)
        url.append(L":").append(std::to_wstring(m_server.port));
    return url.append(path);
}

// A session that was not ready again is given up. One that the server ended while it was idle is opened once
// more, and so is one that broke off over a quick way to list, which is then not used again. What does no
// harm when it is done twice finds that out by itself; before anything else is sent, the session is looked
// at.
template <class Operation>
auto FtpConnection::use(HANDLE cancelEvent, bool canRepeat, Operation&& operation)
{
    const FtpLimits limits{m_timeout, cancelEvent, m_stop.get()};
    WaitLimits forTurn(INFINITE, cancelEvent);
    forTurn.stopEvent = m_stop.get();
    const Turn turn(*this, forTurn);
    if (m_isClosed)
        raiseCode(ERROR_NOT_CONNECTED);
    if (m_session && !canRepeat && m_session->hasEnded())
        m_session.reset();
    for (;;) {
        const bool isNew = !m_session;
        if (isNew) {
            m_isReachable = false;
            m_session.emplace(m_server, m_ways, limits);
            m_isReachable = true;
        }
        try {
            return operation(*m_session, limits);
        } catch (long code) {
            const bool wasIdle = !isNew && !m_session->isAnswered();
            const bool givesUp = code != ERROR_CANCELLED && !m_isClosed && m_session->giveUpTried(m_ways);
            if (!m_session->isReady())
                m_session.reset();
            if (givesUp)
                continue;
            if (m_session || !canRepeat || !wasIdle || !isLost(code))
                throw;
        } catch (...) {
            m_session.reset();
            throw;
        }
    }
}

void FtpConnection::connect(HANDLE cancelEvent)
{
    use(cancelEvent, true, [](FtpSession&, const FtpLimits&) {});
}

FtpListing FtpConnection::list(const std::string& folder, HANDLE cancelEvent)
{
    return use(cancelEvent, true,
               [&](FtpSession& session, const FtpLimits& limits) { return session.list(folder, limits); });
}

std::string FtpConnection::uniqueOf(const std::string& folder, HANDLE cancelEvent)
{
    return use(cancelEvent, true, [&](FtpSession& session, const FtpLimits& limits) {
        return session.uniqueOf(folder, limits);
    });
}

bool FtpConnection::enter(const std::string& folder)
{
    return use(nullptr, true,
               [&](FtpSession& session, const FtpLimits& limits) { return session.enter(folder, limits); });
}

std::optional<unsigned long long> FtpConnection::sizeOf(const std::string& file, HANDLE cancelEvent)
{
    return use(cancelEvent, true,
               [&](FtpSession& session, const FtpLimits& limits) { return session.sizeOf(file, limits); });
}

void FtpConnection::download(const std::string& file, const wchar_t* localPath, bool goOn, HANDLE cancelEvent)
{
    const std::optional<unsigned long long> size = sizeOf(file, cancelEvent);
    if (!size)
        raiseCode(ERROR_FILE_NOT_FOUND);
    DownloadTarget target(localPath, goOn, *size);
    if (target.isComplete())
        return;
    std::optional<bool> verdict;
    try {
        use(cancelEvent, false, [&](FtpSession& session, const FtpLimits& limits) {
            try {
                session.retrieve(file, target.getDone(), limits,
                                 [&](const char* data, std::size_t length) { target.write(data, length); });
            } catch (...) {
                if (session.hasRefusedTransfer() || session.hasConfirmedTransfer())
                    verdict = session.hasConfirmedTransfer();
                throw;
            }
        });
        if (!target.isComplete())
            raiseCode(ERROR_INVALID_DATA);
    } catch (long code) {
        target.cutBack(code, verdict);
        throw;
    } catch (...) {
        target.cutBack(ERROR_NOT_ENOUGH_MEMORY, verdict);
        throw;
    }
}

void FtpConnection::upload(const std::string& file, const wchar_t* localPath, HANDLE cancelEvent)
{
    const LocalFile local(localPath, GENERIC_READ, OPEN_EXISTING);
    use(cancelEvent, false, [&](FtpSession& session, const FtpLimits& limits) {
        session.store(file, limits, [&](char* room, std::size_t size) {
            unsigned long long done = 0;
            requireSuccess(filetransfer::read(local.get(), room, size, done));
            return static_cast<std::size_t>(done);
        });
    });
}

void FtpConnection::remove(const std::string& file, HANDLE cancelEvent)
{
    use(cancelEvent, false,
        [&](FtpSession& session, const FtpLimits& limits) { session.remove(file, limits); });
}

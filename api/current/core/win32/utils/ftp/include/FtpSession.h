#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "core/win32/utils/connections/include/SocketEndpoint.h"
#include "core/win32/utils/ftp/include/FtpListing.h"
#include "core/win32/utils/ftp/include/PathProof.h"
#include "core/win32/utils/ftp/include/StatusProof.h"

/// An FTP server and who logs in there.
struct FtpServer
{
    std::wstring host;
    unsigned short port = 0;
    std::wstring user;
    std::wstring password;

    bool operator==(const FtpServer&) const = default;
};

/// How long each step of a session may wait, and what ends it early.
struct FtpLimits
{
    DWORD timeout = 0;
    HANDLE cancelEvent = nullptr;
    HANDLE stopEvent = nullptr;

    /// For one step that begins now. Raises 1223.
    [[nodiscard]] WaitLimits step() const
    {
        WaitLimits limits(timeout, cancelEvent);
        limits.stopEvent = stopEvent;
        return limits;
    }
    /// For one step of a listing that has until `whole`.
    [[nodiscard]] WaitLimits step(const Deadline& whole) const
    {
        WaitLimits limits = step();
        if (whole.getLeft() < limits.deadline.getLeft())
            limits.deadline = whole;
        return limits;
    }
    /// A whole listing has ten times a step's time.
    [[nodiscard]] Deadline whole() const
    {
        constexpr DWORD kShare = 10;
        return Deadline(timeout < INFINITE / kShare ? timeout * kShare : INFINITE);
    }
};

/// The quick ways to list folders, which a session may use once its server has proven them.
struct FtpWays
{
    bool paths = true;  ///< LIST -a PATH, MLSD PATH
    bool status = true; ///< STAT in place of LIST
};

/// One log-in at an FTP server (RFC 959, 2428, 3659): a control connection, and a data connection to the same
/// address for each transfer. What the server sends is not trusted: replies and listings are limited, and the
/// address that it names for data is ignored. The operations raise bare codes; the exported functions say
/// which.
class FtpSession
{
public:
    /// Connects and logs in.
    FtpSession(const FtpServer& server, const FtpWays& ways, const FtpLimits& limits);

    /// Lists a folder.
    [[nodiscard]] FtpListing list(const std::string& folder, const FtpLimits& limits);
    /// What MLST calls a folder that was listed with MLSD, whatever its path; empty when it has no such fact.
    [[nodiscard]] std::string uniqueOf(const std::string& folder, const FtpLimits& limits);
    /// Whether the server lets us into a folder.
    [[nodiscard]] bool enter(const std::string& folder, const FtpLimits& limits);
    /// The size of a file; none when there is no such file.
    [[nodiscard]] std::optional<unsigned long long> sizeOf(const std::string& file, const FtpLimits& limits);
    /// Passes a file's bytes from `offset` on to `take`.
    void retrieve(const std::string& file, unsigned long long offset, const FtpLimits& limits,
                  const std::function<void(const char* data, std::size_t size)>& take);
    /// Writes a file anew, with what `give` fills its argument with until it returns 0.
    void store(const std::string& file, const FtpLimits& limits,
               const std::function<std::size_t(char* room, std::size_t size)>& give);
    void remove(const std::string& file, const FtpLimits& limits);

    /// Whether the next command can be sent: the last one has had its whole reply.
    [[nodiscard]] bool isReady() const noexcept { return m_isReady; }
    /// Whether the server has ended the session meanwhile, as one does that has waited long for a command.
    [[nodiscard]] bool hasEnded();
    /// Takes the way out in whose middle the session was left. False: in none that was allowed.
    [[nodiscard]] bool giveUpTried(FtpWays& ways) const noexcept
    {
        return m_isTryingStatus ? std::exchange(ways.status, false)
                                : m_isTryingPath && std::exchange(ways.paths, false);
    }
    /// Whether the server has answered since the session was last ready.
    [[nodiscard]] bool isAnswered() const noexcept { return m_lastReply != 0; }
    /// What the server said at last of a transfer that has failed.
    [[nodiscard]] bool hasRefusedTransfer() const noexcept { return m_lastReply >= 400; }
    [[nodiscard]] bool hasConfirmedTransfer() const noexcept;

private:
    struct Reply
    {
        int code = 0;
        std::string text; // without the code; of several lines, with "\n" between
    };
    /// Gives the limits of each wait for a part of a reply.
    using Steps = std::function<WaitLimits()>;
    enum class PathUse
    {
        Unknown,
        Proven,
        Refuted
    };
    struct Listed
    {
        std::string folder;
        std::size_t fingerprint = 0;
    };

    /// A reply to REST, before and behind the position.
    struct Placed
    {
        std::string before;
        std::string behind;
    };

    static constexpr std::size_t kPiece = 64U << 10U;
    static constexpr std::string_view kHiddenOf = "-a "; ///< and a path; other arguments are paths themselves
    static constexpr std::initializer_list<int> kAgreed{200, 250};
    static constexpr int kPlaced = 350; // to REST

    void logIn(const FtpServer& server, const FtpLimits& limits);
    void agree(const FtpLimits& limits);
    void chooseFacts(std::string_view offered, const FtpLimits& limits);
    [[nodiscard]] char readByte(const Steps& steps);
    [[nodiscard]] std::string readLine(const Steps& steps, std::size_t& left);
    [[nodiscard]] Reply readReply(const Steps& steps, std::size_t left, bool keepsReturns = false);
    [[nodiscard]] Reply readReply(const WaitLimits& step);
    [[nodiscard]] bool isFarewell() const;
    [[nodiscard]] bool receiveWhatIsThere();
    void requireSilence();
    [[noreturn]] void raiseOutOfStep();
    void requireInStep(std::string_view command, int expected, const FtpLimits& limits);
    void requireOneOf(const Reply& reply, std::initializer_list<int> expected);
    [[nodiscard]] bool isDoneWith(const Reply& reply, std::initializer_list<int> expected);
    void settle(int reply);
    [[nodiscard]] Reply readFinalReply(const FtpLimits& limits);
    void send(std::string_view command, std::string_view argument, const FtpLimits& limits,
              std::string_view behind = {});
    [[nodiscard]] Reply ask(std::string_view command, std::string_view argument, const FtpLimits& limits);
    [[nodiscard]] unsigned short dataPort(const FtpLimits& limits);
    [[nodiscard]] WirePtr requestTransfer(std::string_view command, std::string_view argument,
                                          const FtpLimits& limits, std::optional<unsigned long long> offset);
    void requireBegun(const FtpLimits& limits, bool isFromOffset);
    [[nodiscard]] std::size_t readPiece(Wire& data, std::vector<char>& piece, WaitLimits step,
                                        const FtpLimits& limits, bool& isBegun);
    [[nodiscard]] WirePtr beginTransfer(std::string_view command, std::string_view argument,
                                        const FtpLimits& limits, unsigned long long offset = 0);
    void endTransfer(const FtpLimits& limits);
    [[nodiscard]] std::string readListing(std::string_view command, std::string_view argument,
                                          const FtpLimits& limits);

    [[nodiscard]] std::optional<FtpListing> listMachine(const std::string& folder, const FtpLimits& limits);
    void proveMachine(const Listed& before, const FtpLimits& limits);
    [[nodiscard]] FtpListing listPlain(const std::string& folder, const FtpLimits& limits);
    [[nodiscard]] std::optional<FtpListing> listByPath(const std::string& folder, const FtpLimits& limits);
    [[nodiscard]] bool standAbove(const std::string& folder, const FtpLimits& limits);
    [[nodiscard]] FtpListing listWhereItStands(const std::string& folder, const FtpLimits& limits,
                                               std::optional<std::string>& text);
    [[nodiscard]] std::optional<std::string> listHidden(const std::string& folder, const FtpLimits& limits);
    [[nodiscard]] std::optional<std::string> listByData(const std::string& argument, const FtpLimits& limits);
    [[nodiscard]] std::optional<std::string> readStatus(const FtpLimits& limits);
    [[nodiscard]] std::optional<std::string> listByStatus(const std::string& argument,
                                                          const FtpLimits& limits);
    void proveStatus(StatusProof& proof, const std::string& argument, const std::string& text,
                     const FtpLimits& limits);
    [[nodiscard]] bool learnPlaced(const FtpLimits& limits);
    void prove(const std::string& folder, const FtpLimits& limits);

    SocketAddress m_address;
    ConnectTools m_dataTools; // one data connection at a time
    WirePtr m_control;
    std::array<char, std::size_t{16} << 10U> m_received{};
    std::size_t m_receivedAt = 0;
    std::size_t m_receivedEnd = 0;
    bool m_isReady = false;
    int m_lastReply = 0; // to the last command
    bool m_isTransferDone = false;
    bool m_hasMachineListing = false;          // MLSD
    PathUse m_machinePaths = PathUse::Unknown; // MLSD PATH
    std::optional<Listed> m_before;            // the folder that it has entered, listed with MLSD
    bool m_knowsExtendedPassive = true;
    bool m_listsHidden = true;      // LIST -a
    bool m_knowsHidden = false;     // it has shown "."
    PathProof m_paths;              // LIST -a PATH
    StatusProof m_statusHere;       // STAT -a
    StatusProof m_statusOfPath;     // STAT -a PATH
    std::size_t m_statusLength = 0; // of the longest listing that STAT has shown as LIST does
    SecretNumbers m_positions;      // for the server to repeat
    std::optional<Placed> m_placed; // how it repeats them
    bool m_wasPlaced = false;       // by a listing: transfers set their position, even 0
    bool m_isTryingPath = false;
    bool m_isTryingStatus = false;
    std::optional<Listed> m_standing; // the folder that it has entered, listed with LIST -a
    std::optional<Listed> m_first;    // of those
};

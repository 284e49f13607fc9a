#include "core/win32/utils/ftp/include/FtpSession.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "core/win32/utils/strings/include/Unicode.h"

namespace {
constexpr std::size_t kLargestReply = 64U << 10U;
constexpr int kMostPreliminary = 20; // replies before the one that counts

/// What a refusal means. FTP has one code for what is not there and what may not be accessed (550).
long codeOfReply(int reply) noexcept
{
    switch (reply) {
    case 421:
    case 426:
        return ERROR_CONNECTION_ABORTED;
    case 425:
        return ERROR_CONNECTION_REFUSED;
    case 430:
    case 530:
    case 532:
        return ERROR_LOGON_FAILURE;
    case 450:
        return ERROR_BUSY;
    case 451:
        return ERROR_IO_DEVICE;
    case 452:
    case 552:
        return ERROR_DISK_FULL;
    case 500:
    case 502:
    case 504:
    case 522:
        return ERROR_NOT_SUPPORTED;
    case 501:
    case 553:
        return ERROR_INVALID_NAME;
    case 550:
        return ERROR_FILE_NOT_FOUND;
    default:
        return reply >= 400 && reply < 600 ? ERROR_ACCESS_DENIED : ERROR_INVALID_DATA;
    }
}

bool isDone(int reply) noexcept
{
    return reply >= 200 && reply < 300;
}

// The replies that say so, of old servers too. Another one belongs to something else.
constexpr std::initializer_list<int> kLoggedIn{200, 202, 230, 232};
constexpr std::initializer_list<int> kDeleted{250};
constexpr std::initializer_list<int> kOptionTaken{200, 202};
constexpr std::initializer_list<int> kTransferred{200, 226, 250};
constexpr int kIdle = 200;   // to NOOP
constexpr int kStands = 257; // to PWD, and to nothing else that is sent here

bool isOneOf(int reply, std::initializer_list<int> expected) noexcept
{
    return std::find(expected.begin(), expected.end(), reply) != expected.end();
}

std::string withoutReturn(std::string line)
{
    if (line.ends_with('\r'))
        line.pop_back();
    return line;
}

SocketAddress withPort(SocketAddress address, unsigned short port) noexcept
{
    // The port stands at the same place in both kinds.
    reinterpret_cast<sockaddr_in*>(&address.storage)->sin_port =
        static_cast<unsigned short>(port << 8U | port >> 8U);
    return address;
}

std::string upperCased(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 32);
    return result;
}

/// The numbers in a reply, as many as there are.
std::vector<unsigned long> numbersIn(std::string_view text)
{
    constexpr unsigned long kMost = 100000;
    std::vector<unsigned long> numbers;
    bool inNumber = false;
    for (const char c : text) {
        const bool isDigit = c >= '0' && c <= '9';
        if (isDigit && !inNumber)
            numbers.push_back(0);
        if (isDigit && numbers.back() < kMost)
            numbers.back() = numbers.back() * 10 + static_cast<unsigned long>(c - '0');
        inNumber = isDigit;
    }
    return numbers;
}
} // namespace

FtpSession::FtpSession(const FtpServer& server, const FtpWays& ways, const FtpLimits& limits)
{
    if (!ways.paths) {
        m_paths.refute();
        m_machinePaths = PathUse::Refuted;
    }
    if (!ways.status) {
        m_statusHere.refute();
        m_statusOfPath.refute();
    }
    SocketClient client(server.host.c_str(), server.port);
    m_control = client.connect(limits.step());
    m_address = client.getAddress();
    logIn(server, limits);
    agree(limits);
}

void FtpSession::logIn(const FtpServer& server, const FtpLimits& limits)
{
    const Reply greeting = readFinalReply(limits);
    if (!isDone(greeting.code))
        raiseCode(codeOfReply(greeting.code));
    Reply reply = ask("USER", unicode::utf8FromWide(server.user), limits);
    if (reply.code == 331)
        reply = ask("PASS", unicode::utf8FromWide(server.password), limits);
    if (reply.code >= 300 && reply.code != 421)
        raiseCode(ERROR_LOGON_FAILURE);
    requireOneOf(reply, kLoggedIn);
}

// Bytes as they are, and names in UTF-8, if the server knows it.
void FtpSession::agree(const FtpLimits& limits)
{
    const Reply features = ask("FEAT", "", limits);
    if (isDoneWith(features, {211})) {
        const std::string text = upperCased(features.text);
        constexpr std::string_view kMachine = "\n MLST";
        const std::size_t machine = text.find(kMachine);
        if (machine != std::string::npos)
            chooseFacts(std::string_view(text).substr(machine + kMachine.size()), limits);
        if (text.find("\n UTF8") != std::string::npos)
            static_cast<void>(isDoneWith(ask("OPTS", "UTF8 ON", limits), kOptionTaken)); // or does it anyway
    }
    requireOneOf(ask("TYPE", "I", limits), kAgreed);
    requireInStep("PWD", kStands, limits);
}

// Sends a command whose reply cannot be taken for another's: what came unasked before shows here.
void FtpSession::requireInStep(std::string_view command, int expected, const FtpLimits& limits)
{
    if (ask(command, "", limits).code != expected)
        raiseOutOfStep();
}

void FtpSession::raiseOutOfStep()
{
    m_isReady = false;
    raiseCode(ERROR_INVALID_DATA);
}

// Without the facts that nobody needs, a listing costs some servers half the time. One that refuses sends
// all. A listing that does not tell folders from files is of no use.
void FtpSession::chooseFacts(std::string_view offered, const FtpLimits& limits)
{
    constexpr std::string_view kType = "TYPE";
    offered = offered.substr(0, offered.find('\n'));
    offered.remove_prefix(std::min(offered.find_first_not_of(' '), offered.size()));
    m_hasMachineListing = offered.find(kType) != std::string_view::npos;
    const std::string facts = wantedFacts(offered);
    if (facts.empty())
        return;
    const Reply reply = ask("OPTS MLST", facts, limits);
    if (!isDoneWith(reply, kOptionTaken))
        return;
    const std::string chosen = upperCased(reply.text);
    m_hasMachineListing =
        chosen.find("MLST OPTS") == std::string::npos || chosen.find(kType) != std::string::npos;
}

void FtpSession::requireOneOf(const Reply& reply, std::initializer_list<int> expected)
{
    if (isOneOf(reply.code, expected))
        return;
    m_isReady = m_isReady && reply.code >= 400;
    raiseCode(codeOfReply(reply.code));
}

// For a command that the server may refuse.
bool FtpSession::isDoneWith(const Reply& reply, std::initializer_list<int> expected)
{
    if (reply.code < 400 || reply.code == 421)
        requireOneOf(reply, expected);
    return reply.code < 400;
}

// What arrives unasked is the answer to no command: after it all would be the answers to others. A server
// that leaves may say so before.
void FtpSession::requireSilence()
{
    if (m_receivedAt == m_receivedEnd && (!m_control->hasArrived() || !receiveWhatIsThere()))
        return;
    raiseCode(isFarewell() ? long{ERROR_CONNECTION_ABORTED} : long{ERROR_INVALID_DATA});
}

// The end of the connection is raised as a code.
bool FtpSession::receiveWhatIsThere()
{
    try {
        m_receivedEnd = m_control->readSome(m_received.data(), m_received.size(), WaitLimits(0, nullptr));
    } catch (long code) {
        if (code == WAIT_TIMEOUT)
            return false;
        throw;
    }
    m_receivedAt = 0;
    return true;
}

bool FtpSession::hasEnded()
{
    try {
        return m_receivedAt == m_receivedEnd && receiveWhatIsThere() && isFarewell();
    } catch (long) {
        return true;
    }
}

bool FtpSession::isFarewell() const
{
    const std::string_view received(m_received.data(), m_receivedEnd);
    return received.substr(m_receivedAt).starts_with("421");
}

char FtpSession::readByte(const Steps& steps)
{
    if (m_receivedAt == m_receivedEnd) {
        m_receivedEnd = m_control->readSome(m_received.data(), m_received.size(), steps());
        m_receivedAt = 0;
    }
    return m_received[m_receivedAt++];
}

// `left` is what the reply may still take.
std::string FtpSession::readLine(const Steps& steps, std::size_t& left)
{
    std::string line;
    for (char c = 0; (c = readByte(steps)) != '\n'; --left) {
        if (left == 0)
            raiseCode(ERROR_MESSAGE_EXCEEDS_MAX_SIZE);
        line.push_back(c);
    }
    return line;
}

FtpSession::Reply FtpSession::readReply(const WaitLimits& step)
{
    return readReply([&step] { return step; }, kLargestReply);
}

// "150 text", or "150-text", any lines, and "150 text". `left` is what it may take.
FtpSession::Reply FtpSession::readReply(const Steps& steps, std::size_t left, bool keepsReturns)
{
    std::string line = withoutReturn(readLine(steps, left));
    constexpr std::size_t kCodeLength = 3;
    const bool hasCode = line.size() >= kCodeLength && line.find_first_not_of("0123456789") >= kCodeLength &&
                         line[0] >= '1' && line[0] <= '5' &&
                         (line.size() == kCodeLength || line[3] == ' ' || line[3] == '-');
    if (!hasCode)
        raiseCode(ERROR_INVALID_DATA);
    Reply reply{(line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0'), line.substr(kCodeLength)};
    if (line.size() > kCodeLength && line[3] == '-') {
        const std::string end = line.substr(0, kCodeLength) + " ";
        do {
            if (left == 0)
                raiseCode(ERROR_MESSAGE_EXCEEDS_MAX_SIZE);
            --left;
            line = readLine(steps, left);
            if (!keepsReturns)
                line = withoutReturn(std::move(line));
            reply.text.append("\n").append(line);
        } while (!line.starts_with(end));
    }
    m_lastReply = reply.code;
    return reply;
}

FtpSession::Reply FtpSession::readFinalReply(const FtpLimits& limits)
{
    const WaitLimits step = limits.step(); // for all of them
    for (int i = 0; i < kMostPreliminary; ++i) {
        Reply reply = readReply(step);
        if (reply.code >= 200) {
            settle(reply.code);
            return reply;
        }
    }
    raiseCode(ERROR_INVALID_DATA);
}

// After a command's last reply nothing may have come with it, but that the server leaves.
void FtpSession::settle(int reply)
{
    const bool isAlone = m_receivedAt == m_receivedEnd;
    m_isReady = isAlone && reply != 421;
    m_isTryingPath = m_isTryingPath && !m_isReady;
    if (!isAlone && !isFarewell())
        raiseCode(ERROR_INVALID_DATA);
}

// `behind` are whole commands that go off together with this one. A byte of 255 would begin a command of the
// protocol below, unless it stands twice; but some servers take what stands twice for two, and so another
// name.
void FtpSession::send(std::string_view command, std::string_view argument, const FtpLimits& limits,
                      std::string_view behind)
{
    if (argument.find('\xFF') != std::string_view::npos)
        raiseCode(ERROR_INVALID_NAME);
    std::string line(command);
    if (!argument.empty())
        line.append(" ").append(argument);
    line.append("\r\n").append(behind);
    m_isReady = false;
    m_lastReply = 0;
    m_isTryingPath = false;
    m_isTryingStatus = m_isTryingStatus && command == "REST";
    requireSilence();
    m_isTryingStatus = m_isTryingStatus || command == "STAT";
    m_isTryingPath = argument.starts_with(kHiddenOf) || (command == "MLSD" && !argument.empty());
    m_control->writeAll(line.data(), line.size(), limits.step());
}

FtpSession::Reply FtpSession::ask(std::string_view command, std::string_view argument,
                                  const FtpLimits& limits)
{
    send(command, argument, limits);
    return readFinalReply(limits);
}

unsigned short FtpSession::dataPort(const FtpLimits& limits)
{
    constexpr unsigned long kLargestPort = 65535;
    constexpr std::size_t kPassiveNumbers = 6;
    if (m_knowsExtendedPassive) {
        send("EPSV", "", limits);
        m_dataTools.prepare(m_address.getFamily()); // while the server answers
        const Reply reply = readFinalReply(limits); // (|||port|)
        if (reply.code < 500) {
            requireOneOf(reply, {229});
            constexpr std::string_view kBars = "|||";
            std::string_view port = reply.text;
            port.remove_prefix(std::min(port.find(kBars), port.size()));
            port.remove_prefix(std::min(kBars.size(), port.size()));
            const bool isNumber = !port.empty() && port.front() >= '0' && port.front() <= '9';
            const std::vector<unsigned long> numbers =
                isNumber ? numbersIn(port) : std::vector<unsigned long>();
            if (numbers.empty() || numbers[0] == 0 || numbers[0] > kLargestPort)
                raiseCode(ERROR_INVALID_DATA);
            return static_cast<unsigned short>(numbers[0]);
        }
        m_knowsExtendedPassive = false;
    }
    const Reply reply = ask("PASV", "", limits); // (a,a,a,a,p,p)
    requireOneOf(reply, {227});
    const std::vector<unsigned long> numbers = numbersIn(reply.text);
    if (numbers.size() < kPassiveNumbers || numbers[4] > 255 || numbers[5] > 255 ||
        numbers[4] + numbers[5] == 0)
        raiseCode(ERROR_INVALID_DATA);
    return static_cast<unsigned short>(numbers[4] << 8U | numbers[5]);
}

// The command goes off while the data connection is being made. If that fails, the server is left waiting for
// it, so the session is not ready again, unless it has refused already.
WirePtr FtpSession::requestTransfer(std::string_view command, std::string_view argument,
                                    const FtpLimits& limits, std::optional<unsigned long long> offset)
{
    PendingConnect connecting(withPort(m_address, dataPort(limits)), m_dataTools);
    const bool isFromOffset = offset.value_or(0) != 0;
    if (isFromOffset || (offset && m_wasPlaced)) // right before what it is for
        requireOneOf(ask("REST", std::to_string(*offset), limits), {kPlaced});
    send(command, argument, limits);
    try {
        return connecting.finish(limits.step());
    } catch (long) {
        if (m_control->hasArrived())
            requireBegun(limits, isFromOffset);
        throw;
    }
}

void FtpSession::requireBegun(const FtpLimits& limits, bool isFromOffset)
{
    const Reply reply = readReply(limits.step());
    m_isTransferDone = isOneOf(reply.code, kTransferred); // all is under way already
    if (!m_isTransferDone && reply.code >= 200) {
        settle(reply.code);
        m_isReady = m_isReady && reply.code >= 400 && !isFromOffset; // the next one is to begin at 0
        raiseCode(codeOfReply(reply.code));
    }
}

WirePtr FtpSession::beginTransfer(std::string_view command, std::string_view argument,
                                  const FtpLimits& limits, unsigned long long offset)
{
    WirePtr data = requestTransfer(command, argument, limits, offset);
    requireBegun(limits, offset != 0);
    return data;
}

bool FtpSession::hasConfirmedTransfer() const noexcept
{
    return isOneOf(m_lastReply, kTransferred);
}

void FtpSession::endTransfer(const FtpLimits& limits)
{
    if (m_isTransferDone)
        settle(200);
    else
        requireOneOf(readFinalReply(limits), kTransferred);
}

std::optional<unsigned long long> FtpSession::sizeOf(const std::string& file, const FtpLimits& limits)
{
    const Reply reply = ask("SIZE", file, limits);
    if (reply.code == 550)
        return {};
    requireOneOf(reply, {213});
    unsigned long long size = 0;
    const std::size_t at = reply.text.find_first_not_of(' ');
    if (at == std::string::npos)
        raiseCode(ERROR_INVALID_DATA);
    for (const char c : std::string_view(reply.text).substr(at)) {
        if (c < '0' || c > '9' || size > (~0ULL - 9) / 10)
            raiseCode(ERROR_INVALID_DATA);
        size = size * 10 + static_cast<unsigned long long>(c - '0');
    }
    return size;
}

void FtpSession::retrieve(const std::string& file, unsigned long long offset, const FtpLimits& limits,
                          const std::function<void(const char* data, std::size_t size)>& take)
{
    WirePtr data = beginTransfer("RETR", file, limits, offset);
    std::vector<char> piece(kPiece);
    for (;;) {
        std::size_t got = 0;
        try {
            got = data->readSome(piece.data(), piece.size(), limits.step());
        } catch (long code) {
            if (code != ERROR_BROKEN_PIPE)
                throw;
            break;
        }
        take(piece.data(), got);
    }
    data.reset();
    endTransfer(limits);
}

void FtpSession::store(const std::string& file, const FtpLimits& limits,
                       const std::function<std::size_t(char* room, std::size_t size)>& give)
{
    {
        const WirePtr data = beginTransfer("STOR", file, limits);
        std::vector<char> piece(kPiece);
        for (std::size_t size = 0; (size = give(piece.data(), piece.size())) != 0;)
            data->writeAll(piece.data(), size, limits.step());
        data->close();
    }
    endTransfer(limits);
    requireInStep("NOOP", kIdle, limits);
}

// A reply of another command that has come late would be taken for the deletion's, or the upload's. Then its
// own is the next: it is no answer to NOOP.
void FtpSession::remove(const std::string& file, const FtpLimits& limits)
{
    const Reply reply = ask("DELE", file, limits);
    if (m_isReady)
        requireInStep("NOOP", kIdle, limits);
    requireOneOf(reply, kDeleted);
}

// Folders: what FtpSession lists, and how it finds out in which way the server lists them best.

#include <algorithm>
#include <functional>

#include "core/win32/utils/ftp/include/FtpSession.h"

namespace {
constexpr std::size_t kLargestListing = 64U << 20U;

/// Of what a listing tells: two folders that hold the same have the same.
std::size_t fingerprintOf(const FtpListing& listing)
{
    std::string text;
    for (const FtpEntry& entry : listing.entries)
        text.append(std::to_string(static_cast<int>(entry.kind)))
            .append(std::to_string(entry.size.value_or(0)))
            .append("/")
            .append(entry.bytes)
            .append("\n");
    return std::hash<std::string>()(text);
}
} // namespace

// The bytes of a listing, or 0 at its end. Until the first ones come, the server's reply may come instead: it
// is looked for now and then, so it needs no wait of its own when all is well.
std::size_t FtpSession::readPiece(Wire& data, std::vector<char>& piece, WaitLimits step,
                                  const FtpLimits& limits, bool& isBegun)
{
    constexpr DWORD kFirstLook = 10; // milliseconds
    const Deadline whole = step.deadline;
    for (DWORD look = kFirstLook;; look *= 2) {
        const bool isLast = isBegun || whole.getLeft() <= look;
        step.deadline = isLast ? whole : Deadline(look);
        try {
            return data.readSome(piece.data(), piece.size(), step);
        } catch (long code) {
            if (code == ERROR_BROKEN_PIPE)
                return 0;
            // A server that refuses may also drop the connection: what it says counts.
            const bool mayRefuse = code == WAIT_TIMEOUT ? !isLast : !isBegun && code != ERROR_CANCELLED;
            if (!mayRefuse || (code != WAIT_TIMEOUT && !m_control->hasArrived()))
                throw;
        }
        if (m_control->hasArrived()) {
            requireBegun(limits, false);
            isBegun = true;
        }
    }
}

std::string FtpSession::readListing(std::string_view command, std::string_view argument,
                                    const FtpLimits& limits)
{
    WirePtr data = requestTransfer(command, argument, limits, std::nullopt);
    const Deadline whole = limits.whole();
    std::string text;
    std::vector<char> piece(kPiece);
    bool isBegun = false;
    for (;;) {
        const std::size_t got = readPiece(*data, piece, limits.step(whole), limits, isBegun);
        if (got == 0)
            break;
        if (got > kLargestListing - text.size())
            raiseCode(ERROR_MESSAGE_EXCEEDS_MAX_SIZE);
        text.append(piece.data(), got);
    }
    data.reset(); // some servers wait for it before they reply
    if (!isBegun)
        requireBegun(limits, false);
    endTransfer(limits);
    return text;
}

bool FtpSession::enter(const std::string& folder, const FtpLimits& limits)
{
    const Reply reply = ask("CWD", folder, limits);
    if (reply.code == 550)
        return false; // it stands where it stood
    requireOneOf(reply, kAgreed);
    m_standing.reset();
    m_before.reset();
    return true;
}

// MLSD takes the folder's name as it is, where the server has proven to heed it. Where it refuses that, the
// folder is entered first.
FtpListing FtpSession::list(const std::string& folder, const FtpLimits& limits)
{
    if (m_hasMachineListing && m_machinePaths == PathUse::Proven) {
        std::optional<FtpListing> listing = listMachine(folder, limits);
        if (listing && (!m_before || m_before->fingerprint != fingerprintOf(*listing)))
            return *std::move(listing); // otherwise it may be that of the folder where the session stands
    }
    if (m_hasMachineListing) {
        const std::optional<Listed> before = m_before;
        if (!enter(folder, limits))
            raiseCode(ERROR_PATH_NOT_FOUND);
        try {
            FtpListing listing =
                FtpListing::parse(readListing("MLSD", "", limits), FtpListing::Form::Machine);
            const std::size_t fingerprint = fingerprintOf(listing);
            m_before = Listed{folder, fingerprint};
            if (before && before->fingerprint != fingerprint && m_machinePaths == PathUse::Unknown)
                proveMachine(*before, limits);
            return listing;
        } catch (long code) {
            if (code != ERROR_NOT_SUPPORTED || !m_isReady)
                throw;
            m_hasMachineListing = false;
        }
    }
    return listPlain(folder, limits);
}

// By its path; none when the server refuses.
std::optional<FtpListing> FtpSession::listMachine(const std::string& folder, const FtpLimits& limits)
{
    try {
        return FtpListing::parse(readListing("MLSD", folder, limits), FtpListing::Form::Machine);
    } catch (long) {
        if (!m_isReady)
            throw;
    }
    return {};
}

// The session stands in a folder. Does the server list the one before it by its path, which holds something
// else? One that lists where it stands would show files under names that are not theirs.
void FtpSession::proveMachine(const Listed& before, const FtpLimits& limits)
{
    const std::optional<FtpListing> listing = listMachine(before.folder, limits);
    m_machinePaths =
        listing && fingerprintOf(*listing) == before.fingerprint ? PathUse::Proven : PathUse::Refuted;
    if (m_machinePaths == PathUse::Proven && enter(before.folder, limits))
        m_before = before; // many folders are like each other, few like the first one
}

// By its path where the server is known to heed it. A listing that does not name the folder itself as one may
// be that of a file, or stand for a folder that is not there: only entering it tells.
FtpListing FtpSession::listPlain(const std::string& folder, const FtpLimits& limits)
{
    if (m_paths.covers(folder)) {
        std::optional<FtpListing> listing = listByPath(folder, limits);
        if (listing)
            return *std::move(listing);
    }
    std::optional<std::string> byPath;
    if (m_first && m_paths.begin(folder) && standAbove(folder, limits))
        byPath = listHidden(folder, limits);
    const std::optional<Listed> above = m_standing;
    if (!enter(folder, limits))
        raiseCode(ERROR_PATH_NOT_FOUND);
    if (m_listsHidden) {
        std::optional<std::string> text;
        FtpListing listing = listWhereItStands(folder, limits, text);
        m_knowsHidden = m_knowsHidden || listing.hasItself;
        if (listing.hasItself && byPath == text && m_standing->fingerprint != above->fingerprint)
            prove(folder, limits);
        if (!listing.isEmpty)
            return listing;
        if (m_knowsHidden)
            raiseCode(ERROR_ACCESS_DENIED); // not even "." is there
        m_listsHidden = false;              // the option is taken for a name
    }
    return FtpListing::parse(readListing("LIST", "", limits), FtpListing::Form::Plain);
}

// None when that does not tell. In place of a file some servers list what has its name where the session
// stands, "." with it, but never "..". What is listed like the folder where the session stands may be that
// folder: the session goes to the first one, which few are like, and asks again.
std::optional<FtpListing> FtpSession::listByPath(const std::string& folder, const FtpLimits& limits)
{
    const std::optional<std::string> text = listHidden(folder, limits);
    FtpListing listing = FtpListing::parse(text.value_or(""), FtpListing::Form::Plain);
    if (!listing.hasItself || !listing.hasParent)
        return {};
    const std::size_t fingerprint = std::hash<std::string>()(*text);
    if (m_standing && fingerprint != m_standing->fingerprint)
        return listing;
    if (!m_first || fingerprint == m_first->fingerprint || !enter(m_first->folder, limits))
        return {};
    m_standing = m_first;
    return listHidden(folder, limits) == text ? std::optional(std::move(listing)) : std::nullopt;
}

// A server that cuts paths short lists the folder above, so the two are compared. False: that one does not
// tell.
bool FtpSession::standAbove(const std::string& folder, const FtpLimits& limits)
{
    const std::string above = folder.substr(0, std::max(folder.rfind('/'), std::size_t{1}));
    if (m_standing && m_standing->folder == above)
        return true;
    std::optional<std::string> text;
    return enter(above, limits) && listWhereItStands(above, limits, text).hasItself;
}

// `text` is the listing as it came; none when the server refuses.
FtpListing FtpSession::listWhereItStands(const std::string& folder, const FtpLimits& limits,
                                         std::optional<std::string>& text)
{
    text = listHidden("", limits);
    FtpListing listing = FtpListing::parse(text.value_or(""), FtpListing::Form::Plain);
    if (listing.hasItself) {
        m_standing = Listed{folder, std::hash<std::string>()(*text)};
        if (!m_first)
            m_first = m_standing;
    }
    return listing;
}

// The text of a listing, or none when the server refuses. One that is longer than any that STAT has shown is
// asked for with LIST as well: some servers may cut what they answer.
std::optional<std::string> FtpSession::listHidden(const std::string& folder, const FtpLimits& limits)
{
    const std::string argument = folder.empty() ? "-a" : std::string(kHiddenOf).append(folder);
    StatusProof& proof = folder.empty() ? m_statusHere : m_statusOfPath;
    if (!proof.isProven()) {
        std::optional<std::string> text = listByData(argument, limits);
        if (text && m_first) // for one folder it would not pay
            proveStatus(proof, argument, *text, limits);
        return text;
    }
    std::optional<std::string> text = listByStatus(argument, limits);
    if (text && text->size() <= m_statusLength)
        return text;
    if (listByData(argument, limits) != text) {
        m_isTryingStatus = true;
        raiseOutOfStep();
    }
    m_statusLength = std::max(m_statusLength, text.value_or("").size());
    return text;
}

// What the server breaks off over a path is not tried again.
std::optional<std::string> FtpSession::listByData(const std::string& argument, const FtpLimits& limits)
{
    std::optional<std::string> text;
    try {
        text = readListing("LIST", argument, limits);
    } catch (long) {
        if (!m_isReady)
            throw;
    }
    return text;
}

// The reply to STAT: a line, those of the listing, and another line. None when the server refuses.
std::optional<std::string> FtpSession::readStatus(const FtpLimits& limits)
{
    const Deadline whole = limits.whole();
    Reply reply = readReply([&] { return limits.step(whole); }, kLargestListing, true);
    if (!isDoneWith(reply, {211, 212, 213}))
        return {};
    const std::size_t first = reply.text.find('\n') + 1;
    const std::size_t last = reply.text.rfind('\n') + 1;
    return reply.text.substr(first, last - first);
}

// STAT lists over the control connection (RFC 959, 4.1.3), which saves the data connection and two round
// trips of three. But a name with a line's end in it, which vsftpd sends as it is, could end the listing and
// put replies of its own behind it. So the server has to repeat a number right there, as the position of a
// transfer, which is set back at once. Nothing that was written before can hold that number, and in a reply
// of several lines it could be what the server says in truth, behind a part of the listing.
std::optional<std::string> FtpSession::listByStatus(const std::string& argument, const FtpLimits& limits)
{
    const std::string position = m_positions.next();
    send("STAT", argument, limits, "REST " + position + "\r\nREST 0\r\n");
    std::optional<std::string> text = readStatus(limits);
    const Reply reply = readReply(limits.step());
    if (reply.code != kPlaced || reply.text != m_placed->before + position + m_placed->behind ||
        readFinalReply(limits).code != kPlaced)
        raiseOutOfStep();
    m_isTryingStatus = false;
    return text;
}

// `text` is what LIST has shown. One command at a time, until all is known. A folder that is like another one
// around proves nothing.
void FtpSession::proveStatus(StatusProof& proof, const std::string& argument, const std::string& text,
                             const FtpLimits& limits)
{
    const std::size_t fingerprint = std::hash<std::string>()(text);
    if (!proof.takes(fingerprint) || fingerprint == m_first->fingerprint ||
        (m_standing && fingerprint == m_standing->fingerprint) ||
        !FtpListing::parse(text, FtpListing::Form::Plain).hasItself)
        return;
    send("STAT", argument, limits);
    const std::optional<std::string> same = readStatus(limits);
    settle(m_lastReply);
    if (same == text && (m_placed || learnPlaced(limits))) {
        proof.confirm(fingerprint);
        m_statusLength = std::max(m_statusLength, text.size());
    } else {
        proof.refute();
    }
    m_isTryingStatus = false;
}

// Whether and how the server repeats positions.
bool FtpSession::learnPlaced(const FtpLimits& limits)
{
    const std::string position = m_positions.next();
    const Reply reply = ask("REST", position, limits);
    if (reply.code != kPlaced)
        return false;
    m_wasPlaced = true;
    if (ask("REST", "0", limits).code != kPlaced)
        raiseOutOfStep();
    const std::size_t at = reply.text.find(position);
    if (at == std::string::npos || reply.text.find('\n') != std::string::npos)
        return false;
    m_placed = Placed{reply.text.substr(0, at), reply.text.substr(at + position.size())};
    return true;
}

// The server has listed a folder by its path as it does after entering it, and otherwise than where the
// session stood: it does not ignore the path. It must not show anything in place of a folder that is not
// there, either.
void FtpSession::prove(const std::string& folder, const FtpLimits& limits)
{
    const std::string missing = std::string(folder).append("/sysmaint.none");
    const bool isTrue =
        m_paths.hasAny() ||
        !FtpListing::parse(listHidden(missing, limits).value_or(""), FtpListing::Form::Plain).hasItself;
    isTrue ? m_paths.confirm(folder) : m_paths.refute();
}

std::string FtpSession::uniqueOf(const std::string& folder, const FtpLimits& limits)
{
    if (!enter(folder, limits))
        return {};
    const Reply reply = ask("MLST", "", limits);
    return isDoneWith(reply, {250}) ? uniqueOfReply(reply.text) : std::string();
}

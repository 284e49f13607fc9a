#include "core/win32/utils/ftp/include/FtpListing.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <unordered_set>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/strings/include/Unicode.h"

namespace {
constexpr std::string_view kDigits = "0123456789";

bool isNumber(std::string_view text)
{
    return !text.empty() && text.find_first_not_of(kDigits) == std::string_view::npos;
}

std::optional<unsigned long long> numberOf(std::string_view text)
{
    unsigned long long number = 0;
    if (!isNumber(text))
        return {};
    for (const char c : text) {
        const auto digit = static_cast<unsigned long long>(c - '0');
        if (number > (~0ULL - digit) / 10)
            return {};
        number = number * 10 + digit;
    }
    return number;
}

std::string lowered(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c + 32);
    return result;
}

bool isControl(wchar_t c)
{
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
}

/// The words of a line, and where each ends.
struct Words
{
    explicit Words(std::string_view text, std::size_t most) : line(text)
    {
        for (std::size_t at = 0; words.size() < most;) {
            at = line.find_first_not_of(' ', at);
            if (at == std::string_view::npos)
                return;
            const std::size_t end = std::min(line.find(' ', at), line.size());
            words.push_back(line.substr(at, end - at));
            ends.push_back(end);
            at = end;
        }
    }
    /// What follows a word and one blank.
    [[nodiscard]] std::string_view after(std::size_t word) const
    {
        return ends[word] < line.size() ? line.substr(ends[word] + 1) : std::string_view();
    }

    std::string_view line;
    std::vector<std::string_view> words;
    std::vector<std::size_t> ends;
};

bool isMonth(std::string_view word)
{
    constexpr std::string_view kMonths = "jan feb mar apr may jun jul aug sep oct nov dec";
    return word.size() == 3 && kMonths.find(lowered(word)) % 4 == 0;
}

/// "-rwxr-xr-x" with the marks that some systems append.
bool isUnixMode(std::string_view word)
{
    constexpr std::size_t kLength = 10;
    return word.size() >= kLength && word.size() <= kLength + 1 &&
           std::string_view("-dlbcps").find(word.front()) != std::string_view::npos &&
           word.substr(1, kLength - 1).find_first_not_of("-rwxsStTlL") == std::string_view::npos;
}

// "name -> target"; a link's size is the length of its target.
std::string_view linkName(std::string_view text, std::optional<unsigned long long> targetLength)
{
    constexpr std::string_view kArrow = " -> ";
    if (targetLength && *targetLength + kArrow.size() < text.size()) {
        const std::size_t at = text.size() - static_cast<std::size_t>(*targetLength) - kArrow.size();
        if (text.substr(at, kArrow.size()) == kArrow)
            return text.substr(0, at);
    }
    return text.substr(0, text.find(kArrow));
}

// mode, links, owner, group, size, month, day, time or year, name; some systems leave words out before the
// size, and some write the date as 2024-01-31 10:00.
bool parseUnix(std::string_view line, FtpEntry& entry)
{
    constexpr std::size_t kMostWords = 12;
    const Words parts(line, kMostWords);
    if (parts.words.size() < 4 || !isUnixMode(parts.words[0]))
        return false;
    for (std::size_t i = 2; i + 1 < parts.words.size(); ++i) {
        const std::string_view word = parts.words[i];
        const bool isIso = word.size() == 10 && word[4] == '-' && word[7] == '-' &&
                           parts.words[i + 1].find(':') != std::string_view::npos;
        const bool isDate = i + 2 < parts.words.size() && isMonth(word) && isNumber(parts.words[i + 1]);
        if ((!isIso && !isDate) || !isNumber(parts.words[i - 1]))
            continue;
        const char type = line.front();
        const std::optional<unsigned long long> size = numberOf(parts.words[i - 1]);
        entry.bytes = parts.after(isIso ? i + 1 : i + 2);
        entry.kind = type == 'd'   ? FtpEntry::Kind::Folder
                     : type == 'l' ? FtpEntry::Kind::Link
                                   : FtpEntry::Kind::File;
        if (type == 'l')
            entry.bytes = linkName(std::string_view(entry.bytes), size);
        if (type == '-')
            entry.size = size;
        return true;
    }
    return false;
}

// 01-31-24  10:00AM  <DIR>  name
bool parseDos(std::string_view line, FtpEntry& entry)
{
    constexpr std::size_t kFolderPadding = 9; // more blanks than one after <DIR>
    const Words parts(line, 3);
    const bool isDos = parts.words.size() == 3 && parts.words[0].size() >= 8 && parts.words[0][2] == '-' &&
                       parts.words[0][5] == '-' && parts.words[1].find(':') != std::string_view::npos;
    if (!isDos)
        return false;
    std::string_view name = parts.after(2);
    if (parts.words[2].starts_with('<')) {
        name.remove_prefix(std::min({name.find_first_not_of(' '), kFolderPadding, name.size()}));
        const bool isLink = parts.words[2] != "<DIR>";
        entry.kind = isLink ? FtpEntry::Kind::Link : FtpEntry::Kind::Folder;
        entry.bytes = isLink ? name.substr(0, name.find(" [")) : name;
        return true;
    }
    entry.size = numberOf(parts.words[2]);
    entry.bytes = name;
    return entry.size.has_value();
}

bool parsePlain(std::string_view line, FtpEntry& entry)
{
    return parseUnix(line, entry) || parseDos(line, entry);
}

// fact=value;fact=value; name. Without the fact "type" nothing tells what it is.
bool parseMachine(std::string_view line, FtpEntry& entry, bool& isListed)
{
    const std::size_t blank = line.find(' ');
    if (blank == std::string_view::npos || (blank != 0 && line[blank - 1] != ';'))
        return false;
    entry.bytes = line.substr(blank + 1);
    bool isTyped = false;
    for (std::string_view facts = line.substr(0, blank); !facts.empty();) {
        const std::string_view fact = facts.substr(0, facts.find(';'));
        facts.remove_prefix(std::min(fact.size() + 1, facts.size()));
        const std::size_t equals = fact.find('=');
        if (equals == std::string_view::npos)
            return false;
        const std::string key = lowered(fact.substr(0, equals));
        const std::string value = lowered(fact.substr(equals + 1));
        if (key == "size")
            entry.size = numberOf(value);
        if (key == "unique") // in which case counts
            entry.unique = fact.substr(equals + 1);
        isListed = isListed || (key == "type" && value == "cdir");
        if (key != "type")
            continue;
        isTyped = true;
        if (value == "cdir" || value == "pdir")
            entry.bytes = std::string(1, '.'); // whatever the server calls them
        else if (value == "dir")
            entry.kind = FtpEntry::Kind::Folder;
        else if (value.starts_with("os.unix=slink") || value.starts_with("os.unix=symlink"))
            entry.kind = FtpEntry::Kind::Link;
    }
    return isTyped;
}

/// Whether the name is one; fills in its text.
bool nameEntry(FtpEntry& entry)
{
    try {
        entry.name = ftpText(entry.bytes);
    } catch (long) {
        return false;
    }
    return !entry.name.empty() && std::none_of(entry.name.begin(), entry.name.end(), [](wchar_t c) {
        return isControl(c) || c == L'/' || c == L'\\';
    });
}
} // namespace

std::wstring ftpText(std::string_view bytes)
{
    constexpr unsigned kWestern = 1252;
    try {
        return unicode::wideFromUtf8(bytes);
    } catch (long code) {
        if (code != ERROR_NO_UNICODE_TRANSLATION)
            throw;
        return unicode::wideFromAnsi(bytes, kWestern);
    }
}

std::string uniqueOfReply(std::string_view text)
{
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        line.remove_prefix(line.starts_with(' ') ? 1 : 0);
        FtpEntry entry;
        bool isListed = false;
        if (parseMachine(line, entry, isListed) && !entry.unique.empty())
            return entry.unique;
    }
    return {};
}

std::string wantedFacts(std::string_view offered)
{
    std::string wanted;
    bool isAsItIs = true;
    while (!offered.empty()) {
        std::string_view fact = offered.substr(0, offered.find(';'));
        offered.remove_prefix(std::min(fact.size() + 1, offered.size()));
        const bool isSent = fact.ends_with('*');
        fact.remove_suffix(isSent ? 1 : 0);
        const bool isWanted = fact == "TYPE" || fact == "SIZE" || fact == "UNIQUE";
        if (isWanted)
            wanted.append(fact).push_back(';');
        isAsItIs = isAsItIs && isSent == isWanted;
    }
    return isAsItIs || wanted.find("TYPE;") == std::string::npos ? std::string() : wanted;
}

// Where lines end with "\r\n", a "\n" or a "\r" alone belongs to a name, which is none then. A line without
// an end is a part of one: it would name something else.
FtpListing FtpListing::parse(std::string_view text, Form form)
{
    FtpListing listing;
    std::unordered_set<std::string> seen;
    const std::string_view lineEnd = text.find("\r\n") != std::string_view::npos ? "\r\n" : "\n";
    for (bool isFirst = true; !text.empty(); isFirst = false) {
        const std::size_t end = text.find(lineEnd);
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(line.size() + lineEnd.size(), text.size()));
        if ((line.empty() && form == Form::Plain) ||
            (isFirst && form == Form::Plain && line.starts_with("total ")))
            continue;
        FtpEntry entry;
        bool isListed = false; // the line is the folder's own
        if (end == std::string_view::npos ||
            !(form == Form::Machine ? parseMachine(line, entry, isListed) : parsePlain(line, entry))) {
            listing.failure = listing.failure != 0 ? listing.failure : long{ERROR_INVALID_DATA};
            continue;
        }
        listing.isEmpty = false;
        if (isListed)
            listing.unique = entry.unique;
        const bool isFolder = entry.kind == FtpEntry::Kind::Folder;
        listing.hasItself = listing.hasItself || (isFolder && entry.bytes == ".");
        listing.hasParent = listing.hasParent || (isFolder && entry.bytes == "..");
        if (entry.bytes == "." || entry.bytes == "..")
            continue;
        if (!nameEntry(entry)) {
            listing.failure = listing.failure != 0 ? listing.failure : long{ERROR_INVALID_NAME};
            continue;
        }
        if (seen.insert(entry.bytes).second)
            listing.entries.push_back(std::move(entry));
    }
    return listing;
}

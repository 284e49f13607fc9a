#include "UtilChecksum.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

#include "Command.h"
#include "Console.h"
#include "OwnedText.h"

#include "core/win32/utils/checksums/api.h"
#include "core/win32/utils/files/api.h"
#include "core/win32/utils/strings/api.h"

namespace {
using FileDigest = long (*)(const wchar_t*, void*, ChecksumProgress, void*, unsigned char*);

/// The value in the usual order of bytes.
long crc32OfFile(const wchar_t* path, void* cancelEvent, ChecksumProgress progress, void* context,
                 unsigned char* digest)
{
    unsigned long value = 0;
    const long code = ChecksumFileCrc32(path, cancelEvent, progress, context, &value);
    for (int i = 0; i < 4; ++i)
        digest[i] = static_cast<unsigned char>(value >> (24U - 8U * static_cast<unsigned>(i)));
    return code;
}

const struct Algorithm
{
    const wchar_t* name;
    std::size_t size;
    FileDigest ofFile;
} kAlgorithms[] = {{L"sha256", 32, ChecksumFileSha256},
                   {L"sha1", 20, ChecksumFileSha1},
                   {L"md5", 16, ChecksumFileMd5},
                   {L"crc32", 4, crc32OfFile}};

void showProgress(unsigned long long done, unsigned long long size, void* context)
{
    auto* line = static_cast<ProgressLine*>(context);
    if (size != 0 && line->isDue())
        line->show(std::to_wstring(done * 100 / size) + L"%  " + formatBytes(done) + L" of " +
                   formatBytes(size));
}

long sumOf(const Algorithm& algorithm, const std::wstring& file, std::wstring& sum)
{
    ProgressLine line;
    unsigned char digest[32];
    const long code = algorithm.ofFile(file.c_str(), cancelEvent(), showProgress, &line, digest);
    line.clear();
    if (code == ERROR_SUCCESS)
        sum = textOf([&](wchar_t** text) { return StringFormatHexW(digest, algorithm.size, text); });
    return code;
}

void replaceAll(std::wstring& text, const wchar_t* from, const wchar_t* to)
{
    text = textOf([&](wchar_t** result) { return StringReplaceAllW(text.c_str(), from, to, 0, result); });
}

/// A line of a list. A backslash in a name is doubled, which a backslash at the beginning of the line marks.
std::wstring lineOf(const std::wstring& sum, std::wstring name)
{
    const bool escaped = name.find(L'\\') != std::wstring::npos;
    replaceAll(name, L"\\", L"\\\\");
    return (escaped ? L"\\" : L"") + sum + L"  " + name;
}

struct Listed
{
    const Algorithm* algorithm;
    std::wstring sum;
    std::wstring name;
};

bool isHex(std::wstring_view text)
{
    return text.find_first_not_of(L"0123456789abcdefABCDEF") == std::wstring_view::npos;
}

/// Parses a line that names the algorithm: "SHA256 (name) = sum".
bool parseTagged(std::wstring_view line, Listed& listed, std::wstring_view& name)
{
    constexpr std::wstring_view kOpen = L" (";
    constexpr std::wstring_view kClose = L") = ";
    const std::size_t open = line.find(kOpen);
    const std::size_t close = line.rfind(kClose);
    if (open == std::wstring_view::npos || close == std::wstring_view::npos || close < open + kOpen.size())
        return false;
    const std::wstring tag(line.substr(0, open));
    const std::wstring_view sum = line.substr(close + kClose.size());
    for (const Algorithm& each : kAlgorithms) {
        int isSame = 0;
        StringStartsWithW(tag.c_str(), each.name, 1, &isSame);
        if (isSame == 0 || tag.size() != std::wcslen(each.name) || sum.size() != each.size * 2 || !isHex(sum))
            continue;
        listed = {&each, std::wstring(sum), L""};
        name = line.substr(open + kOpen.size(), close - open - kOpen.size());
        return true;
    }
    return false;
}

/// Parses a line where the length of the sum tells the algorithm.
bool parsePlain(std::wstring_view line, Listed& listed, std::wstring_view& name)
{
    const std::size_t digits = std::min(line.find(L' '), line.size());
    const auto* found = std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms),
                                     [&](const Algorithm& each) { return each.size * 2 == digits; });
    if (found == std::end(kAlgorithms) || line.size() < digits + 3 ||
        (line[digits + 1] != L' ' && line[digits + 1] != L'*') || !isHex(line.substr(0, digits)))
        return false;
    listed = {found, std::wstring(line.substr(0, digits)), L""};
    name = line.substr(digits + 2);
    return true;
}

/// Parses a line of a list; false when it is malformed.
bool parseLine(std::wstring_view line, Listed& listed)
{
    const bool escaped = !line.empty() && line.front() == L'\\';
    line.remove_prefix(escaped ? 1 : 0);
    std::wstring_view name;
    if (!parsePlain(line, listed, name) && !parseTagged(line, listed, name))
        return false;
    for (std::size_t i = 0; i < name.size(); ++i) {
        wchar_t c = name[i];
        if (escaped && c == L'\\') {
            constexpr std::wstring_view kEscapes = L"nr\\";
            const std::size_t known = ++i < name.size() ? kEscapes.find(name[i]) : std::wstring_view::npos;
            if (known == std::wstring_view::npos)
                return false;
            c = L"\n\r\\"[known];
        }
        listed.name += c;
    }
    return !listed.name.empty();
}

/// The results of a list.
struct Tally
{
    std::size_t good = 0;
    std::size_t bad = 0;
    std::size_t unread = 0;
    std::size_t wrongLines = 0;
};

long checkLine(const std::wstring& line, Tally& tally)
{
    Listed listed;
    if (!parseLine(line, listed)) {
        ++tally.wrongLines;
        return ERROR_SUCCESS;
    }
    std::wstring sum;
    const long code = sumOf(*listed.algorithm, listed.name, sum);
    if (code == ERROR_CANCELLED)
        return code;
    int equal = 0;
    StringStartsWithW(listed.sum.c_str(), sum.c_str(), 1, &equal); // both have the same length
    const bool good = code == ERROR_SUCCESS && equal != 0;
    ++(code != ERROR_SUCCESS ? tally.unread : good ? tally.good : tally.bad);
    results().writeLine(printable(listed.name) + (good                    ? L": OK"
                                                  : code != ERROR_SUCCESS ? L": FAILED open or read"
                                                                          : L": FAILED"));
    if (code != ERROR_SUCCESS)
        messages().writeLine(L"util: " + printable(listed.name) + L": " + formatCode(code));
    return ERROR_SUCCESS;
}

/// The text of a list: UTF-8, or UTF-16 with a byte-order mark, as the shells of Windows write it.
long readList(const std::wstring& list, std::wstring& text)
{
    constexpr unsigned long long kLongest = 1ULL << 28U;
    OwnedBuffer<unsigned char> bytes;
    std::size_t size = 0;
    if (const long code = FileReadAll(list.c_str(), kLongest, bytes.target(), &size); code != ERROR_SUCCESS)
        return code;
    const unsigned char* const all = bytes.get();
    const bool isLittle = size >= 2 && all[0] == 0xFF && all[1] == 0xFE;
    const bool isBig = size >= 2 && all[0] == 0xFE && all[1] == 0xFF;
    if (isLittle || isBig) {
        if (size % 2 != 0)
            return ERROR_INVALID_DATA;
        for (std::size_t i = 2; i < size; i += 2)
            text += static_cast<wchar_t>(all[i + (isBig ? 1 : 0)] | all[i + (isBig ? 0 : 1)] << 8U);
    } else {
        OwnedBuffer<wchar_t> wide;
        std::size_t count = 0;
        if (const long code =
                StringUtf8ToWide(reinterpret_cast<const char*>(all), size, wide.target(), &count);
            code != ERROR_SUCCESS)
            return code;
        text.assign(wide.get(), count);
        if (!text.empty() && text.front() == L'\xFEFF')
            text.erase(0, 1);
    }
    // No line after a zero would be read.
    return text.find(L'\0') == std::wstring::npos ? ERROR_SUCCESS : ERROR_INVALID_DATA;
}

/// "1 line is ..." or "3 lines are ...".
std::wstring counted(std::size_t count, const wchar_t* one, const wchar_t* more)
{
    return formatCount(count) + (count == 1 ? one : more);
}

int checkList(const std::wstring& list)
{
    std::wstring text;
    OwnedBuffer<wchar_t> lines;
    std::size_t count = 0;
    long code = readList(list, text);
    if (code == ERROR_SUCCESS)
        code = StringSplitW(text.c_str(), L"\r\n", 0, lines.target(), &count);
    Tally tally;
    const wchar_t* line = lines.get();
    for (std::size_t i = 0; i < count && code == ERROR_SUCCESS; ++i) {
        const std::wstring each = line;
        line += each.size() + 1;
        if (each.front() != L'#') // a comment
            code = checkLine(each, tally);
    }
    if (code == ERROR_CANCELLED)
        return kExitCancelled;
    if (code != ERROR_SUCCESS)
        messages().writeLine(L"util: " + printable(list) + L": " + formatCode(code));
    else if (tally.good + tally.bad + tally.unread == 0)
        messages().writeLine(L"util: " + printable(list) + L": there is no checksum in it");
    if (tally.wrongLines != 0)
        messages().writeLine(L"util: " + counted(tally.wrongLines,
                                                 L" line is no checksum, nothing was checked for it",
                                                 L" lines are no checksums, nothing was checked for them"));
    if (tally.bad + tally.unread != 0)
        messages().writeLine(L"util: " + counted(tally.bad, L" does not match, ", L" do not match, ") +
                             formatCount(tally.unread) + L" could not be read");
    // An empty list confirms nothing.
    const bool good =
        code == ERROR_SUCCESS && tally.good != 0 && tally.bad + tally.unread + tally.wrongLines == 0;
    return good ? kExitDone : kExitFailed;
}

int printSums(const Arguments& arguments)
{
    const std::wstring name = arguments.value(L"--algorithm", L"sha256");
    const auto* algorithm = std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms),
                                         [&](const Algorithm& each) { return name == each.name; });
    if (algorithm == std::end(kAlgorithms))
        throw UsageError{L"--algorithm takes sha256, sha1, md5 or crc32"};
    int result = kExitDone;
    for (const std::wstring& file : arguments.operands()) {
        std::wstring sum;
        const long code = sumOf(*algorithm, file, sum);
        if (code == ERROR_CANCELLED)
            return kExitCancelled;
        if (code != ERROR_SUCCESS) {
            messages().writeLine(L"util: " + printable(file) + L": " + formatCode(code));
            result = kExitFailed;
        } else if (arguments.has(L"--json")) {
            results().writeLine(L"{\"file\":" + jsonString(file) + L",\"algorithm\":\"" + algorithm->name +
                                L"\",\"checksum\":\"" + sum + L"\"}");
        } else {
            results().writeLine(lineOf(sum, file));
        }
    }
    return result;
}
} // namespace

int checksumCommand(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--algorithm", true}, {L"--check", false}, {L"--json", false}});
    if (arguments.operands().empty())
        throw UsageError{L"which file?"};
    if (!arguments.has(L"--check"))
        return printSums(arguments);
    if (arguments.has(L"--algorithm") || arguments.has(L"--json"))
        throw UsageError{L"--check goes with no other option"};
    int result = kExitDone;
    for (const std::wstring& list : arguments.operands())
        if (const int code = checkList(list); code != kExitDone)
            result = std::max<int>(result, code);
    return result;
}

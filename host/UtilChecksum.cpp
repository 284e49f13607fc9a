#include "UtilChecksum.h"

#include <algorithm>
#include <iterator>

#include "Command.h"
#include "Console.h"
#include "OwnedText.h"

#include "core/win32/utils/checksums/api.h"
#include "core/win32/utils/files/api.h"
#include "core/win32/utils/strings/api.h"

namespace {
using FileDigest = long (*)(const wchar_t*, void*, ChecksumProgress, void*, unsigned char*);

/// The value in the order in which people write it.
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

/// A line of a list. A name with a backslash is written with two, and the line says so at its beginning.
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

/// Takes a line of a list apart; false when it is none.
bool parseLine(std::wstring_view line, Listed& listed)
{
    const bool escaped = !line.empty() && line.front() == L'\\';
    line.remove_prefix(escaped ? 1 : 0);
    const std::size_t digits = std::min(line.find(L' '), line.size());
    const auto* found = std::find_if(std::begin(kAlgorithms), std::end(kAlgorithms),
                                     [&](const Algorithm& each) { return each.size * 2 == digits; });
    if (found == std::end(kAlgorithms) || line.size() < digits + 3 ||
        (line[digits + 1] != L' ' && line[digits + 1] != L'*') ||
        line.substr(0, digits).find_first_not_of(L"0123456789abcdefABCDEF") != std::wstring_view::npos)
        return false;
    listed = {found, std::wstring(line.substr(0, digits)), L""};
    std::wstring_view name = line.substr(digits + 2);
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (escaped && name[i] == L'\\' && ++i == name.size())
            return false;
        listed.name += escaped && name[i] == L'n' && name[i - 1] == L'\\' ? L'\n' : name[i];
    }
    return true;
}

/// What came of a list.
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
    StringStartsWithW(listed.sum.c_str(), sum.c_str(), 1, &equal); // they are of one length
    const bool good = code == ERROR_SUCCESS && equal != 0;
    ++(code != ERROR_SUCCESS ? tally.unread : good ? tally.good : tally.bad);
    results().writeLine(printable(listed.name) + (good                    ? L": OK"
                                                  : code != ERROR_SUCCESS ? L": FAILED open or read"
                                                                          : L": FAILED"));
    if (code != ERROR_SUCCESS)
        messages().writeLine(L"util: " + printable(listed.name) + L": " + formatCode(code));
    return ERROR_SUCCESS;
}

int checkList(const std::wstring& list)
{
    constexpr unsigned long long kLongest = 1ULL << 28U;
    OwnedBuffer<unsigned char> bytes;
    OwnedBuffer<wchar_t> text;
    OwnedBuffer<wchar_t> lines;
    std::size_t size = 0;
    std::size_t count = 0;
    long code = FileReadAll(list.c_str(), kLongest, bytes.target(), &size);
    if (code == ERROR_SUCCESS)
        code = StringUtf8ToWide(reinterpret_cast<const char*>(bytes.get()), size, text.target(), &count);
    if (code == ERROR_SUCCESS)
        code = StringSplitW(text.get(), L"\r\n", 0, lines.target(), &count);
    Tally tally;
    const wchar_t* line = lines.get();
    for (std::size_t i = 0; i < count && code == ERROR_SUCCESS; ++i) {
        const std::wstring each = line;
        line += each.size() + 1;
        code = checkLine(each, tally);
    }
    if (code == ERROR_CANCELLED)
        return kExitCancelled;
    if (code != ERROR_SUCCESS)
        messages().writeLine(L"util: " + printable(list) + L": " + formatCode(code));
    if (tally.wrongLines != 0)
        messages().writeLine(L"util: " + formatCount(tally.wrongLines) + L" lines are no checksums");
    if (tally.bad + tally.unread != 0)
        messages().writeLine(L"util: " + formatCount(tally.bad) + L" do not match, " +
                             formatCount(tally.unread) + L" could not be read");
    // A list that says nothing vouches for nothing.
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

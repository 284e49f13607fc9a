#include "engine/ListedFile.h"

#include "engine/BootNames.h"

namespace {
constexpr Text kPrefix = LR"(\??\)";
constexpr Text kBegin = bootnames::kLineBegin.first(bootnames::kLineBegin.length - kPrefix.length);
constexpr Text kFieldEnd = L"*\t*";
constexpr std::size_t kVolumeRoot = 45;     // Volume{ and a GUID of 36 characters, } and a backslash
constexpr std::size_t kLongestName = 255;   // on every file system
constexpr std::size_t kLongestPath = 32766; // characters
constexpr std::uint32_t kMostPasses = 1000;

constexpr bool isLetter(wchar_t c)
{
    return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
}

/// Parses a number; false when it does not fit its field's type.
bool parseNumber(Text text, std::int64_t& number)
{
    const bool isNegative = text.startsWith(L"-");
    const Text digits = text.from(isNegative ? 1 : 0);
    if (digits.isEmpty() || digits.length > 10)
        return false;
    number = 0;
    for (std::size_t i = 0; i < digits.length; ++i) {
        if (digits[i] < L'0' || digits[i] > L'9')
            return false;
        number = number * 10 + (digits[i] - L'0');
    }
    number = isNegative ? -number : number;
    return true;
}

/// The length of the root that a path begins with; 0 when it has none.
std::size_t rootLength(Text path)
{
    if (path.length > 3 && isLetter(path[0]) && path[1] == L':' && path[2] == L'\\')
        return 3;
    const bool isVolume = path.length > kVolumeRoot && path.startsWithName(L"Volume{") &&
                          path.from(kVolumeRoot - 2).startsWith(L"}\\");
    for (std::size_t i = 7; isVolume && i < kVolumeRoot - 2; ++i) {
        const wchar_t c = path[i];
        const bool isHex = (c >= L'0' && c <= L'9') || (isLetter(c) && (c | 0x20) <= L'f');
        if (!isHex && c != L'-')
            return 0;
    }
    return isVolume ? kVolumeRoot : 0;
}

/// Whether a name means exactly one file to every reader.
bool isPlainName(Text name)
{
    if (name.isEmpty() || name.length > kLongestName || name.is(L".") || name.is(L".."))
        return false;
    for (std::size_t i = 0; i < name.length; ++i)
        if (name[i] < L' ' || Text(L"*?<>\"|/:").find(name[i]) != Text::kNone)
            return false;
    return true;
}
} // namespace

Text takeName(Text& path)
{
    const std::size_t end = path.find(L'\\');
    const Text name = path.first(end);
    path = end == Text::kNone ? Text() : path.from(end + 1);
    return name;
}

Outcome ListedFile::parse(Text line, ListedFile& file)
{
    if (!line.startsWith(kBegin))
        return Outcome::kMalformed;
    line = line.from(kBegin.length);
    const std::size_t pathEnd = line.find(kFieldEnd);
    if (pathEnd == Text::kNone)
        return Outcome::kMalformed;
    const Text numbers = line.from(pathEnd + kFieldEnd.length);
    const std::size_t methodEnd = numbers.find(kFieldEnd);
    std::int64_t method = 0;
    std::int64_t passes = 0;
    if (methodEnd == Text::kNone || !parseNumber(numbers.first(methodEnd), method) ||
        !parseNumber(numbers.from(methodEnd + kFieldEnd.length), passes))
        return Outcome::kMalformed;
    if (method < 1 || method > 3)
        return Outcome::kUnknownMethod;
    if (passes < 0 || passes > kMostPasses)
        return Outcome::kTooManyPasses;
    file.method = static_cast<std::uint32_t>(method);
    file.passes = static_cast<std::uint32_t>(passes);

    const Text whole = line.first(pathEnd);
    const std::size_t root = whole.startsWith(kPrefix) ? rootLength(whole.from(kPrefix.length)) : 0;
    if (root == 0 || whole.length > kLongestPath)
        return Outcome::kNotPlain;
    file.root = whole.first(kPrefix.length + root);
    file.path = whole.from(kPrefix.length + root);
    // A path that ends with a backslash ends with an empty name.
    bool more = true;
    for (Text rest = file.path; more;) {
        more = rest.find(L'\\') != Text::kNone;
        if (!isPlainName(takeName(rest)))
            return Outcome::kNotPlain;
    }
    return Outcome::kDone;
}

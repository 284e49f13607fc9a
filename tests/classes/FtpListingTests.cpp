#include "core/win32/utils/ftp/include/FtpListing.h"
#include "core/win32/utils/ftp/include/PathProof.h"
#include "support/Test.h"

namespace {
constexpr auto kPlain = FtpListing::Form::Plain, kMachine = FtpListing::Form::Machine;

/// The entries of a listing, whose last line is given without its end, in one line: kind, size and name of
/// each; before them "code N", if it is wrong.
std::wstring entriesOf(std::string_view text, FtpListing::Form form)
{
    const FtpListing listing = FtpListing::parse(
        std::string(text).append(text.find('\r') != std::string_view::npos ? "\r\n" : "\n"), form);
    std::wstring line = listing.failure != 0 ? L"code " + std::to_wstring(listing.failure) : L"";
    for (const FtpEntry& entry : listing.entries) {
        constexpr std::wstring_view kKinds = L"fdl";
        line.push_back(kKinds[static_cast<std::size_t>(entry.kind)]);
        line.append(entry.size ? std::to_wstring(*entry.size) : L"-").append(L" ").append(entry.name);
        line.push_back(L'|');
    }
    return line;
}
} // namespace

TEST(FtpListing, UnderstandsWhatUnixAndDosWrite)
{
    const std::pair<const char*, const wchar_t*> rows[] = {
        {"total 8\r\n-rw-r--r-- 1 u g 7 Jan  1 00:00 a b  c\r\n", L"f7 a b  c|"},
        {"-rw-r--r--    1 0        0        18446744073709551615 Nov 30  2020  blank",
         L"f18446744073709551615  blank|"},
        {"-rw-r--r-- 1 u g 18446744073709551616 Nov 30 2020 huge", L"f- huge|"},
        {"-rw-r--r--+ 1 u 7 Jan 1 00:00 no group", L"f7 no group|"},
        {"drwxr-xr-x@ 2 u g 4096 Jan 1 00:00 Jan 1 00:00 x", L"d- Jan 1 00:00 x|"},
        {"drwxr-xr-x 2 Jan g 4096 Jan 1 00:00 x\n", L"d- x|"},
        {"-rw-r--r-- 1 u g 7 2024-01-31 10:00 iso", L"f7 iso|"},
        {"lrwxrwxrwx 1 u g 1 Jan 1 00:00 a -> b -> c", L"l- a -> b|"},
        {"lrwxrwxrwx 1 u g 6 Jan 1 00:00 a -> b -> c", L"l- a|"},
        {"lrwxrwxrwx 1 u g 99 Jan 1 00:00 a -> b", L"l- a|"},
        {"prw-r--r-- 1 u g 0 Jan 1 00:00 pipe", L"f- pipe|"},
        {"01-18-24  10:12AM       <DIR>          a b", L"d- a b|"},
        {"01-18-2024  10:12                 7 a  b", L"f7 a  b|"},
        {"01-18-24  10:12AM       <JUNCTION>     j [C:\\x]", L"l- j|"},
        {"d--------- 2 u g 1 Jan 1 00:00 .\r\nd--------- 2 u g 1 Jan 1 00:00 ..\r\n\r\n", L""},
        {"-rw-r--r-- 1 u g 7 Jan 1 00:00 caf\xE9\n-rw-r--r-- 1 u g 7 Jan 1 00:00 caf\xC3\xA9",
         L"f7 café|f7 café|"}};
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(entriesOf(text, kPlain), expected) << text;
    for (const char* wrong :
         {"hello", "total", "-rw-r--r-- 1 u g x Jan 1 00:00 a", "drwx 1 u g 7 Jan 1 00:00 a",
          "-rw-r--r-- 1 u g 7 Jan 1", "01-18-24 10:12AM x name"})
        EXPECT_EQ(entriesOf(std::string("total 1\n") + wrong, kPlain), L"code 13") << wrong;
    EXPECT_EQ(entriesOf("total\n", kPlain), L"code 13") << "no count";
    EXPECT_EQ(entriesOf("total 1\n01-18-24 10:12AM <DIR>", kPlain), L"code 123");
}

TEST(FtpListing, UnderstandsMachineListings)
{
    const std::pair<const char*, const wchar_t*> rows[] = {
        {"Type=file;Size=7;Modify=20240131; a b; c", L"f7 a b; c|"},
        {"size=7;TYPE=DIR; d", L"d7 d|"},
        {"type=OS.unix=slink:/x; l", L"l- l|"},
        {"type=cdir; /x\r\ntype=pdir; /\r\ntype=file; ..", L""},
        {"type=file; twice\ntype=file;size=1; twice", L"f- twice|"},
        {"type=file;size=x; a\ntype=file;size=-1; b", L"f- a|f- b|"},
        {"type=file;  leading", L"f-  leading|"}};
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(entriesOf(text, kMachine), expected) << text;
    for (const char* text : {"type=file;name", "type=file x", "type; x", " plain", "size=7; x", "\r\n"})
        EXPECT_EQ(entriesOf(text, kMachine), L"code 13") << text;
    for (const char* name : {"", "a/b", "/etc", "a\\b", "..\\x", "a\tb", "a\x7F", "\xC2\x80", "\xE2\x80\xA8",
                             "n\n", "n\r", "n\ntype=file; x"})
        EXPECT_EQ(entriesOf(std::string("type=file; ") + name + "\r\ntype=file; b", kMachine),
                  L"code 123f- b|")
            << name;
    const FtpListing cut = FtpListing::parse("type=file; a\ntype=file; repo", kMachine);
    EXPECT_EQ(cut.failure, ERROR_INVALID_DATA) << "a part of a name";
    EXPECT_EQ(cut.entries.size(), 1U);
}

TEST(PathProof, CoversHarmlessPathsAsFarAsTheyWereShown)
{
    PathProof proof;
    EXPECT_FALSE(proof.covers("/a"));
    EXPECT_TRUE(proof.begin("/a") && proof.begin("/b") && !proof.begin("/c")) << "two attempts";
    proof.confirm("/abc/Z_9");
    for (const char* path : {"/a", "/a/b", "/.a-_", "/abc/Z_9"})
        EXPECT_TRUE(proof.covers(path) && !proof.begin(path)) << path;
    for (const char* path :
         {"", "/", "a", "//a", "/a/", "/-a", "/a/-b", "/a b", "/a*", "/[a]", "/~a", "/\xE4"})
        EXPECT_FALSE(proof.covers(path) || proof.begin(path)) << path;
    EXPECT_TRUE(!proof.covers("/a/b/c") && proof.begin("/a/b/c")) << "deeper";
    EXPECT_TRUE(!proof.covers("/abcdefgh") && proof.begin("/abcdefgh")) << "longer";
    proof.refute();
    EXPECT_FALSE(proof.covers("/a") || proof.begin("/a"));
}

#include "BootRunTest.h"

#include "support/Passes.h"

namespace {
constexpr native::Status kNoResources = native::status(0xC000009A);

void addStream(void* answer, std::size_t at, Text name, ULONG next)
{
    auto& entry = *reinterpret_cast<native::StreamInformation*>(static_cast<char*>(answer) + at);
    entry.nextOffset = next;
    entry.nameLength = static_cast<ULONG>(name.length * sizeof(wchar_t));
    std::copy_n(name.data, name.length, entry.name);
}
} // namespace

/// Malformed lists lose no line, and can be appended to afterwards.
TEST_F(BootRunTest, TakesListsAsTheyAre)
{
    const std::wstring half = line(L"keep").substr(0, 30);
    const std::wstring cut = line(L"keep").substr(0, line(L"keep").size() - 2);
    std::wstring many;
    for (int i = 0; i < 100000; ++i)
        many += i == 70000 ? line(L"report")
                           : L"*FileShred*\t*\\??\\Q:\\" + std::to_wstring(i) + L"*\t*1*\t*1\r\n";
    std::vector<std::tuple<std::wstring, std::wstring, bool>> cases = {
        // what is given, what is left, whether half a character follows
        {kHeader + line(L"report") + line(L"report") + line(L"folder"), line(L"folder"), false},
        {L"junk\r\n\r\n" + line(L"report"), L"junk\r\n", false},
        {kHeader + line(L"report") + half, half + L"?\r\n", false},
        {kHeader + line(L"report") + half, half + L"x?\r\n", true}, // it is completed
        {kHeader + cut, cut + L"?\r\n", false},                     // a number may be cut off as well
        {kHeader + half + line(L"report"), half + L"?\r\n", false}, // and a line that came behind it
        {kHeader + cut + half + L"*File" + line(L"report") + half,
         cut + L"?\r\n" + half + L"*File?\r\n" + half + L"?\r\n", false},
        {kHeader + cut + L"\r" + line(L"report"), cut + L"\r?\r\n", false},
        {L"\xFEFF" + kHeader + line(L"folder") + line(L"report"), line(L"folder"), false},
        {many, std::wstring(many).erase(many.find(line(L"report")), line(L"report").size()), false}};
    for (const std::wstring& list : {std::wstring(), kHeader, line(L"report"), L"\xFEFF" + line(L"report"),
                                     kHeader + std::wstring(30, L'-') + L"\r\n" + line(L"report")})
        cases.emplace_back(list, L"", false);
    for (const auto& [given, left, isOdd] : cases) {
        SCOPED_TRACE(testing::Message() << given.substr(0, 200));
        Files expected = files();
        setList(given);
        if (isOdd)
            std::ofstream(root / L"windows/ForceDelete.txt", std::ios::binary | std::ios::app) << 'x';
        EXPECT_EQ(run().status, 0);
        if (given.find(line(L"report")) != std::wstring::npos)
            expected.erase(L"report");
        EXPECT_EQ(files(), expected);
        EXPECT_TRUE(list() == left) << list().substr(0, 300);
        EXPECT_EQ(isThere(L"windows/ForceDelete.txt"), !left.empty());
        EXPECT_LE(read(L"windows/sysmaint-boot.log").size(), 1048576U);
        write(L"report", "again");
    }
}

/// Missing files cost next to nothing, in any number.
TEST_F(BootRunTest, TakesManyMissingFilesOffAtOnce)
{
    std::wstring missing;
    for (int i = 0; i < 2000; ++i)
        missing += line(L"none" + std::to_wstring(i));
    setList(kHeader + missing + line(L"report") + line(L"folder") + missing);
    std::map<const void*, int> calls;
    TestApi api;
    api.onEach([&](int, const void* function) { return ++calls[function], TestApi::kGoOn; });
    EXPECT_EQ(run(api).gone, 4000U);
    EXPECT_EQ(list(), line(L"folder"));
    EXPECT_FALSE(isThere(L"report"));
    EXPECT_LT(calls[reinterpret_cast<void*>(native::systemApi().writeFile)], 30);
    EXPECT_LT(calls[reinterpret_cast<void*>(native::systemApi().flushFile)], 5);
    EXPECT_LT(api.calls, 4000 + 200); // each is looked for
}

/// Runs over three files that are deleted and one that is not. Somebody has spoilt the list: all lines begin
/// at odd bytes, so it is first replaced.
struct BootCallTest : BootRunTest
{
    void prepare()
    {
        for (const std::wstring& name : listed)
            write(name, "listed");
        before = files();
        std::wstring lines = line(L"report", L"2*\t*1");
        for (const wchar_t* name : {L"none", L"none\\at all", L"folder\\x", L"windows"})
            lines += line(name);
        lines += line(L"windows\\temp\\x.tmp", L"2*\t*2");
        write((windows / kList).wstring(), bytesOf(kHeader + torn).append("p").append(bytesOf(lines)));
        isAdded = false;
    }
    enum class How
    {
        fails,
        dies,
        adds
    };
    /// That call fails, it and all later ones have no effect as after a power cut, or somebody adds a line
    /// just before it, as the library does. Returns how many were made.
    int runWith(How how, int at)
    {
        prepare();
        TestApi api;
        api.onEach([&](int call, const void* function) {
            if (how == How::adds && call >= at && !isAdded)
                isAdded = append();
            // A close only releases what the end of the process releases as well.
            const bool isClose = function == reinterpret_cast<void*>(native::systemApi().close);
            const bool fails = how == How::fails ? call == at : how == How::dies && call >= at;
            return fails && !isClose ? kNoResources : TestApi::kGoOn;
        });
        run(api);
        return api.calls;
    }
    bool append() const
    {
        const std::wstring path = (windows / kList).wstring();
        const HANDLE file =
            CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE)
            return false;
        const std::wstring text = (GetFileSize(file, nullptr) == 0 ? kHeader : L"") + added;
        DWORD written = 0;
        SetFilePointer(file, 0, nullptr, FILE_END);
        EXPECT_TRUE(WriteFile(file, text.data(), static_cast<DWORD>(text.size() * 2), &written, nullptr));
        return CloseHandle(file) != FALSE;
    }
    /// Every remaining file is in the list or in what the next run finds; all other files are unchanged.
    void expectNothingLost() const
    {
        const std::string waits = read(L"windows/" + kList) + read(L"windows/sysmaint-boot.old");
        const Files after = files();
        for (const auto& [name, bytes] : before) {
            const std::wstring wanted = line(std::filesystem::path(name).make_preferred().wstring(), L"");
            if (listed.count(name) == 0) {
                EXPECT_EQ(after.at(name), bytes) << name;
            } else if (after.count(name) != 0) {
                EXPECT_NE(waits.find(bytesOf(wanted.substr(0, wanted.size() - 2))), waits.npos) << name;
            }
        }
        EXPECT_NE(waits.find(bytesOf(torn)), std::string::npos);
        EXPECT_TRUE(!isAdded || waits.find(bytesOf(added)) != std::string::npos);
    }
    /// After another whole run.
    void expectDone() const
    {
        run();
        Files expected = before;
        for (const std::wstring& name : listed)
            expected.erase(name);
        EXPECT_EQ(files(), expected);
        std::set<std::wstring> left; // a line that stays may be there twice
        std::wistringstream lines(list());
        for (std::wstring each; std::getline(lines, each);)
            left.insert(each + L"\n");
        std::set<std::wstring> expectedLeft = {torn + L"p?\r\n", line(L"windows")};
        if (isAdded)
            expectedLeft.insert(added);
        EXPECT_EQ(left, expectedLeft);
        EXPECT_FALSE(exists(windows / L"sysmaint-boot.old") || exists(windows / L"sysmaint-boot.new"));
    }

    const std::set<std::wstring> listed = {L"report", L"folder/x", L"windows/temp/x.tmp"};
    const std::wstring added = line(L"folder"); // which stays
    const std::wstring torn = line(L"kee").substr(0, 10);
    Files before;
    bool isAdded = false;
};

TEST_F(BootCallTest, EachLeavesWhatTheNextRunNeeds)
{
    for (const How how : {How::fails, How::dies, How::adds}) {
        int calls = runWith(how, 1000000); // never
        EXPECT_GT(calls, 80);
        for (int at = 1; at <= calls; ++at) {
            SCOPED_TRACE(testing::Message() << "way " << static_cast<int>(how) << ", call " << at);
            calls = std::max(calls, runWith(how, at));
            expectNothingLost();
            expectDone();
        }
    }
}

/// A line that could not be crossed out is reported, and done by the next run.
TEST_F(BootCallTest, TellsWhenTheListCannotBeWritten)
{
    setList(kHeader + line(L"report"));
    TestApi api;
    api.on<&native::Api::writeFile>([](auto original, auto... all) {
        const bool isCross = *static_cast<const wchar_t*>(std::get<5>(std::tuple(all...))) == L'-';
        return isCross ? kNoResources : original(all...);
    });
    EXPECT_EQ(run(api).status, kNoResources);
    EXPECT_TRUE(!isThere(L"report") && list() == line(L"report"));
    const std::filesystem::path unfinished = windows / L"sysmaint-boot.new"; // of a run that ended early
    write(unfinished.wstring(), bytesOf(line(L"keep")));
    EXPECT_TRUE(run().isListEmpty);
    EXPECT_TRUE(!exists(unfinished) && isThere(L"keep")) << "no list took its place";
}

/// Knows the file "report" by its handle, so long as it is open.
struct BootFileTest : BootRunTest
{
    BootFileTest()
    {
        api.on<&native::Api::createFile>(after([this](auto, HANDLE* handle, auto, auto* object, auto...) {
            target = nameOf(object).is(L"report") ? *handle : target;
        }));
        api.on<&native::Api::close>(before([this](HANDLE file) {
            target = file == target ? nullptr : target; // the number is given to others
        }));
    }
    static Text nameOf(const native::ObjectAttributes* object)
    {
        return {object->name->buffer, object->name->length / sizeof(wchar_t)};
    }

    HANDLE target = nullptr;
    TestApi api;
};

/// What this platform cannot make is told to the engine as the system would tell it.
TEST_F(BootFileTest, KnowsLinksStreamsAndForeignFiles)
{
    ULONG tag = 0;
    bool isWritten = false;
    api.on<&native::Api::queryFile>(after([&](auto, HANDLE file, auto*, void* answer, auto, ULONG question) {
        if (file == target && question == native::kAttributeTagInformation) {
            static_cast<ULONG*>(answer)[0] |= FILE_ATTRIBUTE_REPARSE_POINT;
            static_cast<ULONG*>(answer)[1] = tag;
        }
    }));
    api.on<&native::Api::writeFile>(before([&](HANDLE file, auto...) { isWritten |= file == target; }));
    for (const ULONG told : {IO_REPARSE_TAG_SYMLINK, IO_REPARSE_TAG_MOUNT_POINT, 0x9000001AUL, 0UL}) {
        const bool isGone = told == IO_REPARSE_TAG_SYMLINK || told == IO_REPARSE_TAG_MOUNT_POINT;
        SCOPED_TRACE(testing::Message() << std::hex << (tag = told));
        setList(kHeader + line(L"report"));
        const RunReport report = run(api);
        EXPECT_EQ(list(), isGone ? L"" : line(L"report"));
        EXPECT_EQ(isThere(L"report"), !isGone);
        EXPECT_EQ(report.links, isGone ? 1U : 0U);
        EXPECT_TRUE(report.wiped == 0 && !isWritten);
        write(L"report", "again");
    }
}

/// Streams go before their file, each if it is of that file.
TEST_F(BootFileTest, OverwritesStreamsFirst) // the target is the stream
{
    bool isAnother = false;
    std::string order;
    std::uint64_t number = 0; // of the last file queried by its own name
    api.on<&native::Api::createFile>([&](auto original, HANDLE* handle, ACCESS_MASK access,
                                         native::ObjectAttributes* object, auto... rest) {
        native::UnicodeString other = {12, 12, L"stream"};
        if (!nameOf(object).is(L"report:more:$DATA"))
            return original(handle, access, object, rest...);
        object->name = &other;
        const native::Status status = original(handle, access, object, rest...);
        target = *handle;
        return status;
    });
    api.on<&native::Api::queryFile>(
        [&](auto original, HANDLE file, native::IoStatus* io, void* answer, ULONG length, ULONG question) {
            if (question == native::kStreamInformation) {
                addStream(answer, 0, L"::$DATA", 64);
                addStream(answer, 64, L":more:$DATA", 0);
                return native::kSuccess;
            }
            const native::Status status = original(file, io, answer, length, question);
            if (question == native::kInternalInformation && file != target)
                number = *static_cast<std::uint64_t*>(answer);
            else if (question == native::kInternalInformation && !isAnother)
                *static_cast<std::uint64_t*>(answer) = number;
            return status;
        });
    api.on<&native::Api::writeFile>(before([&](auto file, auto...) { order += file == target ? 's' : '.'; }));
    for (const bool another : {true, false}) {
        isAnother = another;
        order.clear();
        write(L"stream", "a secret stream");
        setList(kHeader + line(L"report", L"1*\t*2"));
        run(api);
        EXPECT_EQ(isThere(L"report"), another);
        EXPECT_EQ(read(L"stream"), another ? "a secret stream" : "");
        EXPECT_EQ(order.find("ss.."), another ? std::string::npos : order.find('s')) << order;
    }
}

/// Of random text all letters and digits come, and of an odd length in the 35 passes the text's own end.
static void expectFilled(const std::string& bytes, unsigned pass, bool hasEnd)
{
    EXPECT_TRUE(areOf(pass, bytes));
    std::set<char> letters;
    for (std::size_t at = 0; pass == kText && at < bytes.size(); at += 2)
        letters.insert(bytes[at]);
    EXPECT_EQ(letters.size(), pass == kText ? 62U + (hasEnd ? 1 : 0) : 0U);
    EXPECT_EQ(letters.count('\0'), pass == kText && hasEnd ? 1U : 0U);
}

/// The bytes of each write, in order, and a flush after each.
TEST_F(BootFileTest, OverwritesAsTheWiperDoes)
{
    std::vector<std::pair<LONGLONG, std::string>> writes;
    std::size_t flushes = 0;
    api.on<&native::Api::writeFile>(
        before([&](HANDLE file, auto, auto, auto, auto, auto* buffer, ULONG length, auto* offset, auto) {
            if (file == target)
                writes.emplace_back(offset->QuadPart, std::string(static_cast<const char*>(buffer), length));
        }));
    api.on<&native::Api::flushFile>(before([&](HANDLE file, auto) { flushes += file == target ? 1 : 0; }));
    // The numbers of the line, the passes over one chunk, and how often they come.
    const std::tuple<const wchar_t*, std::vector<unsigned>, unsigned> cases[] = {
        {L"1*\t*2", {0}, 2},
        {L"2*\t*1", {kText}, 1},
        {L"3*\t*1", {std::begin(kPasses), std::end(kPasses)}, 1},
        {L"2*\t*0", {}, 0}};
    for (const auto& [numbers, passes, times] : cases) {
        SCOPED_TRACE(testing::Message() << numbers);
        writes.clear();
        flushes = 0;
        write(L"report", std::string(1048576 + 4097, 's'));
        setList(kHeader + line(L"report", numbers));
        const RunReport report = run(api);
        EXPECT_TRUE(report.wiped == 1 && !isThere(L"report"));
        EXPECT_EQ(report.bytes, times * (1048576U + 4097));
        ASSERT_EQ(writes.size(), passes.size() * 2 * times);
        EXPECT_EQ(flushes, writes.size());
        for (std::size_t i = 0; i < writes.size(); ++i) {
            const bool isLast = i / passes.size() % 2 != 0; // of two chunks
            SCOPED_TRACE(i);
            ASSERT_EQ(writes[i].second.size(), isLast ? 4097U : 1048576U);
            EXPECT_EQ(writes[i].first, isLast ? 1048576 : 0);
            expectFilled(writes[i].second, passes[i % passes.size()], passes.size() > 1 && isLast);
        }
    }
}

/// A file that could not be finished stays on the list, after the others, and is deleted by the next run.
TEST_F(BootRunTest, EndsWhenItsTimeIsOver)
{
    for (int asks = 0; asks < 8; ++asks) {
        SCOPED_TRACE(asks);
        write(L"report", std::string(3145728, 's'));
        write(L"keep", "listed too");
        setList(kHeader + line(L"report") + line(L"keep"));
        int left = asks;
        const RunEvents events{.context = &left,
                               .isOver = [](void* context) { return (*static_cast<int*>(context))-- <= 0; }};
        const RunReport report = run(native::systemApi(), events);
        EXPECT_EQ(report.isOver, asks < 6);
        EXPECT_EQ(isThere(L"report"), asks < 4);
        EXPECT_EQ(isThere(L"keep"), asks < 6);
        EXPECT_EQ(list(), asks == 0  ? line(L"report") + line(L"keep")
                          : asks < 4 ? line(L"keep") + line(L"report")
                          : asks < 6 ? line(L"keep")
                                     : L"");
        EXPECT_EQ(run().isListEmpty, true);
    }
}

/// Two runs at once would handle the same lines; a file that is open elsewhere stays unchanged, also a
/// read-only one.
TEST_F(BootRunTest, LeavesWhatOthersHold)
{
    ACCESS_MASK asked = 0;
    int changes = 0;
    TestApi api;
    api.on<&native::Api::createFile>([&](auto original, HANDLE* handle, ACCESS_MASK access, auto... rest) {
        asked = access; // Wine takes the removed one for a right to write
        return original(handle, access & ~FILE_WRITE_ATTRIBUTES, rest...);
    });
    api.on<&native::Api::setFile>(before([&](auto, auto, auto, auto, ULONG what) {
        const bool isChange = what == native::kBasicInformation;
        EXPECT_TRUE(!isChange || (asked & FILE_WRITE_ATTRIBUTES) != 0);
        changes += isChange ? 1 : 0;
    }));
    const std::wstring path = (root / L"report").wstring();
    const auto hold = [](const std::wstring& file, DWORD access) {
        return CreateFileW(file.c_str(), access, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    };
    SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
    setList(kHeader + line(L"report"));
    HANDLE held = hold(path, GENERIC_READ);
    EXPECT_EQ(run(api).left, 1U);
    EXPECT_EQ(changes, 2); // to normal and back
    CloseHandle(held);
    EXPECT_EQ(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_READONLY, 1U);
    EXPECT_EQ(read(L"report"), "content of report");
    held = hold((root / L"windows/sysmaint-boot.log").wstring(), GENERIC_WRITE);
    EXPECT_TRUE(run(api).isBusy && isThere(L"report"));
    CloseHandle(held);
    EXPECT_TRUE(run(api).isListEmpty && !isThere(L"report"));

    write(L"report", "again");
    setList(kHeader + line(L"report") + line(L"folder\\other"));
    std::filesystem::create_hard_link(root / L"windows/ForceDelete.txt", root / L"folder/other");
    EXPECT_EQ(run().wiped, 1U);
    EXPECT_EQ(list(), line(L"folder\\other"));
}

/// Keeps why a line was left, and tells which file was shown.
struct BootLeftTest : BootRunTest
{
    std::wstring left;
    FileNumber found, shown;
    RunEvents events{.context = this, .onLeft = [](void* context, Text, Text reason, native::Status) {
                         static_cast<BootLeftTest*>(context)->left.assign(reason.data, reason.length);
                     }};
};

/// A file with another name where the system needs it is left, and so is one that may have such a name.
TEST_F(BootLeftTest, LeavesFilesThatTheSystemHasByAnotherName)
{
    std::wstring other; // the folder of that name; empty when the system does not tell
    TestApi api;
    api.on<&native::Api::queryFile>(
        [&](auto original, HANDLE file, native::IoStatus* io, void* answer, ULONG length, ULONG question) {
            if (question == native::kHardLinkInformation && !other.empty()) {
                *static_cast<native::LinksInformation*>(answer) = {
                    sizeof(native::LinksInformation), 1, {0, 42, 1, {L'x'}}};
                return native::kSuccess;
            }
            const native::Status status = original(file, io, answer, length, question);
            if (question == native::kStandardInformation)
                static_cast<native::StandardInformation*>(answer)->links = 2;
            return status;
        });
    api.on<&native::Api::createFile>([&](auto original, HANDLE* handle, ACCESS_MASK access, auto* object,
                                         auto* io, auto* size, ULONG attributes, ULONG share,
                                         ULONG disposition, ULONG options, auto... rest) {
        const std::wstring path = L"\\??\\" + other;
        const native::UnicodeString name = {static_cast<USHORT>(path.size() * 2), 0, path.c_str()};
        native::ObjectAttributes byName = {sizeof byName, nullptr, &name, 0x40, nullptr, nullptr};
        const bool isById = (options & native::kById) != 0;
        return original(handle, access, isById ? &byName : object, io, size, attributes, share, disposition,
                        options & ~native::kById, rest...);
    });
    constexpr const wchar_t* kNeeded = L"the system needs it";
    constexpr const wchar_t* kUntold =
        L"it has other names, which cannot be told: the system may need it by one of them";
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"windows\\system32", kNeeded}, {L"windows", kNeeded}, {L"folder\\nt", kNeeded}, {L"folder", L""},
        {L"windows\\temp", L""},         {L"", kUntold}};
    for (const auto& [folder, reason] : cases) { // without a reason it goes
        SCOPED_TRACE(folder);
        const bool goes = *reason == L'\0';
        left.clear();
        other = *folder == L'\0' ? L"" : (root / folder).wstring();
        write(L"report", "again");
        setList(kHeader + line(L"report"));
        run(api, events);
        EXPECT_EQ(isThere(L"report"), !goes);
        EXPECT_EQ(list(), goes ? L"" : line(L"report"));
        EXPECT_EQ(left, reason);
    }
}

TEST_F(BootLeftTest, TakesOnlyWhatItsCallerHasShown)
{
    events.isShown = [](void* context, const FileNumber& number) {
        auto& test = *static_cast<BootLeftTest*>(context);
        test.found = number;
        return number == test.shown;
    };
    const Files before = files();
    setList(kHeader + line(L"report"));
    EXPECT_EQ(run(native::systemApi(), events).left, 1U);
    EXPECT_EQ(left, L"it is not what was shown");
    EXPECT_EQ(files(), before);
    EXPECT_EQ(list(), line(L"report"));
    shown = found;
    EXPECT_EQ(run(native::systemApi(), events).wiped, 1U);
    EXPECT_FALSE(isThere(L"report"));
}

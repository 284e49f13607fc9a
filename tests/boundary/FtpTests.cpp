#include "core/win32/utils/ftp/api.h"
#include "support/FtpServers.h"
#include "support/Wipe.h"

namespace {
using FtpConnectionHandle = SmartHandle<CloseFtpConnection>;

/// Scans one folder of a server and keeps what it finds, as the servers' script writes it.
struct FtpScan : INotifyHandler
{
    explicit FtpScan(unsigned short port, const wchar_t* user = nullptr, const wchar_t* password = nullptr,
                     const wchar_t* host = L"127.0.0.1", const wchar_t* path = L"/",
                     unsigned long timeout = 60000)
        : port(port)
    {
        for (const unsigned long key : {kContainerFound, kLeafFound, kListingFailed})
            EXPECT_EQ(FtpSEngineRegisterHandler(engine, *this, key, 0, 0), ERROR_SUCCESS);
        EXPECT_EQ(FtpSEngineSetTimeout(engine, timeout), ERROR_SUCCESS);
        EXPECT_EQ(FtpSEngineAddPath(engine, host, path, port, user, password), ERROR_SUCCESS);
    }
    FtpScan(FtpScan&&) = delete;
    ~FtpScan() override { CloseFtpScanEngine(engine); }

    long run(std::uint16_t depth = 65535, HANDLE cancelEvent = nullptr, const wchar_t* filter = nullptr)
    {
        found.clear();
        failures.clear();
        ScanOptions options;
        options.depthGiven = 1;
        options.depth = depth;
        const SharedPtr<IScanValidator> validator(filter != nullptr ? DllGetScanValidator(filter, L"")
                                                                    : DllGetScanValidator());
        return FtpSEngineScan(engine, cancelEvent, validator, options);
    }
    void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) override
    {
        const std::wstring root = L"ftp://127.0.0.1:" + std::to_wstring(port);
        std::wstring path = item->getPath();
        ASSERT_TRUE(path.starts_with(root)) << testing::PrintToString(path);
        path.erase(0, root.size());
        if (notification.getFirst() == kListingFailed) {
            failures[path] = static_cast<long>(notification.getValue());
            return;
        }
        const auto* file = dynamic_cast<const IFtpFile*>(item.get());
        if (file != nullptr)
            last = item;
        EXPECT_EQ(item->getType(), file != nullptr ? kFtpFileItem : kDirectoryItem);
        const std::wstring line = file == nullptr ? L"folder " + path
                                                  : (file->isLink() ? L"link " : L"file ") +
                                                        std::to_wstring(file->getSize()) + L" " + path;
        EXPECT_TRUE(found.insert(line).second) << "twice: " << testing::PrintToString(line);
        if (onFound)
            onFound();
    }

    unsigned short port;
    void* engine = CreateFtpScanEngine((L"ftp test " + std::to_wstring(++s_count)).c_str());
    std::set<std::wstring> found;
    std::map<std::wstring, long> failures;
    std::function<void()> onFound;
    SharedPtr<ScanItem> last; // of the files
    static inline int s_count = 0;
};

/// The root of a server as a scan path.
SharedPtr<ScanItem> rootOf(unsigned short port)
{
    const std::wstring engine = L"ftp test " + std::to_wstring(FtpScan::s_count + 1);
    const FtpScan scan(port);
    void* handle = OpenScanItem(engine.c_str(), (L"ftp://127.0.0.1:" + std::to_wstring(port) + L"/").c_str());
    SharedPtr<ScanItem> item;
    EXPECT_EQ(GetScanItemByHandle(handle, item), ERROR_SUCCESS);
    CloseScanItem(handle);
    return item;
}

std::string contentOf(const std::wstring& path)
{
    const Bytes bytes = readBytes(path);
    return {bytes.begin(), bytes.end()};
}
void write(const std::wstring& path, const std::string& content)
{
    writeBytes(path, {content.begin(), content.end()});
}
long download(IFtpFile& file, const std::wstring& path, bool resumes, HANDLE cancel = nullptr)
{
    return static_cast<long>(codeOf([&] { file.download(path.c_str(), resumes, cancel); }));
}
long erase(IFtpFile& file, HANDLE cancel = nullptr)
{
    return static_cast<long>(codeOf([&] { file.deleteItem(cancel); }));
}
} // namespace

class FtpReal : public testing::Test
{
protected:
    static void SetUpTestSuite() { s_servers = std::make_unique<FtpServers>(L"real"); }
    static void TearDownTestSuite() { s_servers.reset(); }
    static inline std::unique_ptr<FtpServers> s_servers;
};

TEST_F(FtpReal, ServersAreWalkedCompletely)
{
    ASSERT_GT(s_servers->entries.size(), 1000U);
    for (const auto& [name, user, password] :
         {std::tuple("pyftpdlib", L"user", L"secret"), std::tuple("vsftpd", L"", L"")}) {
        SCOPED_TRACE(name);
        FtpScan scan(s_servers->ports[name], user, password);
        ASSERT_EQ(scan.run(), ERROR_SUCCESS);
        EXPECT_EQ(scan.found, s_servers->entries);
        EXPECT_TRUE(scan.failures.empty());
        EXPECT_EQ(scan.run(1), ERROR_SUCCESS);
        EXPECT_EQ(scan.found.size(), 7U);
        EXPECT_EQ(scan.run(2, nullptr, L"*.tmp"), ERROR_SUCCESS);
        EXPECT_EQ(std::count_if(scan.found.begin(), scan.found.end(),
                                [](const std::wstring& line) { return line.starts_with(L"file"); }),
                  5);
        const TestEvent cancel;
        scan.onFound = [&] { cancel.set(); };
        EXPECT_EQ(scan.run(65535, cancel.get()), ERROR_CANCELLED);
        EXPECT_EQ(scan.found.size(), 1U);
    }
    const SharedPtr<ScanItem> item = rootOf(s_servers->ports["vsftpd"]);
    EXPECT_EQ(dynamic_cast<IScanPath&>(*item).hasSubfolders(nullptr), 1);
    FtpScan below(s_servers->ports["vsftpd"], nullptr, nullptr, L"127.0.0.1", L"folder/-a/");
    EXPECT_EQ(below.run(1), ERROR_SUCCESS);
    EXPECT_EQ(below.found.size(), 7U);
    EXPECT_EQ(below.found.count(L"folder /folder/-a/[3]*"), 1U);
}

TEST_F(FtpReal, ServersThatRefuseAreTold)
{
    const unsigned short port = s_servers->ports["pyftpdlib"];
    EXPECT_EQ(FtpScan(port, L"user", L"wrong").run(), ERROR_LOGON_FAILURE);
    EXPECT_EQ(FtpScan(port).run(), ERROR_LOGON_FAILURE);
    EXPECT_EQ(FtpScan(port, L"user", L"secret", L"127.0.0.1", L"/missing").run(), ERROR_PATH_NOT_FOUND);
    EXPECT_EQ(FtpScan(port, L"user", L"secret", L"ftp.invalid").run(), 11001);
    EXPECT_EQ(FtpScan(1).run(), 10061);
    FtpScan scan(port, L"user", L"secret");
    for (const wchar_t* path :
         {L"..", L"/a/../b", L"a\\b", L"a\r\nDELE b", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(FtpSEngineAddPath(scan.engine, L"h", path, 21, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(FtpSEngineAddPath(scan.engine, L"h", L"/", 21, L"a\nDELE b", nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(FtpSEngineAddPath(scan.engine, L"h", L"/", 21, L"a", L"\r\n"), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(FtpSEngineAddPath(scan.engine, L"", L"/", 21, L"a", nullptr), ERROR_INVALID_PARAMETER);
}

TEST_F(FtpReal, FilesAreUploadedDownloadedAndDeleted)
{
    const unsigned short port = s_servers->ports["pyftpdlib"];
    FtpConnectionHandle connection(CreateFtpConnection(L"ftp test", L"127.0.0.1", port, L"user", L"secret"));
    EXPECT_EQ(FtpConnectionConnect(connection.get(), nullptr), ERROR_SUCCESS);
    for (const wchar_t* noFile : {L"/a/../b", L"", L"/", L"/a/"})
        EXPECT_EQ(DllGetFtpFile(connection.get(), noFile), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
    const std::unique_ptr<IFtpFile> file(DllGetFtpFile(connection.get(), L"folder/über uns.bin"));
    const std::wstring local = scratchFolder() + L"\\up";
    const std::wstring copy = scratchFolder() + L"\\down";
    std::string content(300000, 'x');
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i * 7 + i / 256);
    write(local, content);

    EXPECT_EQ(file->exists(), 0);
    EXPECT_EQ(download(*file, copy, false), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetFileAttributesW(copy.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(erase(*file), ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(codeOf([&] { file->upload(local.c_str(), nullptr); }), ERROR_SUCCESS);
    EXPECT_EQ(file->exists(), 1);
    EXPECT_EQ(file->getSize(), content.size());
    EXPECT_EQ(download(*file, copy, false), ERROR_SUCCESS);
    EXPECT_EQ(contentOf(copy), content);
    EXPECT_EQ(download(*file, copy, false), ERROR_FILE_EXISTS);
    EXPECT_EQ(download(*file, L"nul", false), ERROR_BAD_PATHNAME);
    EXPECT_EQ(codeOf([&] { file->upload(L"NUL", nullptr); }), ERROR_BAD_PATHNAME);
    EXPECT_EQ(file->getSize(), content.size()) << "nothing was sent";
    // What an earlier download left is kept, and the rest comes behind it.
    write(copy, std::string(1000, 'k'));
    EXPECT_EQ(download(*file, copy, true), ERROR_SUCCESS);
    EXPECT_EQ(contentOf(copy), std::string(1000, 'k') + content.substr(1000));
    write(copy, content + "x");
    EXPECT_EQ(download(*file, copy, true), ERROR_INVALID_DATA);
    EXPECT_EQ(contentOf(copy), content + "x");
    const TestEvent cancel;
    cancel.set();
    EXPECT_EQ(erase(*file, cancel.get()), ERROR_CANCELLED);
    EXPECT_EQ(file->exists(), 1);
    EXPECT_EQ(erase(*file), ERROR_SUCCESS);
    EXPECT_EQ(file->exists(), 0);
    connection.reset(CreateFtpConnection(L"ftp test 21", L"h", 0, nullptr, nullptr));
    EXPECT_EQ(erase(*file), ERROR_NOT_CONNECTED);
    const std::unique_ptr<IFtpFile> usual(DllGetFtpFile(connection.get(), L"a"));
    connection.reset(CreateFtpConnection(L"ftp test 22", L"h", 21, nullptr, nullptr));
    const std::unique_ptr<IFtpFile> same(DllGetFtpFile(connection.get(), L"a"));
    EXPECT_EQ(std::wstring(usual->getPath()) + same->getPath(), L"ftp://h/aftp://h/a");
}

namespace {
/// What a scan says and finds first, of servers that each do something wrong.
const std::tuple<long, const wchar_t*, std::vector<const char*>> kMisdeeds[] = {
    {WAIT_TIMEOUT, L"", {"mute", "trickle", "later", "unsure"}},
    {ERROR_INVALID_DATA, L"", {"garbage", "waits", "port", "greets", "welcomes", "agrees", "ahead"}},
    {ERROR_INVALID_DATA, L"", {"strays-FEAT", "strays-OPTS", "strays-EPSV", "strays-PASV", "strays-MLST"}},
    {ERROR_INVALID_DATA, L"file 5 /good", {"lies", "untyped"}},
    {ERROR_MESSAGE_EXCEEDS_MAX_SIZE, L"", {"endless", "line", "forever", "features", "options"}},
    {ERROR_LOGON_FAILURE, L"", {"login"}},
    {ERROR_CONNECTION_ABORTED, L"", {"leaves", "loses"}},
    {10061, L"", {"refused"}},
    {10054, L"", {"drops"}},
    {ERROR_BROKEN_PIPE, L"", {"gone"}},
    {ERROR_INVALID_NAME, L"file 5 /good", {"names", "latin"}},
    {ERROR_SUCCESS, L"file 5 /good", {"passive", "claims", "unnamed"}},
    {ERROR_SUCCESS, L"file 18446744073709551615 /good", {"long"}},
    {ERROR_PATH_NOT_FOUND, L"file 5000000000 /good", {"unix", "dos"}},
};
} // namespace

// First the server misbehaves, each in its way; then it behaves, and the same engine finds what there is.
TEST(FtpHostile, ServersCannotHoldOrMisleadAScan)
{
    FtpServers servers(L"hostile");
    EXPECT_EQ(FtpScan(servers.ports["passive"]).run(), ERROR_SUCCESS); // what the system keeps is there then
    std::map<std::string, FtpScan> scans;
    const Win32Handle cancels[] = {Win32Handle(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
                                   Win32Handle(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
                                   Win32Handle(CreateSemaphoreW(nullptr, 0, 1, nullptr)),
                                   Win32Handle(CreateMutexW(nullptr, FALSE, nullptr))};
    const ProcessCounts before = ProcessCounts::now();
    for (const char* mode : {"mute", "later"}) // while a reply is waited for, and while a listing is
        for (const Win32Handle& cancel : cancels) {
            SCOPED_TRACE(testing::Message() << mode << ' ' << &cancel - cancels);
            FtpScan scan(servers.ports[mode], nullptr, nullptr, L"127.0.0.1", L"/x");
            const TestEvent isTaken;
            std::thread canceller([&] {
                ResetEvent(cancel.get());
                if (&cancel == std::end(cancels) - 1) // is abandoned
                    WaitForSingleObject(cancel.get(), INFINITE);
                isTaken.set();
                Sleep(100);
                SetEvent(cancel.get());
                ReleaseSemaphore(cancel.get(), 1, nullptr);
            });
            EXPECT_TRUE(isTaken.wait());
            EXPECT_EQ(scan.run(65535, cancel.get()), ERROR_CANCELLED);
            EXPECT_TRUE(scan.failures.empty());
            canceller.join();
            std::thread([&] { EXPECT_NE(WaitForSingleObject(cancel.get(), 0), DWORD{WAIT_TIMEOUT}); }).join();
        }
    for (const auto& [code, found, modes] : kMisdeeds)
        for (const char* mode : modes) {
            SCOPED_TRACE(mode);
            const unsigned long timeout = code == WAIT_TIMEOUT ? 1500 : 60000; // none else depends on speed
            FtpScan& scan =
                scans.try_emplace(mode, servers.ports[mode], nullptr, nullptr, L"127.0.0.1", L"/", timeout)
                    .first->second;
            EXPECT_EQ(scan.run(), code);
            EXPECT_EQ(scan.found.empty() ? L"" : *scan.found.begin(), found);
            // Of a folder below the root the rest is walked all the same.
            EXPECT_EQ(code == ERROR_PATH_NOT_FOUND ? scan.failures[L"/sub"]
                                                   : scan.failures.emplace(L"/", code).first->second,
                      code);
        }
    servers.mend();
    for (auto& [mode, scan] : scans) {
        SCOPED_TRACE(mode);
        const bool isPlain = mode == "unix" || mode == "dos";
        EXPECT_EQ(scan.run(), isPlain ? ERROR_PATH_NOT_FOUND : ERROR_SUCCESS);
        EXPECT_EQ(scan.found.count(isPlain ? L"file 5000000000 /good" : L"file 5 /good"), 1U);
        EXPECT_EQ(scan.found.count(L"link 5 /link"), mode == "unix" ? 1U : 0U);
    }
    ScanItem& link = *scans.at("unix").last;
    MemoryOutputByteStream state;
    EXPECT_EQ(link.dump(0, state), ERROR_SUCCESS);
    MemoryInputByteStream stream(state.getData(), state.getSize());
    EXPECT_EQ(link.load(0, stream), ERROR_SUCCESS);
    EXPECT_FALSE(dynamic_cast<const IFtpFile&>(link).isLink()) << "this is of the listing alone";
    scans.clear();
    EXPECT_TRUE(before.isReachedAgain());
}

// In the middle of a download, an upload and a listing; then the server mends its ways, and each goes on.
TEST(FtpHostile, TransfersEndInTheMiddleWhenTheyAreCancelled)
{
    FtpServers servers(L"hostile");
    const unsigned short port = servers.ports["stalls"];
    const FtpConnectionHandle connection(
        CreateFtpConnection(L"stalls", L"127.0.0.1", port, nullptr, nullptr));
    EXPECT_EQ(FtpConnectionSetTimeout(connection.get(), 60000), ERROR_SUCCESS);
    const std::unique_ptr<IFtpFile> file(DllGetFtpFile(connection.get(), L"/good"));
    const std::wstring local = scratchFolder() + L"\\up";
    const std::wstring copy = scratchFolder() + L"\\down";
    write(local, std::string(std::size_t{32} << 20U,
                             'x')); // more than the system takes for a server that does not read
    FtpScan scan(port, nullptr, nullptr, L"127.0.0.1", L"/x");
    const TestEvent cancel;
    const std::function<long()> operations[] = {
        [&] { return download(*file, copy, true, cancel.get()); },
        [&] { return codeOf([&] { file->upload(local.c_str(), cancel.get()); }); },
        [&] { return scan.run(65535, cancel.get()); },
    };
    for (const auto& operation : operations) {
        std::thread canceller([&] {
            servers.awaitStall();
            WIN32_FILE_ATTRIBUTE_DATA data{}; // what the first operation gets
            while (GetFileAttributesExW(copy.c_str(), GetFileExInfoStandard, &data) &&
                   data.nFileSizeLow < 1000)
                Sleep(1);
            cancel.set();
        });
        EXPECT_EQ(operation(), ERROR_CANCELLED);
        canceller.join();
        ResetEvent(cancel.get());
    }
    EXPECT_EQ(contentOf(copy), std::string(1000, 'x'));
    EXPECT_TRUE(scan.found.empty());
    servers.mend();
    for (const auto& operation : operations)
        EXPECT_EQ(operation(), ERROR_SUCCESS);
    EXPECT_EQ(contentOf(copy), std::string(300000, 'x'));
    EXPECT_EQ(scan.found, (std::set<std::wstring>{L"file 5 /x/good"}));
    DeleteFileW(local.c_str()); // it is large
    DeleteFileW(copy.c_str());
}

// The local file beforehand, and what is left of it. A wrong download leaves nothing that looks complete.
TEST(FtpHostile, DownloadsKeepOnlyWhatCanBeGoneOnWith)
{
    constexpr std::size_t kWhole = 5000;
    // The server, the file's bytes before (none: no file), the code, its bytes then, and the next code.
    const std::tuple<const char*, std::size_t, long, std::size_t, long> rows[] = {
        {"surplus", 0, ERROR_INVALID_DATA, 0, ERROR_INVALID_DATA},
        {"surplus", 1000, ERROR_INVALID_DATA, 1000, ERROR_INVALID_DATA},
        {"restless", 0, ERROR_SUCCESS, kWhole, ERROR_SUCCESS},
        {"restless", 1000, ERROR_INVALID_DATA, 1000, ERROR_INVALID_DATA},
        {"short", 0, ERROR_INVALID_DATA, 1000, ERROR_INVALID_DATA},
        {"retracts", 0, ERROR_IO_DEVICE, 0, ERROR_IO_DEVICE},
        {"retracts", 1000, ERROR_IO_DEVICE, 1000, ERROR_IO_DEVICE},
        {"breaks", 0, ERROR_CONNECTION_ABORTED, 0, ERROR_CONNECTION_ABORTED},
        {"breaks", 1000, ERROR_CONNECTION_ABORTED, 1000, ERROR_CONNECTION_ABORTED},
        {"chatters", 0, ERROR_INVALID_DATA, kWhole, ERROR_SUCCESS},
        {"vanishes", 0, ERROR_BROKEN_PIPE, kWhole - 1, ERROR_BROKEN_PIPE},
        {"vanishes", kWhole - 1, ERROR_BROKEN_PIPE, kWhole - 1, ERROR_BROKEN_PIPE},
        {"refuses", 0, ERROR_BUSY, 0, ERROR_BUSY},
        {"refuses", 1000, ERROR_BUSY, 1000, ERROR_BUSY},
    };
    FtpServers servers(L"hostile");
    const std::wstring copy = scratchFolder() + L"\\down";
    for (const auto& [mode, before, code, after, again] : rows) {
        SCOPED_TRACE(std::string(mode).append(" ").append(std::to_string(before)));
        const FtpConnectionHandle connection(
            CreateFtpConnection(L"downloads", L"127.0.0.1", servers.ports[mode], nullptr, nullptr));
        const std::unique_ptr<IFtpFile> file(DllGetFtpFile(connection.get(), L"/good"));
        if (before != 0)
            write(copy, std::string(before, 'x'));
        EXPECT_EQ(download(*file, copy, before != 0), code);
        EXPECT_EQ(stands(copy), after != 0);
        EXPECT_EQ(contentOf(copy), std::string(after, 'x'));
        EXPECT_EQ(download(*file, copy, true), again);
        DeleteFileW(copy.c_str());
    }
}

// A reply that nobody asked for is the answer to nothing, least of all to a deletion.
TEST(FtpHostile, RepliesOutOfStepEndTheConnection)
{
    FtpServers servers(L"hostile");
    const auto fileOn = [&](const char* mode, FtpConnectionHandle& connection) {
        const std::wstring name(mode, mode + std::strlen(mode)); // the one before is closed after that
        connection.reset(
            CreateFtpConnection(name.c_str(), L"127.0.0.1", servers.ports[mode], nullptr, nullptr));
        return std::unique_ptr<IFtpFile>(DllGetFtpFile(connection.get(), L"/good"));
    };
    FtpConnectionHandle connection;
    std::unique_ptr<IFtpFile> file = fileOn("twice", connection); // two in one packet
    EXPECT_EQ(codeOf([&] { static_cast<void>(file->getSize()); }), ERROR_INVALID_DATA);
    EXPECT_EQ(erase(*file), ERROR_FILE_NOT_FOUND);
    file = fileOn("hasty", connection); // one that comes between a command and its own
    EXPECT_EQ(erase(*file), ERROR_INVALID_DATA);
    const std::wstring local = scratchFolder() + L"\\up";
    write(local, "x");
    EXPECT_EQ(codeOf([&] { file->upload(local.c_str(), nullptr); }), ERROR_INVALID_DATA);
    file = fileOn("late", connection); // one that comes while nothing is asked
    EXPECT_EQ(file->exists(), 1);
    servers.cue();
    EXPECT_EQ(codeOf([&] { static_cast<void>(file->exists()); }), ERROR_INVALID_DATA);
    EXPECT_EQ(erase(*file), ERROR_FILE_NOT_FOUND) << "a new connection";
    // A server that has enough of a silent client, with a farewell and without: nothing was sent meanwhile,
    // so even what must not be done twice is sent over a new connection.
    for (const char* mode : {"idle", "closes"}) {
        SCOPED_TRACE(mode);
        file = fileOn(mode, connection);
        EXPECT_EQ(file->exists(), 1);
        servers.cue();
        EXPECT_EQ(file->exists(), 1);
        servers.cue();
        EXPECT_EQ(erase(*file), ERROR_FILE_NOT_FOUND) << "the server's word";
    }
}

TEST(FtpHostile, FoldersWithoutEndAreNotWalked)
{
    FtpServers servers(L"hostile");
    FtpScan loop(servers.ports["loop"]);
    EXPECT_EQ(loop.run(), ERROR_PATH_NOT_FOUND); // "sub" cannot be entered
    EXPECT_EQ(loop.found, (std::set<std::wstring>{L"folder /again", L"folder /sub", L"file 5 /good"}));
    FtpScan deep(servers.ports["deep"]);
    EXPECT_EQ(deep.run(), ERROR_FILENAME_EXCED_RANGE);
    ASSERT_EQ(deep.failures.size(), 1U);
    EXPECT_EQ(deep.failures.begin()->second, ERROR_FILENAME_EXCED_RANGE);
    EXPECT_EQ(deep.failures.begin()->first.size(), 17U * 251U) << "the first beyond the limit";
    EXPECT_EQ(deep.found.size(), 2U * 17U);
}

// What LIST and MLSD do with a path is each server's own affair; two show /bb/a only to who asks by its path.
TEST(FtpHostile, FoldersAreListedUnderTheirOwnNames)
{
    const std::set<std::wstring> tree{
        L"file 5 /in",   L"folder /no",       L"folder /a",         L"file 5 /a/in-a",
        L"folder /bb",   L"file 5 /bb/in-bb", L"folder /c",         L"file 5 /c/in-c",
        L"folder /a/aa", L"folder /a/bb",     L"file 5 /a/aa/in-a", L"file 5 /a/bb/in-a-bb",
        L"folder /bb/a", L"folder /bb/b",     L"folder /a/aa/aa",   L"folder /a/aa/bb"};
    FtpServers servers(L"hostile");
    for (const char* mode : {"heeds",      "ignores",     "shallow",       "wanders",      "hollow",
                             "snaps",      "MLSD-heeds",  "MLSD-ignores",  "typeless",     "tires",
                             "tires-late", "MLSD-tires",  "STAT-heeds",    "STAT-ignores", "STAT-snaps",
                             "STAT-cuts",  "STAT-forges", "STAT-swallows", "STAT-homes",   "STAT-sticks"}) {
        SCOPED_TRACE(mode);
        const long code = std::string(mode) == "hollow" ? ERROR_ACCESS_DENIED : ERROR_PATH_NOT_FOUND;
        const bool isAlike = std::string(mode) != "tires"; // /bb/a and /a/bb are
        FtpScan scan(servers.ports[mode]);
        EXPECT_EQ(scan.run(), code);
        EXPECT_EQ(scan.found.erase(isAlike ? L"file 5 /bb/a/in-a-bb" : L"file 5 /bb/a/in-bb-a"), 1U);
        EXPECT_EQ(scan.found, tree);
        EXPECT_EQ(scan.failures,
                  (std::map<std::wstring, long>{
                      {L"/no", code}, {L"/bb/b", code}, {L"/a/aa/aa", code}, {L"/a/aa/bb", code}}));
        if (!std::string(mode).starts_with("STAT"))
            continue;
        // The positions that the server was to repeat are no beginning for a transfer.
        const std::wstring copy = scratchFolder() + L"\\copy";
        EXPECT_EQ(download(dynamic_cast<IFtpFile&>(*scan.last), copy, false), ERROR_SUCCESS);
        EXPECT_EQ(contentOf(copy), std::string(5000, 'x'));
        DeleteFileW(copy.c_str());
    }
    FtpScan swapped(servers.ports["swaps"]);
    EXPECT_EQ(swapped.run(), ERROR_INVALID_DATA);
    EXPECT_EQ(swapped.found, (std::set<std::wstring>{L"folder /other"}));
}

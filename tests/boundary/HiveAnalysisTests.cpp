// The analysis of the loaded hives. The system's list of them is empty here, so the tests fill it; the volume
// is a file, and the test answers for the file system where a hive's clusters are.

#include "../host/Command.h"
#include "../host/Console.h"
#include "core/win32/registry/defragmenter/api.h"
#include "support/Faults.h"
#include "support/Hives.h"
#include "support/Pools.h"

const wchar_t* const kHiveList = L"System\\CurrentControlSet\\Control\\hivelist";

struct HiveAnalysis : testing::Test
{
    HiveAnalysis()
    {
        wchar_t path[MAX_PATH] = L"%user_temp%";
        EXPECT_EQ(DllGetPathValidatorW()->validate(path, MAX_PATH, nullptr), 0);
        temporary = path;
        CreateDirectoryW(path, nullptr);
        EXPECT_EQ(countFiles(), 0);
        opens.setHook([this](auto original, LPCWSTR name, DWORD access, auto... rest) {
            const std::wstring asked = name;
            if (access == FILE_READ_ATTRIBUTES)
                opened = asked;
            if (asked.starts_with(temporary + L"\\old"))
                isCopying = access == GENERIC_WRITE;
            return original(asked == LR"(\\.\C:)" ? volume.c_str() : name, access, rest...);
        });
        controls.setHook([this](auto original, HANDLE file, DWORD code, LPVOID in, DWORD inSize, LPVOID out,
                                DWORD outSize, LPDWORD returned, auto rest) {
            if (code != FSCTL_GET_RETRIEVAL_POINTERS)
                return original(file, code, in, inSize, out, outSize, returned, rest);
            return tellExtents(extents[opened], out, outSize, returned);
        });
    }
    ~HiveAnalysis() override
    {
        CloseRegistryDefragmenter(defragmenter);
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, kHiveList);
    }

    static void addToList(const wchar_t* name, const std::wstring& path, DWORD type = REG_SZ)
    {
        const auto size = static_cast<DWORD>(path.size() * 2 + 2);
        ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, kHiveList, name, type, path.c_str(), size), 0);
    }
    /// A hive whose clusters are on the volume in this order with a gap of one after each; its file only has
    /// the length.
    std::wstring addHive(const wchar_t* name, const Bytes& bytes, const std::wstring& prefix = LR"(\??\C:)",
                         bool isReversed = false)
    {
        const std::wstring_view text = name;
        std::wstring path = (folder + L"\\").append(text.substr(text.rfind(L'\\') + 1));
        writeBytes(path, Bytes(bytes.size(), 0xEE));
        const auto count = static_cast<LONGLONG>((bytes.size() + kCluster - 1) / kCluster);
        const auto begin = static_cast<LONGLONG>(clusters.size() / kCluster);
        clusters.resize(clusters.size() + static_cast<std::size_t>(count) * 2 * kCluster, 0xDD);
        for (LONGLONG i = 0; i < count; ++i) {
            const LONGLONG at = begin + 2 * (isReversed ? count - 1 - i : i);
            extents[path].push_back({1, at});
            const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(i * kCluster);
            std::copy_n(from, std::min<std::ptrdiff_t>(kCluster, bytes.end() - from),
                        clusters.begin() + static_cast<std::ptrdiff_t>(at * kCluster));
        }
        writeBytes(volume, clusters);
        addToList(name, prefix + path.substr(2));
        return path;
    }
    long analyze(HANDLE stop = nullptr) { return RegistryDefragmenterAnalyze(defragmenter, results, stop); }
    [[nodiscard]] RDAnalyzerResults kept() const
    {
        RDAnalyzerResults kept;
        EXPECT_EQ(RegistryDefragmenterGetResults(defragmenter, kept), 0);
        return kept;
    }
    /// The temporary files.
    [[nodiscard]] std::ptrdiff_t countFiles() const
    {
        return std::ranges::count_if(std::filesystem::directory_iterator(temporary),
                                     [](const auto& each) { return each.path().extension() == L".tmp"; });
    }

    std::wstring folder = scratchFolder();
    std::wstring volume = folder + L"\\volume";
    std::wstring temporary;
    std::wstring opened; // the last file whose extents can be queried
    bool isCopying = false;
    std::map<std::wstring, Extents> extents;
    Bytes clusters;
    void* defragmenter = CreateRegistryDefragmenter(L"test");
    RDAnalyzerResults results;
    Opens opens;
    Controls controls;
    StandIn offreg{L"offreg.dll", L"offline_registry.dll", false};
};

/// The console's command, with its output in files.
struct HivesConsole : HiveAnalysis
{
    HivesConsole()
    {
        for (const auto& [stream, file, output] : {std::tuple(STD_OUTPUT_HANDLE, files[0], &::results),
                                                   {STD_ERROR_HANDLE, files[1], &::messages}}) {
            const HANDLE kept = GetStdHandle(stream);
            SetStdHandle(stream, ::CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                               CREATE_ALWAYS, 0, nullptr));
            output().flush(); // which takes the handle with its first use
            SetStdHandle(stream, kept);
        }
        CloseRegistryDefragmenter(std::exchange(defragmenter, nullptr));
    }
    /// The code, and what was written.
    std::string run(const std::vector<std::wstring>& words)
    {
        std::string text = std::to_string(kHivesCommand.run(words)) + "\n";
        ::results().flush(), messages().flush();
        for (int i = 0; i < 2; ++i) {
            const Bytes bytes = readBytes(files[i]);
            text.append(bytes.begin() + std::exchange(seen[i], std::ssize(bytes)), bytes.end());
        }
        std::erase(text, '\r');
        return text;
    }

    const std::wstring files[2] = {folder + L"\\out", folder + L"\\err"};
    std::ptrdiff_t seen[2] = {};
    const WorkScope work;
};

TEST_F(HiveAnalysis, TellsBothSizesOfEachHiveInTheOrderOfTheList)
{
    wchar_t device[MAX_PATH];
    ASSERT_NE(QueryDosDeviceW(L"C:", device, MAX_PATH), 0U);
    const std::wstring a = addHive(L"\\REGISTRY\\MACHINE\\A", hiveOf(0));
    const std::wstring b = addHive(L"\\REGISTRY\\MACHINE\\B", hiveOf(3), device, true);
    addToList(L"\\REGISTRY\\MACHINE\\HARDWARE", L"");
    Bytes torn = hiveOf(1);
    torn.resize(torn.size() - 1000);
    using Told = std::vector<std::tuple<std::wstring, std::wstring, std::uint64_t, std::uint64_t>>;
    const Told expected{{L"\\REGISTRY\\MACHINE\\A", a, 2 * kCluster, 2 * kCluster},
                        {L"\\REGISTRY\\MACHINE\\B", b, 5 * kCluster, 2 * kCluster},
                        {L"odd", addHive(L"odd", torn), 3 * kCluster, 2 * kCluster}};
    DWORD thread = 0;
    Writes writes(before([&](HANDLE, LPCVOID, DWORD size, auto...) {
        EXPECT_TRUE(thread == 0 || thread == GetCurrentThreadId()) << "one worker";
        thread = GetCurrentThreadId();
        EXPECT_EQ(GetThreadPriority(GetCurrentThread()), THREAD_PRIORITY_IDLE);
        EXPECT_TRUE(size == kCluster || !isCopying);
        if (writes.calls() == 1) {
            const SmartHandle<THPCloseThreadpool> pool(THPOpenThreadPool(L"RegistryDefragmenter"));
            int running = 0;
            EXPECT_TRUE(THPIsRunning(pool.get(), 0UL, 0UL, running) == 0 && running == 1);
            RDAnalyzerResults other;
            EXPECT_EQ(RegistryDefragmenterAnalyze(defragmenter, other, nullptr), ERROR_BUSY);
            MemoryInputByteStream none("\0\0\0\0\0\0\0\0", 8);
            EXPECT_EQ(RegistryDefragmenterLoad(defragmenter, 0, none), ERROR_BUSY);
            for (const auto& each : std::filesystem::directory_iterator(temporary)) // by somebody
                EXPECT_TRUE(!each.path().filename().wstring().starts_with(L"new") ||
                            DeleteFileW(each.path().c_str()));
        }
    }));
    for (const bool hasLibrary : {false, true}) { // the pool and its category exist the second time
        offreg.exists = hasLibrary;
        thread = 0;
        writes.reset();
        results.clear();
        EXPECT_EQ(analyze(TestEvent().get()), 0);
        Told told;
        for (const RDHiveResult& each : results.getResults())
            told.emplace_back(each.mountName.c_str(), each.path.c_str(), each.oldSize, each.newSize);
        EXPECT_EQ(told, expected);
        EXPECT_TRUE(results.getFailures().empty());
        EXPECT_EQ(dumpOf(results), dumpOf(kept()));
        EXPECT_EQ(countFiles(), 0);
    }
}

// Its worker uses the stack of the analysis.
TEST_F(HiveAnalysis, EndsAfterItsWorkerEvenIfItsPoolWasClosed)
{
    addHive(L"a", hiveOf(0));
    addHive(L"b", hiveOf(0));
    const TestEvent stop, closed;
    const DWORD own = GetCurrentThreadId();
    Writes writes(before([&](auto...) {
        void* const pool = THPOpenThreadPool(L"RegistryDefragmenter");
        EXPECT_TRUE(pool == INVALID_HANDLE_VALUE || // the second time
                    THPCloseThreadpool(pool) + THPCloseThreadpool(pool) == 2);
        closed.set();
    }));
    int polls = 0;
    const Polls each(before([&](HANDLE handle, DWORD) {
        const bool isOwn = handle == stop.get() && GetCurrentThreadId() == own;
        EXPECT_TRUE(!isOwn || ++polls != 4 || closed.wait()); // behind the first hive
    }));
    EXPECT_EQ(analyze(stop.get()), ERROR_CANCELLED);
    EXPECT_EQ(countFiles(), 0);
}

TEST_F(HiveAnalysis, OneHiveThatFailsLosesNoOther)
{
    addHive(L"a", hiveOf(0));
    std::map<std::wstring, std::pair<DWORD, std::wstring>> failures = {
        {L"none", {ERROR_BADDB, L"RDHiveItem::analyze\nLine: 181\n"}}};
    addHive(L"none", Bytes(kCluster, 'x'));
    for (const auto& [name, where, code, line] :
         {std::tuple(L"resident", Extents(), DWORD{ERROR_HANDLE_EOF}, L"137"),
          {L"sparse", {{1, 0}, {1, -1}}, ERROR_NEGATIVE_SEEK, L"184"},
          {L"behind", {{1, 0}, {1, 1000000}}, ERROR_HANDLE_EOF, L"187"},
          {L"many", Extents(5, {1, 0}), ERROR_MORE_DATA, L"137"}}) {
        extents[addHive(name, hiveOf(0))] = where;
        failures[name] = {code, std::wstring(L"HiveCopy\nLine: ") + line};
    }
    for (const auto& [name, path, code] :
         {std::tuple(L"letter", LR"(\Device\HarddiskVolume1234\x)", DWORD{ERROR_INVALID_DRIVE}),
          {L"prefix", LR"(\Device\HarddiskVolume)", ERROR_INVALID_DRIVE},
          {L"form", LR"(\SystemRoot\x)", ERROR_BAD_PATHNAME},
          {L"number", L"1", ERROR_BAD_PATHNAME}}) {
        addToList(name, path, *path == L'1' ? REG_DWORD : REG_SZ);
        failures[name] = {code, L"RDHiveItem::analyze\n"};
    }
    addHive(L"z", hiveOf(1));
    EXPECT_EQ(analyze(), ERROR_HANDLE_EOF) << "the first one's: behind";
    EXPECT_EQ(countFiles(), 0);
    ASSERT_EQ(results.getResults().size(), 2U);
    EXPECT_EQ(results.getResults()[1].mountName.c_str(), std::wstring(L"z"));
    ASSERT_EQ(results.getFailures().size(), failures.size());
    for (const RDHiveFailure& failure : results.getFailures()) {
        const auto& [code, place] = failures.at(failure.mountName.c_str());
        EXPECT_EQ(failure.code, code) << utf8(failure.mountName.c_str());
        EXPECT_NE(failure.report.find(place.c_str()), HeapStringW::npos) << utf8(failure.report.c_str());
    }
}

/// Stopped at each moment: no file is left, nothing is running, and no unfinished hive has a result.
TEST_F(HiveAnalysis, StopsBeforeBetweenAndDuringClusters)
{
    addHive(L"a", hiveOf(0));
    addHive(L"b", hiveOf(1));
    const TestEvent stop;
    long moment = 0, asked = 0;
    Polls polls(before([&](HANDLE handle, DWORD) {
        if (handle == stop.get() && ++asked == moment)
            stop.set();
    }));
    Writes writes(before([&](auto...) {
        if (-writes.calls() == moment)
            stop.set();
    }));
    const auto stopAt = [&](long when) {
        moment = when, asked = 0;
        stop.reset(), writes.reset(), results.clear();
        const long code = analyze(stop.get());
        EXPECT_EQ(countFiles(), 0);
        if (code == ERROR_SUCCESS)
            return false;
        EXPECT_EQ(code, ERROR_CANCELLED);
        EXPECT_TRUE(results.getResults().empty()) << "as it was";
        EXPECT_TRUE(kept().getFailures().empty());
        EXPECT_LT(kept().getResults().size(), 2U);
        EXPECT_TRUE(when > 0 || writes.calls() == -when) << "the cluster at hand is the last one";
        return true;
    };
    long stops = 0;
    while (stopAt(stops + 1))
        ++stops;
    EXPECT_EQ(kept().getResults().size(), 2U);
    // Twice before and once after the worker was made, once for each of the hives; and of these for each
    // cluster and each extent, and after the copy.
    EXPECT_EQ(stops, 3 + 2 + (2 + 2 + 1) + (3 + 3 + 1));
    EXPECT_TRUE(stopAt(-1) && stopAt(-2));
    stop.set();
    EXPECT_TRUE(analyze(stop.get()) == ERROR_CANCELLED && kept().getResults().empty());
    EXPECT_EQ(analyze(reinterpret_cast<HANDLE>(0x1234)), ERROR_INVALID_HANDLE) << "nothing could stop it";
}

TEST_F(HiveAnalysis, EveryFailingCallIsReportedByItsPlaceAndLeavesNothing)
{
    addHive(L"a", hiveOf(0));
    ASSERT_EQ(analyze(), 0);
    std::map<std::string, std::vector<int>> lines = {
        {"CreateFileW", {113, 151, 163}}, {"GetDiskFreeSpaceW", {118}},
        {"GetFileSizeEx", {137}},         {"DeviceIoControl", {137}},
        {"SetEndOfFile", {163}},          {"SetFilePointerEx", {163, 184, 190, 184, 190}},
        {"ReadFile", {187, 187}},         {"WriteFile", {193, 193}}};
    const auto run = [&](const std::string& import, long call) {
        SCOPED_TRACE(import + " " + std::to_string(call));
        results.clear();
        const long code = analyze();
        EXPECT_EQ(countFiles(), 0);
        EXPECT_LE(results.getResults().size() + results.getFailures().size(), 1U) << "one outcome of a hive";
        if (code == 0) {
            EXPECT_TRUE(!FailingCall::hasCome() || (import != "WriteFile" && import != "FlushFileBuffers"));
            return;
        }
        EXPECT_EQ(code, ERROR_IO_DEVICE);
        const std::vector<int>& ofImport = lines[import];
        const bool isOfCopy = call <= static_cast<long>(ofImport.size());
        EXPECT_TRUE(!isOfCopy || results.getFailures().size() == 1);
        const std::wstring line = L"HiveCopy\nLine: " + std::to_wstring(isOfCopy ? ofImport[call - 1] : 0);
        for (const RDHiveFailure& failure : results.getFailures()) {
            EXPECT_EQ(failure.code, ERROR_IO_DEVICE);
            for (const std::wstring& place : {line, std::wstring(L"RDHiveItem::analyze\nLine: 174\n")})
                EXPECT_EQ(failure.report.find(place.c_str()) != HeapStringW::npos, isOfCopy)
                    << utf8(failure.report.c_str());
        }
    };
    ProcessCounts before;
    for (int times = 0; times < 2; ++times) { // what is kept permanently exists after the first time
        before = ProcessCounts::now();
        failCallsOf({"CreateFileW"}, -1, run);
        failCallsOf({"RegOpenKeyExW", "RegEnumValueW", "RegQueryValueExW"}, ERROR_IO_DEVICE, run);
        failCallsOf({"GetDiskFreeSpaceW", "GetFileSizeEx", "DeviceIoControl", "SetEndOfFile",
                     "SetFilePointerEx", "ReadFile", "WriteFile", "FlushFileBuffers", "GetTempFileNameW",
                     "SetFileSecurityW", "DeleteFileW", "MoveFileExW", "QueryDosDeviceW", "GetLogicalDrives",
                     "CreateEventW"},
                    0, run);
        CloseRegistryDefragmenter(defragmenter); // and with it the pool, which remembers how work has ended
        defragmenter = CreateRegistryDefragmenter(L"test");
    }
    EXPECT_TRUE(before.isReachedAgain(40));
    EXPECT_EQ(analyze(), 0);
}

/// Only for the process that the next test starts: it ends in the middle of a copy.
TEST_F(HiveAnalysis, DISABLED_EndsWithItsProcess)
{
    addHive(L"child", hiveOf(1));
    const Writes writes([](auto&&...) { return TerminateProcess(GetCurrentProcess(), 7); });
    analyze();
}

TEST_F(HiveAnalysis, DeletesWhatAnEndedProcessHasLeftAndNothingElse)
{
    EXPECT_EQ(exitCodeOf(startDisabled(L"--gtest_filter=HiveAnalysis.DISABLED_*")), 7U);
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kHiveList, L"child");
    EXPECT_EQ(countFiles(), 2);
    const std::wstring own = std::to_wstring(GetCurrentProcessId()); // identifiers are multiples of four
    std::vector others{temporary + L"\\old1.sysmaint." + own + L"-9.tmp"};
    for (const wchar_t* name : {L"old1", L"old1.3-1", L"old1.sysmaint", L"bad1.sysmaint.3-1",
                                L"olds.sysmaint.3-1", L"old.sysmaint.3-1", L"old1.sysmaint.3"})
        others.push_back(temporary + L"\\" + name + L".tmp");
    for (const std::wstring& path : others)
        writeBytes(path, Bytes(1, 'x'));
    addHive(L"a", hiveOf(0));
    EXPECT_EQ(analyze(), 0);
    EXPECT_EQ(countFiles(), std::ssize(others));
    for (const std::wstring& path : others)
        EXPECT_TRUE(DeleteFileW(path.c_str())) << utf8(path);
}

TEST_F(HiveAnalysis, TheDefragmenterIsOneWithAState)
{
    EXPECT_EQ(refusalOf(CreateRegistryDefragmenter(nullptr)), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(CreateRegistryDefragmenter(L"other"), defragmenter);
    EXPECT_NE(CloseRegistryDefragmenter(defragmenter), 0);
    addHive(L"a", hiveOf(0));
    addToList(L"b", L"?");
    EXPECT_EQ(analyze(), ERROR_BAD_PATHNAME);
    const std::string state = dumpOf(results);
    MemoryOutputByteStream stream;
    EXPECT_EQ(RegistryDefragmenterDump(defragmenter, 0, stream), 0);
    EXPECT_EQ(std::string_view(reinterpret_cast<const char*>(stream.getData()), stream.getSize()), state);
    const std::size_t texts = folder.size() + 2 + results.getFailures()[0].report.size() + 3;
    EXPECT_EQ(state.size(), 4 + 8 + 8 + 16 + 16 + 4 + 8 + 8 + 4 + 8 + 2 * (texts + 5));

    // A state that is cut short or lies about its lengths is refused and changes nothing.
    addToList(L"c", L"?");
    EXPECT_EQ(analyze(), ERROR_BAD_PATHNAME);
    const std::string old = dumpOf(kept());
    const auto load = [&](std::size_t size) {
        MemoryInputByteStream input(state.data(), size);
        return RegistryDefragmenterLoad(defragmenter, 0, input);
    };
    for (std::size_t size = 0; size < state.size(); ++size) {
        ASSERT_EQ(load(size), ERROR_READ_FAULT) << size;
        std::string lie = state;
        lie[size] ^= static_cast<char>(0x80);
        MemoryInputByteStream lying(lie.data(), lie.size());
        RDAnalyzerResults loaded;
        const auto code = codeOf([&] { loaded.load(0, lying); });
        ASSERT_TRUE(code == 0 || (code == ERROR_READ_FAULT && loaded.getResults().empty())) << size;
    }
    EXPECT_EQ(dumpOf(kept()), old);
    EXPECT_TRUE(load(state.size()) == 0 && dumpOf(kept()) == state);

    RegDeleteKeyW(HKEY_LOCAL_MACHINE, kHiveList);
    EXPECT_EQ(analyze(), ERROR_FILE_NOT_FOUND);
    EXPECT_NE(CloseRegistryDefragmenter(defragmenter), 0);
    EXPECT_TRUE(CloseRegistryDefragmenter(defragmenter) == 0 && analyze() == ERROR_INVALID_HANDLE);
    EXPECT_NE(refusalOf(THPOpenThreadPool(L"RegistryDefragmenter")), 0U) << "closed with the last handle";
}

TEST_F(HivesConsole, ShowsATableAndJson)
{
    const std::string a = utf8(addHive(L"\\M\\a", hiveOf(0)));
    const std::string b = utf8(addHive(L"z\x1b\\b", hiveOf(6)));
    addToList(L"zy", LR"(\Device\HarddiskVolume1234\x)"); // no drive's
    EXPECT_EQ(run({L"list"}),
              "0\n\\M\\a  " + a + "\nz?\\b  " + b + "\nzy  \\Device\\HarddiskVolume1234\\x\n3 hives\n");
    FixedOutputByteStream full(nullptr, 0);
    EXPECT_EQ(DumpHiveList(full), ERROR_WRITE_FAULT);
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kHiveList, L"zy");
    const std::string head =
        "          now    compacted       saving                                   hive\n";
    const std::string rowA =
        "        8,192        8,192            0    0.0 %  [####################]  \\M\\a  " + a + "\n";
    EXPECT_EQ(run({L"analyze"}),
              "0\n" + head + rowA +
                  "       32,768        8,192       24,576   75.0 %  [#####...............]  z?\\b  " + b +
                  "\n       40,960       16,384       24,576   60.0 %  [########............]  in all\n");
    addToList(L"zz", L"?");
    const std::string json = run({L"analyze", L"--json"});
    EXPECT_NE(json.find(R"("bytes":32768,"compactedBytes":8192,"savedBytes":24576})"), std::string::npos);
    EXPECT_NE(json.find(R"({"type":"failure","name":"zz","file":"?","code":161,"report":"An error)"),
              std::string::npos);
    EXPECT_NE(
        json.find("{\"type\":\"summary\",\"hives\":2,\"failures\":1,\"bytes\":40960,\"compactedBytes\":16384,"
                  "\"savedBytes\":24576,\"code\":161}\nhives: zz (?): "),
        std::string::npos);
    EXPECT_EQ(json[0], '1');
    Writes writes(before([&](auto...) {
        if (opened.ends_with(L"\\b")) // as Ctrl+C does
            SetEvent(cancelEvent());
    }));
    EXPECT_EQ(run({L"analyze"}), "130\n" + head + rowA + rowA.substr(0, rowA.find("\\M")) +
                                     "in all\nhives: stopped; the other hives were not analyzed\n");
    EXPECT_EQ(countFiles(), 0);
    EXPECT_THROW(run({L"analyze", L"x"}), UsageError);
}

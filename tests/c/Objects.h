#pragma once

#include "c/Row.h"

// What the rows about the functions of the C interface work with.

inline constexpr std::uint32_t kLong = 60000;
inline constexpr wchar_t kKey[] = L"Software\\sysmaint-c-table";
inline constexpr wchar_t kBelow[] = L"Software\\sysmaint-c-table\\sub";
inline constexpr wchar_t kHives[] = L"System\\CurrentControlSet\\Control\\hivelist";
inline void* const kUser = HKEY_CURRENT_USER;

inline std::int32_t onFound(void* context, const sysmaint_found* found)
{
    if (context != nullptr)
        *static_cast<std::wstring*>(context) += found->path;
    return 0;
}
/// A callback that goes on, whatever it is told.
inline constexpr auto ignore = [](void*, const auto*) -> std::int32_t { return 0; };

/// What a function has dumped.
struct Bytes
{
    void* data = nullptr;
    std::uint64_t size = 0;
};

/// What the rows need: an open object of each kind, and room for what functions return.
struct Objects
{
    Objects()
    {
        RegSetKeyValueW(HKEY_CURRENT_USER, kKey, L"v", REG_BINARY, "xy", 2);
        SetEnvironmentVariableW(L"sysmaint_c", L"\x00E4");
        SetEnvironmentVariableW(L"SYSMAINT_TOOL_RECORD", saved.c_str());
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, kHives, L"a", REG_SZ, L"a", 4);
        makeItems();
        makeMessages();
        makeHives();
        makeProcesses();
        makeConnections();
    }
    Objects(Objects&&) = delete;
    ~Objects();

    void makeItems();
    void makeMessages();
    void makeHives();
    void makeProcesses();
    void makeConnections();
    void remakeClient();
    // Its pool keeps the outcome of work that was cancelled.
    void openDefragmenter() { defragmenter = CreateRegistryDefragmenter(L"c table"); }
    void closeDefragmenter() const { EXPECT_NE(CloseRegistryDefragmenter(defragmenter), 0); }
    /// Whether the key is in its file.
    std::int32_t isThereAndClosed()
    {
        EXPECT_EQ(sysmaint_offline_exists(madeKey, &flag) + sysmaint_offline_close(madeKey), 0);
        return flag;
    }
    void openBelowClosed()
    {
        sysmaint_offline_key* top = nullptr;
        sysmaint_offline_open(hiveFile.c_str(), L"", SYSMAINT_OFFLINE_ENGINE, &top);
        sysmaint_offline_open_below(top, L"a", &madeKey);
        sysmaint_offline_close(top);
    }
    /// The same bytes and one more.
    const void* more(const Bytes& bytes)
    {
        longer.assign(static_cast<char*>(bytes.data), bytes.size) += 'x';
        return longer.data();
    }
    void newPool() { EXPECT_EQ(sysmaint_pool_create(L"c new pool", &madePool), 0); }
    void queue()
    {
        newPool();
        sysmaint_pool_create_category(madePool, &category, &noThreads);
        sysmaint_pool_queue(madePool, &work, ignore, nullptr, nullptr, 0, &handle);
    }
    /// What a row may have made and not closed; null and closed handles are refused.
    void giveBackMade()
    {
        const auto each = [](auto*&... made) { (giveBack(std::exchange(made, nullptr)), ...); };
        each(rules, madeFtp, item, shared, madeScan, madeWiper, message, madePool, madeTopic, subscription,
             madeKey, madeReporter);
    }
    void oneElement()
    {
        sysmaint_message_clear(array);
        sysmaint_message_add_element(array, "x", 1);
    }

    const Folder folder;
    const std::wstring path = folder.file(L"file.tmp", 3), victim = folder.at(L"victim");
    const std::wstring tool = besideTests(L"snapshot_tool.exe");
    std::wstring found;
    std::string longer;
    const std::wstring hiveFile = folder.at(L"hive"), saved = folder.at(L"saved");
    sysmaint_validator *validator = nullptr, *spareRules = nullptr, *rules = nullptr;
    sysmaint_ftp *ftp = nullptr, *madeFtp = nullptr;
    sysmaint_item *file = nullptr, *folderItem = nullptr, *key = nullptr, *value = nullptr,
                  *ftpItem = nullptr;
    sysmaint_item* item = nullptr;
    sysmaint_shared_item* shared = nullptr;
    sysmaint_scan *scan = nullptr, *keyScan = nullptr, *ftpScan = nullptr, *madeScan = nullptr;
    sysmaint_wiper *wiper = nullptr, *madeWiper = nullptr;
    sysmaint_message *plain = nullptr, *data = nullptr, *array = nullptr, *named = nullptr, *reply = nullptr;
    sysmaint_message* message = nullptr;
    sysmaint_pool *pool = nullptr, *madePool = nullptr;
    sysmaint_topic *topic = nullptr, *reported = nullptr, *madeTopic = nullptr;
    sysmaint_subscription* subscription = nullptr;
    sysmaint_offline_key *root = nullptr, *below = nullptr, *fresh = nullptr, *madeKey = nullptr;
    sysmaint_reporter *reporter = nullptr, *madeReporter = nullptr;
    void *defragmenter = nullptr, *manager = nullptr, *process = nullptr, *lookup = nullptr;
    void *server = nullptr, *client = nullptr, *accepted = nullptr, *other = nullptr, *listener = nullptr;
    Bytes ruleBytes, itemBytes, messageBytes, hiveBytes;
    const ProcessEntry* processes = nullptr;
    const ThreadEntry* threads = nullptr;
    const ModuleEntry* modules = nullptr;

    const sysmaint_ftp_account account{sizeof account, 1, L"127.0.0.1", nullptr, nullptr, 5000, 0};
    const sysmaint_scan_options deep{sizeof deep, 0};
    const sysmaint_wipe_options wiping{sizeof wiping, SYSMAINT_WIPE_ZEROS, 1, 0, 3};
    const sysmaint_wipe_entry entry{sizeof entry, 0, L"victim", folder.path()};
    const sysmaint_work_key category{sizeof category, SYSMAINT_SCOPE_CATEGORY, L"category", nullptr, 0, 0,
                                     nullptr};
    const sysmaint_work_key work{sizeof work, SYSMAINT_SCOPE_WORK, L"category", L"work", 0, 0, nullptr};
    const sysmaint_category_options noThreads{sizeof noThreads, 0, 0, 0, 0};
    const sysmaint_listener_options listening{sizeof listening, 0, 0, 0, 0};
    const sysmaint_reporter_options reporting{sizeof reporting, SYSMAINT_REPORT_QUEUE, 0, 0, 0};
    const std::uint32_t three = 3;
    const std::array<std::uint32_t, 3> sent{1, 7, 9}; // topic number 7, message 9

    sysmaint_rule rule{sizeof rule, 9, 9, 9};
    sysmaint_message_info info{sizeof info, 9, 9, 9, nullptr};
    sysmaint_listener_state heard{sizeof heard, 7, 7, 7, 7, 7, 7};
    sysmaint_reporter_state told{sizeof told, 7, 7, 7, 7, 7, 7};
    wchar_t* text = nullptr;
    char* narrow = nullptr;
    const wchar_t* constText = nullptr;
    const void* constBytes = nullptr;
    void *bytes = nullptr, *handle = nullptr;
    std::uint64_t size = 0, keys = 0, keysBelow = 0;
    std::uint32_t number = 0;
    std::int32_t flag = 0;
    std::int64_t restorePoint = 0;
};

inline void Objects::makeItems()
{
    EXPECT_EQ(sysmaint_validator_create(L"*.tmp,q:101", L"b:015", &validator), 0);
    EXPECT_EQ(sysmaint_validator_create(nullptr, nullptr, &spareRules), 0);
    EXPECT_EQ(sysmaint_validator_dump(validator, &ruleBytes.data, &ruleBytes.size), 0);
    EXPECT_EQ(sysmaint_ftp_create(&account, &ftp), 0);
    EXPECT_EQ(sysmaint_item_file(path.c_str(), 0, &file), 0);
    EXPECT_EQ(sysmaint_item_dump(file, &itemBytes.data, &itemBytes.size), 0);
    EXPECT_EQ(sysmaint_item_folder(folder.path(), 0, &folderItem), 0);
    EXPECT_EQ(sysmaint_item_registry_key(kUser, kKey, 0, &key), 0);
    EXPECT_EQ(sysmaint_item_registry_value(kUser, kKey, L"v", 0, &value), 0);
    EXPECT_EQ(sysmaint_item_ftp_file(ftp, L"/x", &ftpItem), 0);
    EXPECT_EQ(sysmaint_scan_create(SYSMAINT_SCAN_FOLDERS, &scan), 0);
    EXPECT_EQ(sysmaint_scan_create(SYSMAINT_SCAN_REGISTRY, &keyScan), 0);
    EXPECT_EQ(sysmaint_scan_create(SYSMAINT_SCAN_FTP, &ftpScan), 0);
    EXPECT_EQ(sysmaint_wiper_create(&wiper), 0);
}

inline void Objects::makeMessages()
{
    sysmaint_message** const all[] = {&plain, &data, &array, &named};
    for (std::uint32_t kind = 0; kind < 4; ++kind)
        EXPECT_EQ(sysmaint_message_create(kind, L"c topic", 9, all[kind]), 0);
    EXPECT_EQ(sysmaint_message_set_number(named, L"n", 3), 0);
    EXPECT_EQ(sysmaint_message_set_text(named, L"t", L"text"), 0);
    EXPECT_EQ(sysmaint_message_add_element(array, "x", 1), 0);
    EXPECT_EQ(sysmaint_message_dump(named, &messageBytes.data, &messageBytes.size), 0);
    EXPECT_EQ(sysmaint_message_copy(named, &reply), 0);
    EXPECT_EQ(sysmaint_pool_create(L"c pool", &pool), 0);
    EXPECT_EQ(sysmaint_pool_create_category(pool, &category, &noThreads), 0);
    EXPECT_EQ(sysmaint_topic_create(L"c topic", &topic), 0);
    EXPECT_EQ(sysmaint_topic_create(L"c reported topic", &reported), 0);
}

inline void Objects::makeHives()
{
    void* const settings = CreateSettingsHive(hiveFile.c_str(), 0);
    EXPECT_EQ(SettingsHiveSetNumber32(settings, L"a\\b", L"v", 0x44434241), 0);
    EXPECT_EQ(SettingsHiveSave(settings), 0);
    EXPECT_NE(CloseSettingsHive(settings), 0);
    EXPECT_EQ(sysmaint_offline_open(hiveFile.c_str(), L"", SYSMAINT_OFFLINE_ENGINE, &root), 0);
    EXPECT_EQ(sysmaint_offline_open_below(root, L"a\\b", &below), 0);
    EXPECT_EQ(sysmaint_offline_open_below(root, L"c", &fresh), 0);
    openDefragmenter();
    EXPECT_EQ(sysmaint_hive_results_dump(defragmenter, &hiveBytes.data, &hiveBytes.size), 0);
    closeDefragmenter();
    manager = CreateRestoreManager(L"c table");
}

inline void Objects::makeProcesses()
{
    ProcessEntry* ownProcess = nullptr;
    ThreadEntry* ownThreads = nullptr;
    ModuleEntry* ownModules = nullptr;
    std::size_t count = 0;
    EXPECT_EQ(CreateProcessManager(), 0);
    EXPECT_EQ(PMFindById(GetCurrentProcessId(), &ownProcess), 0);
    EXPECT_EQ(PMListThreads(GetCurrentProcessId(), &ownThreads, &count), 0);
    EXPECT_EQ(PMListModules(GetCurrentProcessId(), &ownModules, &count), 0);
    processes = ownProcess;
    threads = ownThreads;
    modules = ownModules;
    EXPECT_EQ(sysmaint_process_create(processes, L"c process", &process), 0);
    const ProcessDetails details{}; // in C an entry and what follows it
    EXPECT_EQ(reinterpret_cast<const char*>(&details.hasParent),
              reinterpret_cast<const char*>(&details) + sizeof *ownProcess);
}

inline void Objects::makeConnections()
{
    EXPECT_EQ(sysmaint_connection_socket(L"c server", 1, L"127.0.0.1", 0, &server), 0);
    EXPECT_EQ(ConnectionListen(server, kLong, nullptr), 0);
    remakeClient();
    EXPECT_EQ(sysmaint_connection_socket(L"c other", 1, L"127.0.0.1", 0, &other), 0);
    EXPECT_EQ(sysmaint_listener_create(L"c listener", other, topic, nullptr, &listener), 0);
    void* idle = nullptr;
    EXPECT_EQ(sysmaint_connection_socket(L"c idle", 0, L"127.0.0.1", 1, &idle), 0);
    EXPECT_EQ(sysmaint_reporter_create(idle, reported, nullptr, &reporter), 0);
    CloseConnection(idle);
}

inline void Objects::remakeClient()
{
    CloseConnection(client);
    CloseConnection(accepted);
    unsigned short port = 0;
    EXPECT_EQ(ConnectionGetPort(server, &port), 0);
    EXPECT_EQ(sysmaint_connection_socket(L"c client", 0, L"127.0.0.1", port, &client), 0);
    EXPECT_EQ(ConnectionConnect(client, kLong, nullptr), 0);
    EXPECT_EQ(ConnectionAccept(server, kLong, nullptr, &accepted), 0);
}

inline Objects::~Objects()
{
    EXPECT_EQ(sysmaint_reporter_close(reporter, kLong), 0);
    CloseMessageListener(listener);
    for (void* each : {other, client, accepted, server})
        CloseConnection(each);
    CloseProcess(process);
    CloseProcessManager();
    CloseRestoreManager(manager);
    const auto closeAll = [](auto... all) { (giveBack(all), ...); };
    closeAll(root, below, fresh, topic, reported, pool, plain, data, array, named, reply, wiper, scan,
             keyScan, ftpScan, file, folderItem, key, value, ftpItem, ftp, validator, spareRules,
             ruleBytes.data, itemBytes.data, messageBytes.data, hiveBytes.data);
    for (const void* memory : std::initializer_list<const void*>{processes, threads, modules})
        utilsFreeMemory(const_cast<void*>(memory));
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kHives, L"a");
    RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
}

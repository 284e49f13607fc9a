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

/// What a function makes: its last argument.
template <class Code, class... Parameters, class... Arguments>
auto make(Code (*function)(Parameters...), Arguments... arguments)
{
    std::remove_pointer_t<std::tuple_element_t<sizeof...(Parameters) - 1, std::tuple<Parameters...>>> made{};
    EXPECT_EQ(function(arguments..., &made), 0);
    return made;
}

/// What a function has dumped of an object.
struct Bytes
{
    template <class Object>
    Bytes(std::int32_t (*dump)(Object*, void**, std::uint64_t*), Object* object)
    {
        EXPECT_EQ(dump(object, &data, &size), 0);
    }
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
        EXPECT_EQ(sysmaint_message_add_element(array, "x", 1), 0);
        EXPECT_EQ(sysmaint_pool_create_category(pool, &category, &noThreads), 0);
        EXPECT_EQ(ConnectionListen(server, kLong, nullptr), 0);
        remakeClient();
        closeDefragmenter();
        EXPECT_EQ(PMListThreads(GetCurrentProcessId(), &threads, &count), 0);
        EXPECT_EQ(PMListModules(GetCurrentProcessId(), &modules, &count), 0);
        process = make(sysmaint_process_create, processes, L"c process");
        const ProcessDetails details{}; // in C an entry and what follows it
        EXPECT_EQ(reinterpret_cast<const char*>(&details.hasParent),
                  reinterpret_cast<const char*>(&details) + sizeof(ProcessEntry));
    }
    Objects(Objects&&) = delete;
    ~Objects();

    void remakeClient();
    // Its pool keeps the outcome of work that was cancelled.
    void* openDefragmenter() { return defragmenter = CreateRegistryDefragmenter(L"c table"); }
    void closeDefragmenter() const { EXPECT_NE(CloseRegistryDefragmenter(defragmenter), 0); }
    std::wstring makeHive() const
    {
        std::wstring file = folder.at(L"hive");
        void* const settings = CreateSettingsHive(file.c_str(), 0);
        EXPECT_EQ(SettingsHiveSetNumber32(settings, L"a\\b", L"v", 0x44434241), 0);
        EXPECT_EQ(SettingsHiveSave(settings), 0);
        EXPECT_NE(CloseSettingsHive(settings), 0);
        return file;
    }
    static sysmaint_message* makeNamed()
    {
        sysmaint_message* const message = make(sysmaint_message_create, 3, L"c topic", 9);
        EXPECT_EQ(sysmaint_message_set_number(message, L"n", 3), 0);
        EXPECT_EQ(sysmaint_message_set_text(message, L"t", L"text"), 0);
        return message;
    }
    sysmaint_reporter* makeReporter()
    {
        void* const idle = make(sysmaint_connection_socket, L"c idle", 0, L"127.0.0.1", 1);
        sysmaint_reporter* const reporting = make(sysmaint_reporter_create, idle, reported, nullptr);
        CloseConnection(idle);
        return reporting;
    }
    /// Whether the key is in its file.
    std::int32_t isThereAndClosed()
    {
        EXPECT_EQ(sysmaint_offline_exists(madeKey, &flag) + sysmaint_offline_close(madeKey), 0);
        return flag;
    }
    void openBelowClosed()
    {
        sysmaint_offline_key* const top = make(sysmaint_offline_open, hiveFile.c_str(), L"", 2);
        madeKey = make(sysmaint_offline_open_below, top, L"a");
        sysmaint_offline_close(top);
    }
    /// The same bytes and one more.
    const void* more(const Bytes& bytes)
    {
        longer.assign(static_cast<char*>(bytes.data), bytes.size) += 'x';
        return longer.data();
    }
    void queue()
    {
        madePool = make(sysmaint_pool_create, L"c new pool");
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

    const sysmaint_ftp_account account{sizeof account, 1, L"127.0.0.1", nullptr, nullptr, 5000, 0};
    const sysmaint_scan_options deep{sizeof deep, 0};
    const sysmaint_wipe_options wiping{sizeof wiping, SYSMAINT_WIPE_ZEROS, 1, 0, 3};
    const sysmaint_work_key category{sizeof category, 0, L"category", nullptr, 0, 0, nullptr};
    const sysmaint_work_key work{sizeof work, SYSMAINT_SCOPE_WORK, L"category", L"work", 0, 0, nullptr};
    const sysmaint_category_options noThreads{sizeof noThreads, 0, 0, 0, 0};
    const sysmaint_listener_options listening{sizeof listening, 0, 0, 0, 0};
    const sysmaint_reporter_options reporting{sizeof reporting, SYSMAINT_REPORT_QUEUE, 0, 0, 0};
    const std::uint32_t three = 3;
    const std::array<std::uint32_t, 3> sent{1, 7, 9}; // topic number 7, message 9

    const Folder folder;
    const std::wstring path = folder.file(L"file.tmp", 3), victim = folder.at(L"victim");
    const std::wstring hiveFile = makeHive(), saved = folder.at(L"saved");
    const std::wstring tool = besideTests(L"snapshot_tool.exe");
    std::wstring found;
    std::string longer;
    const sysmaint_wipe_entry entry{sizeof entry, 0, L"victim", folder.path()};

    sysmaint_validator* validator = make(sysmaint_validator_create, L"*.tmp,q:101", L"b:015");
    sysmaint_validator *spareRules = make(sysmaint_validator_create, nullptr, nullptr), *rules = nullptr;
    sysmaint_ftp *ftp = make(sysmaint_ftp_create, &account), *madeFtp = nullptr;
    sysmaint_item* file = make(sysmaint_item_file, path.c_str(), 0);
    sysmaint_item* folderItem = make(sysmaint_item_folder, folder.path(), 0);
    sysmaint_item* key = make(sysmaint_item_registry_key, kUser, kKey, 0);
    sysmaint_item* value = make(sysmaint_item_registry_value, kUser, kKey, L"v", 0);
    sysmaint_item *ftpItem = make(sysmaint_item_ftp_file, ftp, L"/x"), *item = nullptr;
    sysmaint_shared_item* shared = nullptr;
    sysmaint_scan* scan = make(sysmaint_scan_create, SYSMAINT_SCAN_FOLDERS);
    sysmaint_scan* keyScan = make(sysmaint_scan_create, SYSMAINT_SCAN_REGISTRY);
    sysmaint_scan *ftpScan = make(sysmaint_scan_create, SYSMAINT_SCAN_FTP), *madeScan = nullptr;
    sysmaint_wiper *wiper = make(sysmaint_wiper_create), *madeWiper = nullptr;
    sysmaint_message* plain = make(sysmaint_message_create, 0, L"c topic", 9);
    sysmaint_message* data = make(sysmaint_message_create, 1, L"c topic", 9);
    sysmaint_message* array = make(sysmaint_message_create, 2, L"c topic", 9);
    sysmaint_message *named = makeNamed(), *reply = makeNamed(), *message = nullptr;
    sysmaint_pool *pool = make(sysmaint_pool_create, L"c pool"), *madePool = nullptr;
    sysmaint_topic *topic = make(sysmaint_topic_create, L"c topic"), *madeTopic = nullptr;
    sysmaint_topic* reported = make(sysmaint_topic_create, L"c reported topic");
    sysmaint_subscription* subscription = nullptr;
    sysmaint_offline_key* root = make(sysmaint_offline_open, hiveFile.c_str(), L"", 2);
    sysmaint_offline_key* below = make(sysmaint_offline_open_below, root, L"a\\b");
    sysmaint_offline_key *fresh = make(sysmaint_offline_open_below, root, L"c"), *madeKey = nullptr;
    sysmaint_reporter *reporter = makeReporter(), *madeReporter = nullptr;
    void *defragmenter = nullptr, *manager = CreateRestoreManager(L"c table"), *lookup = nullptr;
    void* server = make(sysmaint_connection_socket, L"c server", 1, L"127.0.0.1", 0);
    void* other = make(sysmaint_connection_socket, L"c other", 1, L"127.0.0.1", 0);
    void* listener = make(sysmaint_listener_create, L"c listener", other, topic, nullptr);
    void *client = nullptr, *accepted = nullptr;
    const Bytes ruleBytes{sysmaint_validator_dump, validator}, itemBytes{sysmaint_item_dump, file},
        messageBytes{sysmaint_message_dump, named}, hiveBytes{sysmaint_hive_results_dump, openDefragmenter()};
    const std::int32_t managing = CreateProcessManager();
    ProcessEntry* processes = make(PMFindById, GetCurrentProcessId());
    std::size_t count = 0;
    ThreadEntry* threads = nullptr;
    ModuleEntry* modules = nullptr;
    void* process = nullptr;

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

inline void Objects::remakeClient()
{
    CloseConnection(client);
    CloseConnection(accepted);
    unsigned short port = 0;
    EXPECT_EQ(ConnectionGetPort(server, &port), 0);
    client = make(sysmaint_connection_socket, L"c client", 0, L"127.0.0.1", port);
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
    for (void* memory : std::initializer_list<void*>{processes, threads, modules})
        utilsFreeMemory(memory);
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kHives, L"a");
    RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
}

// Each function of the C interface with arguments that it takes: then each argument is wrong, and each
// allocation fails.

#include "c/Row.h"

namespace {
constexpr std::uint32_t kLong = 60000;
constexpr wchar_t kKey[] = L"Software\\sysmaint-c-table";
constexpr wchar_t kHives[] = L"System\\CurrentControlSet\\Control\\hivelist";
void* const kUser = HKEY_CURRENT_USER;

std::int32_t onFound(void*, const sysmaint_found*)
{
    return 0;
}
std::int32_t onProgress(void*, const sysmaint_wipe_progress*)
{
    return 0;
}
std::int32_t onWork(void*, const sysmaint_work*)
{
    return 0;
}
std::int32_t onMessage(void*, const sysmaint_delivery*)
{
    return 0;
}
std::int32_t onHive(void*, const sysmaint_hive*)
{
    return 0;
}

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
        RegCreateKeyW(HKEY_CURRENT_USER, kKey, &hkey);
        RegSetValueExW(hkey, L"v", 0, REG_BINARY, reinterpret_cast<const BYTE*>(L"x"), 2);
        RegCreateKeyW(HKEY_LOCAL_MACHINE, kHives, &hives);
        RegSetValueExW(hives, L"a", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"a"), 4);
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
    void newPool() { EXPECT_EQ(sysmaint_pool_create(L"c new pool", &madePool), 0); }
    void queue()
    {
        newPool();
        sysmaint_pool_create_category(madePool, &category, &noThreads);
        sysmaint_pool_queue(madePool, &work, &onWork, nullptr, nullptr, 0, &handle);
    }
    void oneElement()
    {
        sysmaint_message_clear(array);
        sysmaint_message_add_element(array, "x", 1);
    }

    const Folder folder;
    const std::wstring path = folder.file(L"file.tmp", 3), victim = folder.at(L"victim");
    const std::wstring hiveFile = folder.at(L"hive"), saved = folder.at(L"saved");
    HKEY hkey = nullptr, hives = nullptr;
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

void Objects::makeItems()
{
    EXPECT_EQ(sysmaint_validator_create(L"*.tmp,x", L"y:011", &validator), 0);
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

void Objects::makeMessages()
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

void Objects::makeHives()
{
    void* const settings = CreateSettingsHive(hiveFile.c_str(), 0);
    EXPECT_EQ(SettingsHiveSetNumber32(settings, L"a\\b", L"v", 7), 0);
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

void Objects::makeProcesses()
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
}

void Objects::makeConnections()
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

void Objects::remakeClient()
{
    CloseConnection(client);
    CloseConnection(accepted);
    unsigned short port = 0;
    EXPECT_EQ(ConnectionGetPort(server, &port), 0);
    EXPECT_EQ(sysmaint_connection_socket(L"c client", 0, L"127.0.0.1", port, &client), 0);
    EXPECT_EQ(ConnectionConnect(client, kLong, nullptr), 0);
    EXPECT_EQ(ConnectionAccept(server, kLong, nullptr, &accepted), 0);
}

Objects::~Objects()
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
    RegDeleteValueW(hives, L"a");
    RegCloseKey(hives);
    RegCloseKey(hkey);
    RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
}

// clang-format off
#define CALL(function, ...) \
    Row<Objects>(#function, function, [](Objects& o) { static_cast<void>(o); return std::make_tuple(__VA_ARGS__); })
#define DOES(...) [](Objects& o) { __VA_ARGS__; }

const Row<Objects> kRows[] = {
    CALL(sysmaint_path_expand, L"%windir%\\x", &o.text),
    CALL(sysmaint_path_expand_utf8, "%windir%\\x", &o.narrow),

    CALL(sysmaint_validator_create, Optional{L"*.tmp"}, Optional{L"x"}, &o.rules),
    CALL(sysmaint_validator_add, o.spareRules, Number{0, 2}, L"x", Number{0, 2}, Number{1, 2}, Number{1, 2})
        .then(DOES(sysmaint_validator_clear(o.spareRules))),
    CALL(sysmaint_validator_clear, o.spareRules),
    CALL(sysmaint_validator_count, o.validator, Number{0, 2}, &o.number),
    CALL(sysmaint_validator_pattern, o.validator, Number{1, 2}, Number{0, 1}, &o.text),
    CALL(sysmaint_validator_rule, o.validator, Number{0, 2}, Number{1, 2}, &o.rule),
    CALL(sysmaint_validator_dump, o.validator, &o.bytes, &o.size),
    CALL(sysmaint_validator_load, o.spareRules, Kept{static_cast<const void*>(o.ruleBytes.data)}, o.ruleBytes.size)
        .then(DOES(sysmaint_validator_clear(o.spareRules))),
    CALL(sysmaint_validator_close, o.rules).from(DOES(sysmaint_validator_create(nullptr, nullptr, &o.rules)))
        .then(DOES(giveBack(o.rules))),

    CALL(sysmaint_ftp_create, &o.account, &o.madeFtp),
    CALL(sysmaint_ftp_connect, o.ftp, CancelEvent()).giving(10061),
    CALL(sysmaint_ftp_set_timeout, o.ftp, 5000U),
    CALL(sysmaint_ftp_close, o.madeFtp).from(DOES(sysmaint_ftp_create(&o.account, &o.madeFtp)))
        .then(DOES(giveBack(o.madeFtp))),
    CALL(sysmaint_item_file, o.path.c_str(), 0, &o.item),
    CALL(sysmaint_item_folder, L"%windir%", 1, &o.item),
    CALL(sysmaint_item_registry_key, kUser, kKey, Number{0, 2}, &o.item),
    CALL(sysmaint_item_registry_value, kUser, kKey, L"v", Number{0, 2}, &o.item),
    CALL(sysmaint_item_ftp_file, o.ftp, L"/x", &o.item),
    CALL(sysmaint_item_load, static_cast<const void*>(o.itemBytes.data), o.itemBytes.size, &o.item),
    CALL(sysmaint_item_keep, o.file, &o.item),
    CALL(sysmaint_item_close, o.item).from(DOES(sysmaint_item_keep(o.file, &o.item))).then(DOES(giveBack(o.item))),
    CALL(sysmaint_item_type, o.file, &o.number),
    CALL(sysmaint_item_path, o.file, &o.constText),
    CALL(sysmaint_item_level, (Typed{o.key, o.value}), &o.number),
    CALL(sysmaint_item_root, (Typed{o.key, o.file}), Kept{&o.handle}),
    CALL(sysmaint_item_is_link, (Typed{o.ftpItem, o.file}), &o.flag),
    CALL(sysmaint_item_value_name, (Typed{o.value, o.key}), &o.constText),
    CALL(sysmaint_item_value_type, (Typed{o.value, o.file}), &o.number),
    CALL(sysmaint_item_size, (Typed{o.file, o.folderItem}), &o.size),
    CALL(sysmaint_item_exists, o.file, &o.flag),
    CALL(sysmaint_item_has_containers, (Typed{o.folderItem, o.file}), CancelEvent(), &o.flag),
    CALL(sysmaint_item_matches, o.file, o.validator, &o.flag),
    CALL(sysmaint_item_read, (Typed{o.value, o.key}), &o.bytes, &o.size),
    CALL(sysmaint_item_write, (Typed{o.value, o.folderItem}), 3U, "x", 1U),
    CALL(sysmaint_item_create, (Typed{o.key, o.file})),
    CALL(sysmaint_item_share, o.folderItem, L"c shared", &o.shared),
    CALL(sysmaint_item_find, L"c shared", o.folder.path(), &o.item)
        .from(DOES(sysmaint_item_share(o.folderItem, L"c shared", &o.shared))).then(DOES(giveBack(o.shared))),
    CALL(sysmaint_item_unshare, o.shared).from(DOES(sysmaint_item_share(o.folderItem, L"c shared", &o.shared)))
        .then(DOES(giveBack(o.shared))),
    CALL(sysmaint_item_delete, o.item, CancelEvent())
        .from(DOES(o.folder.file(L"victim", 3); sysmaint_item_file(o.victim.c_str(), 0, &o.item)))
        .then(DOES(giveBack(o.item))),
    CALL(sysmaint_item_download, (Typed{o.ftpItem, o.file}), o.victim.c_str(), 0, CancelEvent()).giving(10061).coping(),
    CALL(sysmaint_item_upload, (Typed{o.ftpItem, o.key}), o.path.c_str(), CancelEvent()).giving(10061).coping(),
    CALL(sysmaint_item_dump, o.file, &o.bytes, &o.size),

    CALL(sysmaint_scan_create, Number{1, 4}, &o.madeScan),
    CALL(sysmaint_scan_add_folder, (Typed{o.scan, o.keyScan}), L"%windir%", 1).then(DOES(sysmaint_scan_clear(o.scan))),
    CALL(sysmaint_scan_add_key, (Typed{o.keyScan, o.scan}), kUser, kKey, Number{0, 2})
        .then(DOES(sysmaint_scan_clear(o.keyScan))),
    CALL(sysmaint_scan_add_ftp_folder, (Typed{o.ftpScan, o.scan}), &o.account, L"/")
        .then(DOES(sysmaint_scan_clear(o.ftpScan))),
    CALL(sysmaint_scan_clear, o.scan),
    CALL(sysmaint_scan_run, o.scan, Optional{&o.deep}, Optional{o.validator}, CancelEvent(), &onFound, nullptr)
        .from(DOES(sysmaint_scan_add_folder(o.scan, o.folder.path(), 0))).then(DOES(sysmaint_scan_clear(o.scan))),
    CALL(sysmaint_scan_close, o.madeScan).from(DOES(sysmaint_scan_create(1, &o.madeScan)))
        .then(DOES(giveBack(o.madeScan))),

    CALL(sysmaint_wiper_create, &o.madeWiper),
    CALL(sysmaint_wiper_wipe, o.wiper, Number{SYSMAINT_WIPE_FILE, 4}, o.victim.c_str(), &o.wiping,
         Optional{o.spareRules}, CancelEvent(), Optional{&onProgress}, nullptr)
        .from(DOES(o.folder.file(L"victim", 3))),
    CALL(sysmaint_wiper_wipe_entries, o.wiper, o.folder.path(), &o.entry, 1U, &o.wiping, CancelEvent(),
         Optional{&onProgress}, nullptr, nullptr)
        .from(DOES(o.folder.file(L"victim", 3))),
    CALL(sysmaint_wiper_needs_restart, o.wiper, &o.flag),
    CALL(sysmaint_wiper_clear_needs_restart, o.wiper),
    CALL(sysmaint_wiper_close, o.madeWiper).from(DOES(sysmaint_wiper_create(&o.madeWiper)))
        .then(DOES(giveBack(o.madeWiper))),
    CALL(sysmaint_wipe_file_table, L"Q:\\", CancelEvent(), Optional{&onProgress}, nullptr).giving(2),

    CALL(sysmaint_message_create, Number{3, 4}, Optional{L"c topic"}, 9U, &o.message),
    CALL(sysmaint_message_create_numbered, Number{3, 4}, 7U, 9U, &o.message),
    CALL(sysmaint_message_copy, o.named, &o.message),
    CALL(sysmaint_message_load, Number{3, 4}, static_cast<const void*>(o.messageBytes.data), o.messageBytes.size,
         &o.message),
    CALL(sysmaint_message_dump, o.named, &o.bytes, &o.size),
    CALL(sysmaint_message_get_info, o.named, &o.info),
    CALL(sysmaint_message_set_id, o.plain, 9U),
    CALL(sysmaint_message_set_data, (Typed{o.data, o.plain}), "x", 1U),
    CALL(sysmaint_message_data, (Typed{o.data, o.named}), &o.constBytes, &o.size),
    CALL(sysmaint_message_add_element, (Typed{o.array, o.data}), "x", 1U).then(DOES(o.oneElement())),
    CALL(sysmaint_message_element, (Typed{o.array, o.named}), 0U, &o.constBytes, &o.size),
    CALL(sysmaint_message_set_parameter, (Typed{o.named, o.array}), L"b", "x", 1U),
    CALL(sysmaint_message_set_number, (Typed{o.named, o.plain}), L"n", 3U),
    CALL(sysmaint_message_set_text, (Typed{o.named, o.data}), L"t", L"text"),
    CALL(sysmaint_message_parameter, (Typed{o.named, o.data}), L"n", &o.constBytes, &o.size),
    CALL(sysmaint_message_number, (Typed{o.named, o.data}), L"n", &o.number),
    CALL(sysmaint_message_text, (Typed{o.named, o.data}), L"t", &o.constText),
    CALL(sysmaint_message_parameter_at, (Typed{o.named, o.data}), 1U, &o.constText, &o.constBytes, &o.size),
    CALL(sysmaint_message_clear, o.array).then(DOES(o.oneElement())),
    CALL(sysmaint_message_close, o.message).from(DOES(sysmaint_message_copy(o.named, &o.message)))
        .then(DOES(giveBack(o.message))),

    CALL(sysmaint_pool_create, L"c other pool", &o.madePool),
    CALL(sysmaint_pool_open, L"c pool", &o.madePool),
    CALL(sysmaint_pool_close, o.madePool).from(DOES(sysmaint_pool_open(L"c pool", &o.madePool)))
        .then(DOES(giveBack(o.madePool))),
    CALL(sysmaint_pool_create_category, o.madePool, &o.category, &o.noThreads)
        .from(DOES(o.newPool())).then(DOES(giveBack(o.madePool))),
    CALL(sysmaint_pool_queue, o.madePool, &o.work, &onWork, nullptr, (Optional{o.named}), Number{0, 3},
         Optional{&o.handle})
        .from(DOES(o.queue())).then(DOES(giveBack(o.madePool))),
    CALL(sysmaint_pool_suspend, o.pool, &o.category).then(DOES(sysmaint_pool_resume(o.pool, &o.category))),
    CALL(sysmaint_pool_resume, o.pool, &o.category).from(DOES(sysmaint_pool_suspend(o.pool, &o.category))),
    CALL(sysmaint_pool_wait, o.madePool, &o.work, 0U, nullptr).from(DOES(o.queue())).then(DOES(giveBack(o.madePool)))
        .giving(258),
    CALL(sysmaint_pool_result, o.madePool, &o.work, &o.flag).from(DOES(o.queue())).then(DOES(giveBack(o.madePool)))
        .giving(170),
    CALL(sysmaint_pool_is_running, o.madePool, &o.work, &o.flag).from(DOES(o.queue()))
        .then(DOES(giveBack(o.madePool))),
    CALL(sysmaint_pool_cancel, o.madePool, Optional{&o.work}, Number{2, 3}).from(DOES(o.queue()))
        .then(DOES(giveBack(o.madePool))),

    CALL(sysmaint_topic_create, L"c other topic", &o.madeTopic),
    CALL(sysmaint_topic_open, L"c topic", &o.madeTopic),
    CALL(sysmaint_topic_name, o.topic, &o.constText),
    CALL(sysmaint_topic_close, o.madeTopic).from(DOES(sysmaint_topic_open(L"c topic", &o.madeTopic)))
        .then(DOES(giveBack(o.madeTopic))),
    CALL(sysmaint_topic_subscribe, o.topic, Number{0, 2}, &onMessage, nullptr, &o.subscription),
    CALL(sysmaint_topic_unsubscribe, o.subscription, kLong)
        .from(DOES(sysmaint_topic_subscribe(o.topic, 1, &onMessage, nullptr, &o.subscription)))
        .then(DOES(giveBack(o.subscription))),
    CALL(sysmaint_topic_send, o.topic, o.named, Optional{o.reply}, Optional{&o.three}, nullptr),
    CALL(sysmaint_topic_post, o.topic, o.named, Optional{&o.three})
        .then(DOES(sysmaint_topic_consume_all(o.topic, kLong))),
    CALL(sysmaint_topic_consume_all, o.topic, kLong),
    CALL(sysmaint_topic_stop_consumer, o.topic),

    CALL(sysmaint_hive_list, &onHive, nullptr),
    CALL(sysmaint_hive_list_dump, &o.bytes, &o.size),
    CALL(sysmaint_hive_analyze, CppHandle{o.defragmenter}, CancelEvent(), Optional{&onHive}, nullptr)
        .from(DOES(o.openDefragmenter())).then(DOES(o.closeDefragmenter())).giving(161).coping(),
    CALL(sysmaint_hive_results, CppHandle{o.defragmenter}, &onHive, nullptr)
        .from(DOES(o.openDefragmenter())).then(DOES(o.closeDefragmenter())),
    CALL(sysmaint_hive_results_dump, CppHandle{o.defragmenter}, &o.bytes, &o.size)
        .from(DOES(o.openDefragmenter())).then(DOES(o.closeDefragmenter())),
    CALL(sysmaint_hive_results_load, CppHandle{o.defragmenter}, static_cast<const void*>(o.hiveBytes.data),
         o.hiveBytes.size)
        .from(DOES(o.openDefragmenter())).then(DOES(o.closeDefragmenter())),

    CALL(sysmaint_offline_open, Optional{o.hiveFile.c_str()}, L"a", Number{2, 3}, &o.madeKey),
    CALL(sysmaint_offline_open_below, o.root, L"a", &o.madeKey),
    CALL(sysmaint_offline_path, o.below, &o.constText),
    CALL(sysmaint_offline_way, o.below, &o.number),
    CALL(sysmaint_offline_exists, o.below, &o.flag),
    CALL(sysmaint_offline_create, o.fresh, Optional{L"class"}).then(DOES(sysmaint_offline_delete(o.fresh))),
    CALL(sysmaint_offline_delete, o.fresh).from(DOES(sysmaint_offline_create(o.fresh, nullptr))),
    CALL(sysmaint_offline_information, o.below, &o.size, &o.text),
    CALL(sysmaint_offline_counts, o.root, &o.size, &o.keys, &o.keysBelow),
    CALL(sysmaint_offline_sub_keys, o.root, &o.text, &o.size),
    CALL(sysmaint_offline_values, o.below, &o.text, &o.size),
    CALL(sysmaint_offline_value_exists, o.below, L"v", &o.flag),
    CALL(sysmaint_offline_value_get, o.below, L"v", &o.number, &o.bytes, &o.size),
    CALL(sysmaint_offline_value_set, o.below, L"w", 3U, "x", 1U),
    CALL(sysmaint_offline_value_delete, o.below, L"w")
        .from(DOES(sysmaint_offline_value_set(o.below, L"w", 3, "x", 1))),
    CALL(sysmaint_offline_save, o.below, o.saved.c_str()).then(DOES(DeleteFileW(o.saved.c_str()))),
    CALL(sysmaint_offline_close, o.madeKey).from(DOES(sysmaint_offline_open_below(o.root, L"a", &o.madeKey)))
        .then(DOES(giveBack(o.madeKey))),

    CALL(sysmaint_restore_point_number, CppHandle{o.manager}, &o.restorePoint),
    CALL(sysmaint_snapshot_create, L"tool", L"a\" /r", nullptr, nullptr, nullptr).giving(31),
    CALL(sysmaint_snapshot_restore, Number{SYSMAINT_SNAPSHOT_BASELINE, 4}, L"tool", Optional{L"a\" /r"}, nullptr,
         nullptr, nullptr).giving(31),

    CALL(sysmaint_process_create, o.processes, nullptr, Kept{&o.handle}).then(DOES(CloseProcess(o.handle))),
    CALL(sysmaint_process_open, L"c process", Kept{&o.handle}).then(DOES(CloseProcess(o.handle))),
    CALL(sysmaint_thread_create, o.threads, Kept{&o.handle}).then(DOES(CloseThread(o.handle))),
    CALL(sysmaint_thread_open, L"c stranger", Kept{&o.handle}).giving(1168),
    CALL(sysmaint_module_create, o.modules, Kept{&o.handle}).then(DOES(CloseModule(o.handle))),
    CALL(sysmaint_lookup_add, CppHandle{o.lookup}, o.path.c_str(), 0).coping()
        .from(DOES(o.lookup = CreateHVK(L"c table", 77))).then(DOES(CloseHVK(o.lookup))),

    CALL(sysmaint_connection_pipe, L"c pipe", Number{0, 2}, Kept{&o.handle}).then(DOES(CloseConnection(o.handle))),
    CALL(sysmaint_connection_socket, L"c socket", Number{1, 2}, L"127.0.0.1", Number{0, 65536}, Kept{&o.handle})
        .then(DOES(CloseConnection(o.handle))),
    CALL(sysmaint_connection_send, CppHandle{o.client}, 0U, o.sent.data(), sizeof o.sent, kLong, CancelEvent()),
    CALL(sysmaint_connection_receive, CppHandle{o.accepted}, kLong, CancelEvent(), &o.number, &o.bytes, &o.size)
        .from(DOES(o.remakeClient();
                   sysmaint_connection_send(o.client, 0, o.sent.data(), sizeof o.sent, kLong, nullptr))),
    CALL(sysmaint_listener_create, L"c other listener", CppHandle{o.handle}, o.topic, Optional{&o.listening},
         Kept{&o.bytes})
        .from(DOES(sysmaint_connection_socket(L"c more", 1, L"127.0.0.1", 0, &o.handle)))
        .then(DOES(CloseMessageListener(o.bytes); CloseConnection(o.handle))),
    CALL(sysmaint_listener_get_state, CppHandle{o.listener}, &o.heard),
    CALL(sysmaint_reporter_create, CppHandle{o.handle}, o.reported, Optional{&o.reporting}, &o.madeReporter)
        .from(DOES(sysmaint_connection_socket(L"c more", 0, L"127.0.0.1", 1, &o.handle)))
        .then(DOES(CloseConnection(o.handle))),
    CALL(sysmaint_reporter_flush, o.reporter, 0U, CancelEvent()),
    CALL(sysmaint_reporter_get_state, o.reporter, &o.told),
    CALL(sysmaint_reporter_stop, o.reporter),
    CALL(sysmaint_reporter_close, o.madeReporter, kLong)
        .from(DOES(sysmaint_connection_socket(L"c more", 0, L"127.0.0.1", 1, &o.handle);
                   sysmaint_reporter_create(o.handle, o.reported, nullptr, &o.madeReporter)))
        .then(DOES(giveBack(o.madeReporter); CloseConnection(o.handle))),
};
// clang-format on

std::int32_t runRow(const Row<Objects>& row, Objects& objects, long failing = 0)
{
    row.before(objects);
    const std::int32_t code = row.run(objects, failing);
    row.after(objects);
    return code;
}
} // namespace

TEST(CFunctions, AreAllListedHere)
{
    std::set<std::string> names{"sysmaint_version", "sysmaint_version_text", "sysmaint_last_failure"};
    for (const Row<Objects>& row : kRows)
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
    EXPECT_EQ(names, (std::set<std::string>{C_FUNCTIONS}));
}

TEST(CFunctions, RefuseEachWrongArgumentAndChangeNothing)
{
    Objects objects;
    for (const Row<Objects>& row : kRows) {
        EXPECT_EQ(runRow(row, objects), row.code) << row.name;
        row.before(objects);
        row.refuse(objects);
        row.after(objects);
    }
}

// Each allocation of each function fails in turn: code 8, and nothing is kept.
TEST(CFunctions, GiveBackWhatTheyTakeAndSayWhenThereIsNoMemory)
{
    static const HeapWatch watch(sysmaintModule());
    Objects objects;
    for (const Row<Objects>& row : kRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(runRow(row, objects), row.code);
        // What a row keeps each time is a leak; what is made once and kept is not.
        auto balanced = testing::AssertionFailure();
        for (int attempt = 0; attempt < 2 && !balanced; ++attempt) {
            const ProcessCounts before = ProcessCounts::now();
            for (long failing = 1;; ++failing) {
                const std::int32_t code = runRow(row, objects, failing);
                if (!HeapWatch::hasFailed())
                    break;
                EXPECT_TRUE(code == ERROR_NOT_ENOUGH_MEMORY || (row.copes && code == row.code))
                    << code << ", taking " << failing;
            }
            balanced = before.isReachedAgain(100);
        }
        EXPECT_TRUE(balanced);
    }
    // What is open under a name already is only counted.
    for (const wchar_t* name : {L"c other pool", L"c new pool"})
        EXPECT_EQ(sysmaint_pool_open(name, &objects.madePool), ERROR_NOT_FOUND);
    EXPECT_EQ(sysmaint_topic_open(L"c other topic", &objects.madeTopic), ERROR_NOT_FOUND);
}

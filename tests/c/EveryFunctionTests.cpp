// Each function of the C interface with arguments that it takes: then each argument is wrong, and each
// allocation fails.

#include "c/Objects.h"

namespace {
// clang-format off
#define CALL(function, ...) \
    Row<Objects>(#function, function, [](Objects& o) { static_cast<void>(o); return std::make_tuple(__VA_ARGS__); })
#define DOES(...) []([[maybe_unused]] Objects& o) { __VA_ARGS__; }
#define SAYS(...) [](Objects& o) { return telling(__VA_ARGS__); }

const Row<Objects> kRows[] = {
    CALL(sysmaint_path_expand, L"%windir%\\x", &o.text).tells("C:\\windows\\x"),
    CALL(sysmaint_path_expand_utf8, "%sysmaint_c%\xC3\xB6", &o.narrow).tells("\xC3\xA4\xC3\xB6"),

    CALL(sysmaint_validator_create, optional(L"*.tmp"), optional(L"x"), &o.rules).tells("1+1"),
    CALL(sysmaint_validator_add, o.spareRules, Number{0, 2}, L"x", Number{0, 2}, Number{1, 2}, Number{1, 2})
        .leaves(SAYS(o.spareRules), "1+0").then(DOES(sysmaint_validator_clear(o.spareRules))),
    CALL(sysmaint_validator_clear, o.spareRules)
        .from(DOES(sysmaint_validator_add(o.spareRules, 0, L"x", 0, 0, 0))).leaves(SAYS(o.spareRules), "0+0")
        .then(DOES(sysmaint_validator_clear(o.spareRules))),
    CALL(sysmaint_validator_count, o.validator, Number{0, 2}, &o.number).tells("2"),
    CALL(sysmaint_validator_pattern, o.validator, Number{1, 2}, Number{0, 1}, &o.text).tells("b"),
    CALL(sysmaint_validator_rule, o.validator, Number{0, 2}, Number{1, 2}, &o.rule).tells("101"),
    CALL(sysmaint_validator_rule, o.validator, 1U, 0U, &o.rule).tells("15"),
    CALL(sysmaint_validator_dump, o.validator, &o.bytes, &o.size),
    CALL(sysmaint_validator_load, o.spareRules, kept(static_cast<const void*>(o.ruleBytes.data)), o.ruleBytes.size)
        .from(DOES(sysmaint_validator_add(o.spareRules, 0, L"x", 0, 0, 0))).leaves(SAYS(o.spareRules), "3+1")
        .then(DOES(sysmaint_validator_clear(o.spareRules))),
    CALL(sysmaint_validator_close, o.rules).from(DOES(sysmaint_validator_create(nullptr, nullptr, &o.rules))),

    CALL(sysmaint_ftp_create, &o.account, &o.madeFtp),
    CALL(sysmaint_ftp_connect, o.ftp, CancelEvent()).giving(10061),
    CALL(sysmaint_ftp_set_timeout, o.ftp, 5000U),
    CALL(sysmaint_ftp_close, o.madeFtp).from(DOES(sysmaint_ftp_create(&o.account, &o.madeFtp))),
    CALL(sysmaint_item_file, o.path.c_str(), 0, &o.item).tells("2 \\file.tmp"),
    CALL(sysmaint_item_folder, L"%windir%", 1, &o.item).tells("1 C:\\windows"),
    CALL(sysmaint_item_registry_key, kUser, kKey, Number{0, 2}, &o.item)
        .tells("5 HKEY_CURRENT_USER\\Software\\sysmaint-c-table"),
    CALL(sysmaint_item_registry_value, kUser, kKey, L"v", Number{0, 2}, &o.item)
        .tells("6 HKEY_CURRENT_USER\\Software\\sysmaint-c-table\\v"),
    CALL(sysmaint_item_ftp_file, o.ftp, L"/x", &o.item).tells("3 ftp://127.0.0.1:1/x"),
    CALL(sysmaint_item_load, static_cast<const void*>(o.itemBytes.data), o.itemBytes.size, &o.item).tells("2 \\file.tmp"),
    CALL(sysmaint_item_keep, o.file, &o.item).tells("2 \\file.tmp"),
    CALL(sysmaint_item_close, o.item).from(DOES(sysmaint_item_keep(o.file, &o.item))),
    CALL(sysmaint_item_type, o.file, &o.number).tells("2"),
    CALL(sysmaint_item_path, o.file, &o.constText).tells("\\file.tmp"),
    CALL(sysmaint_item_level, typed(o.key, o.value), &o.number),
    CALL(sysmaint_item_root, typed(o.key, o.file), kept(&o.handle)),
    CALL(sysmaint_item_is_link, typed(o.ftpItem, o.file), &o.flag),
    CALL(sysmaint_item_value_name, typed(o.value, o.key), &o.constText).tells("v"),
    CALL(sysmaint_item_value_type, typed(o.value, o.file), &o.number).tells("3"),
    CALL(sysmaint_item_size, typed(o.file, o.folderItem), &o.size).tells("3"),
    CALL(sysmaint_item_size, o.value, &o.size).tells("2"),
    CALL(sysmaint_item_exists, o.file, &o.flag).tells("1"),
    CALL(sysmaint_item_has_containers, typed(o.folderItem, o.file), CancelEvent(), &o.flag).tells("0"),
    CALL(sysmaint_item_matches, o.file, o.validator, &o.flag).tells("1"),
    CALL(sysmaint_item_matches, o.value, o.validator, &o.flag).tells("0"),
    CALL(sysmaint_item_read, typed(o.value, o.key), &o.bytes, &o.size).tells("xy,2"),
    CALL(sysmaint_item_write, typed(o.value, o.folderItem), 4U, "abcd", 4U),
    CALL(sysmaint_item_value_type, o.value, &o.number).tells("4"),
    CALL(sysmaint_item_write, o.file, 0U, "abcd", 4U),
    CALL(sysmaint_item_read, o.item, &o.bytes, &o.size)
        .from(DOES(sysmaint_item_file(o.path.c_str(), 0, &o.item))).tells("abcd,4"),
    CALL(sysmaint_item_create, typed(o.key, o.file)),
    CALL(sysmaint_item_share, o.folderItem, L"c shared", &o.shared),
    CALL(sysmaint_item_find, L"c shared", o.folder.path(), &o.item)
        .from(DOES(sysmaint_item_share(o.folderItem, L"c shared", &o.shared))),
    CALL(sysmaint_item_unshare, o.shared).from(DOES(sysmaint_item_share(o.folderItem, L"c shared", &o.shared))),
    CALL(sysmaint_item_delete, o.item, CancelEvent())
        .from(DOES(o.folder.file(L"victim", 3); sysmaint_item_file(o.victim.c_str(), 0, &o.item)))
        .leaves(SAYS(Folder::isThere(o.victim)), "0"),
    CALL(sysmaint_item_delete, o.item, nullptr)
        .from(DOES(sysmaint_item_registry_key(kUser, kBelow, 0, &o.item); sysmaint_item_create(o.item)))
        .then(DOES(RegDeleteKeyW(HKEY_CURRENT_USER, kBelow)))
        .leaves(SAYS((sysmaint_item_exists(o.item, &o.flag), o.flag)), "0"),
    CALL(sysmaint_item_delete, o.item, nullptr) // a value, whose key stays
        .from(DOES(RegSetKeyValueW(HKEY_CURRENT_USER, kBelow, L"v", REG_BINARY, "x", 1);
                   sysmaint_item_registry_value(kUser, kBelow, L"v", 0, &o.item)))
        .then(DOES(RegDeleteKeyW(HKEY_CURRENT_USER, kBelow)))
        .leaves(SAYS((sysmaint_item_exists(o.item, &o.flag), 10 * o.flag + RegDeleteKeyW(HKEY_CURRENT_USER, kBelow))), "0"),
    CALL(sysmaint_item_download, typed(o.ftpItem, o.file), o.victim.c_str(), 0, CancelEvent()).giving(10061).coping(),
    CALL(sysmaint_item_upload, typed(o.ftpItem, o.key), o.path.c_str(), CancelEvent()).giving(10061).coping(),
    CALL(sysmaint_item_dump, o.file, &o.bytes, &o.size),

    CALL(sysmaint_scan_create, Number{1, 4}, &o.madeScan),
    CALL(sysmaint_scan_add_folder, typed(o.scan, o.keyScan), L"%windir%", 1).then(DOES(sysmaint_scan_clear(o.scan))),
    CALL(sysmaint_scan_add_key, typed(o.keyScan, o.scan), kUser, kKey, Number{0, 2})
        .then(DOES(sysmaint_scan_clear(o.keyScan))),
    CALL(sysmaint_scan_add_ftp_folder, typed(o.ftpScan, o.scan), &o.account, L"/")
        .then(DOES(sysmaint_scan_clear(o.ftpScan))),
    CALL(sysmaint_scan_clear, o.scan),
    CALL(sysmaint_scan_run, o.scan, optional(&o.deep), optional(o.validator), CancelEvent(), &onFound, nullptr)
        .from(DOES(sysmaint_scan_add_folder(o.scan, o.folder.path(), 0))).then(DOES(sysmaint_scan_clear(o.scan))),
    CALL(sysmaint_scan_run, o.keyScan, nullptr, optional(static_cast<sysmaint_validator*>(nullptr)), nullptr, &onFound,
         optional(static_cast<void*>(&o.found)))
        .from(DOES(o.found.clear(); sysmaint_scan_add_key(o.keyScan, kUser, kKey, 0)))
        .then(DOES(sysmaint_scan_clear(o.keyScan)))
        .leaves(SAYS(o.found.c_str()), "HKEY_CURRENT_USER\\Software\\sysmaint-c-table\\v"),
    CALL(sysmaint_scan_close, o.madeScan).from(DOES(sysmaint_scan_create(1, &o.madeScan))),

    CALL(sysmaint_wiper_create, &o.madeWiper),
    CALL(sysmaint_wiper_wipe, o.wiper, Number{SYSMAINT_WIPE_FILE, 4}, o.victim.c_str(), &o.wiping,
         optional(o.spareRules), CancelEvent(), optional(ignore), nullptr).from(DOES(o.folder.file(L"victim", 3))),
    CALL(sysmaint_wiper_wipe_entries, o.wiper, o.folder.path(), &o.entry, 1U, &o.wiping, CancelEvent(),
         optional(ignore), nullptr, nullptr).from(DOES(o.folder.file(L"victim", 3))),
    CALL(sysmaint_wiper_needs_restart, o.wiper, &o.flag),
    CALL(sysmaint_wiper_clear_needs_restart, o.wiper),
    CALL(sysmaint_wiper_close, o.madeWiper).from(DOES(sysmaint_wiper_create(&o.madeWiper))),
    CALL(sysmaint_wipe_file_table, L"Q:\\", CancelEvent(), optional(ignore), nullptr).giving(2),

    CALL(sysmaint_message_create, Number{3, 4}, optional(L"c topic"), 9U, &o.message).tells("39 c topic"),
    CALL(sysmaint_message_create_numbered, Number{3, 4}, 7U, 9U, &o.message).tells("39 7"),
    CALL(sysmaint_message_copy, o.named, &o.message).tells("39 c topic 3"),
    CALL(sysmaint_message_load, Number{3, 4}, static_cast<const void*>(o.messageBytes.data), o.messageBytes.size,
         &o.message).tells("39 c topic 3"),
    CALL(sysmaint_message_dump, o.named, &o.bytes, &o.size),
    CALL(sysmaint_message_get_info, o.named, &o.info).tells("39 c topic"),
    CALL(sysmaint_message_set_id, o.plain, 8U).leaves(SAYS(o.plain), "8 c topic"),
    CALL(sysmaint_message_set_data, typed(o.data, o.plain), "x", 1U),
    CALL(sysmaint_message_data, typed(o.data, o.named), &o.constBytes, &o.size).tells("x,1"),
    CALL(sysmaint_message_add_element, typed(o.array, o.data), "x", 1U).then(DOES(o.oneElement())),
    CALL(sysmaint_message_element, typed(o.array, o.named), 0U, &o.constBytes, &o.size).tells("x,1"),
    CALL(sysmaint_message_set_parameter, typed(o.named, o.array), L"b", "xyz", 3U),
    CALL(sysmaint_message_set_number, typed(o.named, o.plain), L"n", 3U),
    CALL(sysmaint_message_set_text, typed(o.named, o.data), L"t", L"text"),
    CALL(sysmaint_message_parameter, typed(o.named, o.data), L"b", &o.constBytes, &o.size).tells("xyz,3"),
    CALL(sysmaint_message_number, typed(o.named, o.data), L"n", &o.number).tells("3"),
    CALL(sysmaint_message_text, typed(o.named, o.data), L"t", &o.constText).tells("text"),
    CALL(sysmaint_message_parameter_at, typed(o.named, o.data), 0U, &o.constText, &o.constBytes, &o.size).tells("b,xyz,3"),
    CALL(sysmaint_message_clear, o.array)
        .leaves(SAYS(sysmaint_message_element(o.array, 0, &o.constBytes, &o.size)), "259").then(DOES(o.oneElement())),
    CALL(sysmaint_message_clear, o.message).from(DOES(sysmaint_message_copy(o.named, &o.message)))
        .leaves(SAYS(o.message), "39 c topic"),
    CALL(sysmaint_message_close, o.message).from(DOES(sysmaint_message_copy(o.named, &o.message))),

    CALL(sysmaint_pool_create, L"c other pool", &o.madePool),
    CALL(sysmaint_pool_open, L"c pool", &o.madePool),
    CALL(sysmaint_pool_close, o.madePool).from(DOES(sysmaint_pool_open(L"c pool", &o.madePool))),
    CALL(sysmaint_pool_create_category, o.madePool, &o.category, &o.noThreads).from(DOES(o.madePool = make(sysmaint_pool_create, L"c new pool"))),
    CALL(sysmaint_pool_queue, o.madePool, &o.work, ignore, nullptr, optional(o.named), Number{0, 3},
         optional(&o.handle)).from(DOES(o.queue())),
    CALL(sysmaint_pool_suspend, o.pool, &o.category).then(DOES(sysmaint_pool_resume(o.pool, &o.category))),
    CALL(sysmaint_pool_resume, o.pool, &o.category).from(DOES(sysmaint_pool_suspend(o.pool, &o.category))),
    CALL(sysmaint_pool_wait, o.madePool, &o.work, 0U, nullptr).from(DOES(o.queue())).giving(258),
    CALL(sysmaint_pool_result, o.madePool, &o.work, &o.flag).from(DOES(o.queue())).giving(170),
    CALL(sysmaint_pool_is_running, o.madePool, &o.work, &o.flag).from(DOES(o.queue())),
    CALL(sysmaint_pool_cancel, o.madePool, optional(&o.work), Number{2, 3}).from(DOES(o.queue())),

    CALL(sysmaint_topic_create, L"c other topic", &o.madeTopic),
    CALL(sysmaint_topic_open, L"c topic", &o.madeTopic),
    CALL(sysmaint_topic_name, o.topic, &o.constText).tells("c topic"),
    CALL(sysmaint_topic_close, o.madeTopic).from(DOES(sysmaint_topic_open(L"c topic", &o.madeTopic))),
    CALL(sysmaint_topic_subscribe, o.topic, Number{0, 2}, ignore, nullptr, &o.subscription),
    CALL(sysmaint_topic_unsubscribe, o.subscription, kLong)
        .from(DOES(sysmaint_topic_subscribe(o.topic, 1, ignore, nullptr, &o.subscription))),
    CALL(sysmaint_topic_send, o.topic, o.named, optional(o.reply), optional(&o.three), nullptr),
    CALL(sysmaint_topic_post, o.topic, o.named, optional(&o.three))
        .then(DOES(sysmaint_topic_consume_all(o.topic, kLong))),
    CALL(sysmaint_topic_consume_all, o.topic, kLong),
    CALL(sysmaint_topic_stop_consumer, o.topic),

    CALL(sysmaint_hive_list, ignore, nullptr),
    CALL(sysmaint_hive_list_dump, &o.bytes, &o.size),
    CALL(sysmaint_hive_analyze, CppHandle{o.defragmenter}, CancelEvent(), optional(ignore), nullptr)
        .from(DOES(o.openDefragmenter())).then(DOES(o.closeDefragmenter())).giving(161).coping(),
    CALL(sysmaint_hive_results, CppHandle{o.defragmenter}, ignore, nullptr)
        .from(DOES(o.openDefragmenter())).then(DOES(o.closeDefragmenter())),
    CALL(sysmaint_hive_results_dump, CppHandle{o.defragmenter}, &o.bytes, &o.size)
        .from(DOES(o.openDefragmenter())).then(DOES(o.closeDefragmenter())),
    CALL(sysmaint_hive_results_load, CppHandle{o.defragmenter}, static_cast<const void*>(o.hiveBytes.data),
         o.hiveBytes.size).from(DOES(o.openDefragmenter())).then(DOES(o.closeDefragmenter())),

    CALL(sysmaint_offline_open, optional(o.hiveFile.c_str()), L"a", Number{2, 3}, &o.madeKey).tells("a"),
    CALL(sysmaint_offline_open_below, o.root, L"a", &o.madeKey).tells("a"),
    CALL(sysmaint_offline_path, o.below, &o.constText).tells("a\\b"),
    CALL(sysmaint_offline_way, o.below, &o.number).tells("2"),
    CALL(sysmaint_offline_exists, o.below, &o.flag).tells("1"),
    CALL(sysmaint_offline_create, o.fresh, optional(L"class"))
        .leaves(SAYS((sysmaint_offline_exists(o.fresh, &o.flag), o.flag)), "1").then(DOES(sysmaint_offline_delete(o.fresh))),
    CALL(sysmaint_offline_delete, o.fresh).from(DOES(sysmaint_offline_create(o.fresh, nullptr)))
        .leaves(SAYS((sysmaint_offline_exists(o.fresh, &o.flag), o.flag)), "0"),
    CALL(sysmaint_offline_information, o.fresh, &o.size, &o.text)
        .from(DOES(sysmaint_offline_delete(o.fresh); sysmaint_offline_create(o.fresh, L"class"))).then(DOES(sysmaint_offline_delete(o.fresh)))
        .leaves(SAYS(std::to_wstring(o.size != 0).append(o.text).c_str()), "1class"),
    CALL(sysmaint_offline_counts, o.root, &o.size, &o.keys, &o.keysBelow).tells("1,0,2"),
    CALL(sysmaint_offline_sub_keys, o.root, &o.text, &o.size).tells("a,1"),
    CALL(sysmaint_offline_values, o.below, &o.text, &o.size).tells("v,1"),
    CALL(sysmaint_offline_value_exists, o.below, L"V", &o.flag).tells("1"),
    CALL(sysmaint_offline_value_get, o.below, L"v", &o.number, &o.bytes, &o.size).tells("4,ABCD,4"),
    CALL(sysmaint_offline_value_set, o.below, L"w", 3U, "x", 1U),
    CALL(sysmaint_offline_value_get, o.below, L"w", &o.number, &o.bytes, &o.size).tells("3,x,1"),
    CALL(sysmaint_offline_value_set, o.below, L"w", 3U, nullptr, 0U),
    CALL(sysmaint_offline_value_delete, o.below, L"w")
        .from(DOES(sysmaint_offline_value_set(o.below, L"w", 3, "x", 1)))
        .leaves(SAYS((sysmaint_offline_value_exists(o.below, L"w", &o.flag), o.flag)), "0"),
    CALL(sysmaint_offline_save, o.below, o.saved.c_str()).then(DOES(DeleteFileW(o.saved.c_str())))
        .leaves(SAYS((sysmaint_offline_open(o.saved.c_str(), L"a\\b", 2, &o.madeKey), o.isThereAndClosed())), "1"),
    CALL(sysmaint_offline_save, o.madeKey, o.saved.c_str()).from(DOES(o.openBelowClosed())) // the hive is still there
        .then(DOES(DeleteFileW(o.saved.c_str()))),
    CALL(sysmaint_offline_close, o.madeKey).from(DOES(sysmaint_offline_open_below(o.root, L"a", &o.madeKey))),

    CALL(sysmaint_restore_point_number, CppHandle{o.manager}, &o.restorePoint).tells("0"),
    CALL(sysmaint_snapshot_create, L"tool", L"a\" /r", nullptr, nullptr, nullptr).giving(31),
    CALL(sysmaint_snapshot_restore, Number{SYSMAINT_SNAPSHOT_BASELINE, 4}, L"tool", optional(L"a\" /r"), nullptr,
         nullptr, nullptr).giving(31),

    CALL(sysmaint_process_create, o.processes, nullptr, kept(&o.handle)).leaves(SAYS(CloseProcess(o.handle)), "1"),
    CALL(sysmaint_process_open, L"c process", kept(&o.handle))
        .leaves(SAYS((o.handle == o.process) + CloseProcess(o.handle)), "2"),
    CALL(sysmaint_thread_create, o.threads, kept(&o.handle)).leaves(SAYS(CloseThread(o.handle)), "1"),
    CALL(sysmaint_thread_open, L"c stranger", kept(&o.handle)).giving(1168),
    CALL(sysmaint_module_create, o.modules, kept(&o.handle)).leaves(SAYS(CloseModule(o.handle)), "1"),
    CALL(sysmaint_lookup_add, CppHandle{o.lookup}, o.path.c_str(), 0).coping()
        .from(DOES(o.lookup = CreateHVK(L"c table", 77))).then(DOES(CloseHVK(o.lookup))),

    CALL(sysmaint_connection_pipe, L"c pipe", Number{0, 2}, kept(&o.handle)).then(DOES(CloseConnection(o.handle))),
    CALL(sysmaint_connection_socket, L"c socket", Number{1, 2}, L"127.0.0.1", Number{0, 65536}, kept(&o.handle))
        .then(DOES(CloseConnection(o.handle))),
    CALL(sysmaint_connection_send, CppHandle{o.client}, 0U, o.sent.data(), sizeof o.sent, kLong, CancelEvent()),
    CALL(sysmaint_connection_receive, CppHandle{o.accepted}, kLong, CancelEvent(), &o.number, &o.bytes, &o.size)
        .from(DOES(o.remakeClient();
                   sysmaint_connection_send(o.client, 0, o.sent.data(), sizeof o.sent, kLong, nullptr)))
        .leaves(SAYS(o.number == 0 && o.size == 12 && std::memcmp(o.bytes, o.sent.data(), 12) == 0), "1"),
    CALL(sysmaint_listener_create, L"c other listener", CppHandle{o.handle}, o.topic, optional(&o.listening),
         kept(&o.bytes)).from(DOES(sysmaint_connection_socket(L"c more", 1, L"127.0.0.1", 0, &o.handle)))
        .then(DOES(CloseMessageListener(o.bytes); CloseConnection(o.handle))),
    CALL(sysmaint_listener_get_state, CppHandle{o.listener}, &o.heard),
    CALL(sysmaint_reporter_create, CppHandle{o.handle}, o.reported, optional(&o.reporting), &o.madeReporter)
        .from(DOES(sysmaint_connection_socket(L"c more", 0, L"127.0.0.1", 1, &o.handle)))
        .then(DOES(CloseConnection(o.handle))),
    CALL(sysmaint_reporter_flush, o.reporter, 0U, CancelEvent()),
    CALL(sysmaint_reporter_get_state, o.reporter, &o.told),
    CALL(sysmaint_reporter_stop, o.reporter),
    CALL(sysmaint_reporter_close, o.madeReporter, kLong)
        .from(DOES(sysmaint_connection_socket(L"c more", 0, L"127.0.0.1", 1, &o.handle);
                   sysmaint_reporter_create(o.handle, o.reported, nullptr, &o.madeReporter)))
        .then(DOES(CloseConnection(o.handle))),
};
// clang-format on

// Made once, after the others: what else is refused, and other ways to succeed.
constexpr sysmaint_work_key kScope{sizeof kScope, 3, L"category", L"work", 0, 0, nullptr};
constexpr sysmaint_work_key kNoWork{sizeof kNoWork, 1, L"category", nullptr, 0, 0, nullptr};
constexpr sysmaint_work_key kNoInstance{sizeof kNoInstance, 2, L"category", L"work", 0, 0, nullptr};
constexpr sysmaint_work_key kUnknown{sizeof kUnknown, 1, L"unknown", L"work", 0, 0, nullptr};
constexpr sysmaint_scan_options kTooDeep{sizeof kTooDeep, 0x10000};
constexpr sysmaint_wipe_options kNoMethod{sizeof kNoMethod, 0, 1, 0, 3};

// clang-format off
const Row<Objects> kFurther[] = {
    CALL(sysmaint_path_expand, L"%sysmaint-c-none%\\x", &o.text).giving(1168),
    CALL(sysmaint_path_expand_utf8, "%windir%\xFF", &o.narrow).giving(1113),
    CALL(sysmaint_validator_load, o.spareRules, o.ruleBytes.data, o.ruleBytes.size - 1).giving(30),
    CALL(sysmaint_validator_load, o.spareRules, o.more(o.ruleBytes), o.ruleBytes.size + 1).giving(13),
    CALL(sysmaint_validator_count, o.spareRules, 0U, &o.number).tells("0"),
    CALL(sysmaint_item_load, o.itemBytes.data, o.itemBytes.size - 1, &o.item).giving(30),
    CALL(sysmaint_item_load, o.itemBytes.data, 0U, &o.item).giving(30),
    CALL(sysmaint_item_load, o.itemBytes.data, o.itemBytes.size, &o.item) // no type
        .from(DOES(*static_cast<char*>(o.itemBytes.data) = 4)).giving(13),
    CALL(sysmaint_item_write, o.file, 1U, "x", 1U).giving(87), // a file has no type of data
    CALL(sysmaint_item_ftp_file, o.ftp, L"/../x", &o.item).giving(87),
    CALL(sysmaint_scan_run, o.scan, &kTooDeep, nullptr, nullptr, &onFound, nullptr).giving(87),
    CALL(sysmaint_wiper_wipe, o.wiper, SYSMAINT_WIPE_FILE, o.path.c_str(), &kNoMethod, nullptr, nullptr, nullptr,
         nullptr).giving(87).leaves(SAYS(Folder::isThere(o.path)), "1"),
    CALL(sysmaint_wiper_needs_restart, o.wiper, &o.flag).tells("0"),
    CALL(sysmaint_message_parameter_at, o.named, 3U, &o.constText, &o.constBytes, &o.size).giving(259),
    CALL(sysmaint_message_element, o.array, 1U, &o.constBytes, &o.size).giving(259),
    CALL(sysmaint_message_load, 0U, o.messageBytes.data, o.messageBytes.size, &o.message).giving(13),
    CALL(sysmaint_pool_wait, o.pool, &kScope, 0U, nullptr).giving(87),
    CALL(sysmaint_pool_wait, o.pool, &kNoWork, 0U, nullptr).giving(87),
    CALL(sysmaint_pool_wait, o.pool, &kNoInstance, 0U, nullptr).giving(87),
    CALL(sysmaint_pool_wait, o.pool, &kUnknown, 0U, nullptr).giving(1168),
    CALL(sysmaint_pool_queue, o.pool, &o.category, ignore, nullptr, nullptr, 0U, nullptr).giving(87),
    CALL(sysmaint_pool_queue, o.pool, &o.work, ignore, nullptr, o.data, 0U, nullptr).giving(120),
    CALL(sysmaint_pool_result, o.pool, &o.category, &o.flag).giving(87),
    CALL(sysmaint_pool_cancel, o.pool, nullptr, SYSMAINT_CANCEL_AND_WAIT).giving(87),
    CALL(sysmaint_pool_cancel, o.pool, nullptr, 0U),
    CALL(sysmaint_offline_open, nullptr, L"\\a", 2U, &o.madeKey).giving(123),
    CALL(sysmaint_snapshot_restore, SYSMAINT_SNAPSHOT_TIME, o.tool.c_str(), nullptr, nullptr, nullptr, nullptr).giving(87),
    CALL(sysmaint_snapshot_restore, SYSMAINT_SNAPSHOT_NAMED, o.tool.c_str(), nullptr, nullptr, nullptr, nullptr).giving(87),
    CALL(sysmaint_snapshot_restore, SYSMAINT_SNAPSHOT_NAMED, L"tool", nullptr, nullptr, L"name", nullptr).giving(31),
    CALL(sysmaint_snapshot_create, o.tool.c_str(), L"a\" /r", nullptr, nullptr, nullptr).giving(31)
        .leaves(SAYS(Folder::isThere(o.saved)), "0"),
    CALL(sysmaint_snapshot_restore, SYSMAINT_SNAPSHOT_BASELINE, o.tool.c_str(), nullptr, nullptr, nullptr, nullptr)
        .leaves(SAYS(DeleteFileW(o.saved.c_str())), "1"), // the tool ran
    CALL(sysmaint_snapshot_create, o.tool.c_str(), L"name", nullptr, nullptr, nullptr)
        .leaves(SAYS(DeleteFileW(o.saved.c_str())), "1"),
    CALL(sysmaint_process_create, o.processes, L"1@2", kept(&o.handle)).giving(87),
    CALL(sysmaint_connection_send, o.client, 6U, o.sent.data(), sizeof o.sent, kLong, nullptr).giving(13),
    CALL(sysmaint_connection_send, o.client, 0U, o.sent.data(), sizeof o.sent - 1, kLong, nullptr).giving(13),
    CALL(sysmaint_connection_send, o.client, 3U, o.sent.data(), sizeof o.sent, kLong, nullptr).giving(13),
    CALL(sysmaint_connection_receive, o.accepted, 0U, nullptr, &o.number, &o.bytes, &o.size)
        .from(DOES(o.remakeClient())).giving(258),
    CALL(sysmaint_listener_create, L"c", o.client, o.topic, nullptr, kept(&o.handle)).giving(1),
    CALL(sysmaint_lookup_add, o.lookup, o.path.c_str(), INT32_MIN).from(DOES(o.lookup = CreateHVK(L"c table", 77)))
        .then(DOES(CloseHVK(o.lookup))).giving(87),
};
// clang-format on
} // namespace

TEST(CFunctions, AreAllListedHere)
{
    std::set<std::string> names{"sysmaint_version", "sysmaint_version_text", "sysmaint_last_failure"};
    for (const Row<Objects>& row : kRows)
        names.insert(row.name);
    EXPECT_EQ(names, (std::set<std::string>{C_FUNCTIONS}));
}

TEST(CFunctions, RefuseEachWrongArgumentAndChangeNothing)
{
    Objects objects;
    for (const Row<Objects>& row : kRows) {
        EXPECT_EQ(row.run(objects), row.code) << row.name;
        row.before(objects);
        row.refuse(objects);
        row.finish(objects);
    }
    for (const Row<Objects>& row : kFurther)
        EXPECT_EQ(row.run(objects), row.code) << row.name;
}

// Each allocation of each function fails in turn: code 8, and nothing is kept.
TEST(CFunctions, GiveBackWhatTheyTakeAndSayWhenThereIsNoMemory)
{
    static const HeapWatch watch(sysmaintModule());
    Objects objects;
    for (const Row<Objects>& row : kRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.run(objects), row.code);
        // What a row keeps each time is a leak; what is made once and kept is not.
        auto balanced = testing::AssertionFailure();
        for (int attempt = 0; attempt < 2 && !balanced; ++attempt) {
            const ProcessCounts before = ProcessCounts::now();
            for (long failing = 1;; ++failing) {
                const std::int32_t code = row.run(objects, failing);
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
    // What could not be wiped without memory waits for the restart.
    std::wstring list(MAX_PATH, L'\0');
    list.resize(GetWindowsDirectoryW(list.data(), MAX_PATH));
    EXPECT_TRUE(DeleteFileW(list.append(L"\\ForceDelete.txt").c_str()));
}

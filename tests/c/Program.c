/* The C interface from C99: what the compiler takes, how structs and callbacks are laid out, and the functions
 * that are plain C themselves. Returns how many checks have failed. */
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include "c/sysmaint.h"

static int failures = 0;

static void check(int line, long code, long expected)
{
    if (code == expected)
        return;
    ++failures;
    printf("line %d: %ld instead of %ld\n", line, code, expected);
}
#define CHECK(call, expected) check(__LINE__, (long)(call), (long)(expected))

typedef struct Finds
{
    int count;
    uint64_t bytes;
    sysmaint_scan* scan;
} Finds;

static int32_t onFound(void* context, const sysmaint_found* found)
{
    Finds* finds = (Finds*)context;
    uint64_t size = 0;
    CHECK(found->size, sizeof *found);
    CHECK(found->kind, SYSMAINT_FOUND_LEAF);
    CHECK(sysmaint_item_size(found->item, &size), 0);
    finds->bytes += size;
    CHECK(sysmaint_scan_run(finds->scan, NULL, NULL, NULL, onFound, context), 170);
    return ++finds->count == 2 ? 4711 : 0;
}

static int32_t onProgress(void* context, const sysmaint_wipe_progress* progress)
{
    *(uint64_t*)context = progress->done;
    return 0;
}

static int32_t onWork(void* context, const sysmaint_work* work)
{
    uint32_t number = 0;
    const int32_t code = sysmaint_message_number(work->arguments, L"n", &number);
    *(uint32_t*)context = number + work->number;
    return code;
}

static int32_t onMessage(void* context, const sysmaint_delivery* delivery)
{
    (void)context;
    return sysmaint_message_set_text(delivery->reply, L"answer", delivery->has_value ? L"with" : L"without");
}

static void scanAndWipe(const wchar_t* folder)
{
    Finds finds = {0, 0, NULL};
    sysmaint_wiper* wiper = NULL;
    const sysmaint_wipe_options options = {sizeof options, SYSMAINT_WIPE_ZEROS, 1, 0, 3};
    uint64_t done = 0;
    wchar_t* path = NULL;
    int i;
    CHECK(FolderCreateTree(folder), 0);
    CHECK(sysmaint_wiper_create(&wiper), 0);
    for (i = 0; i < 3; ++i) {
        wchar_t name[] = L"file0";
        name[4] = (wchar_t)(L'0' + i);
        CHECK(PathCombinePartsW(folder, name, 1, &path), 0);
        CHECK(FileWriteAtomically(path, "abc", 3), 0);
        if (i < 2)
            utilsFreeMemory(path);
    }
    CHECK(sysmaint_scan_create(SYSMAINT_SCAN_FOLDERS, &finds.scan), 0);
    CHECK(sysmaint_scan_add_folder(finds.scan, folder, 0), 0);
    CHECK(sysmaint_scan_run(finds.scan, NULL, NULL, NULL, onFound, &finds), 4711);
    CHECK(finds.count, 2);
    CHECK(finds.bytes, 6);
    CHECK(sysmaint_scan_close(finds.scan), 0);
    CHECK(sysmaint_scan_close(finds.scan), 6);
    CHECK(sysmaint_wiper_wipe(wiper, SYSMAINT_WIPE_FILE, path, &options, NULL, NULL, onProgress, &done), 0);
    CHECK(done, 3);
    CHECK(sysmaint_wiper_wipe(wiper, SYSMAINT_WIPE_FILE, path, &options, NULL, NULL, NULL, NULL), 2);
    CHECK(sysmaint_wiper_close(wiper), 0);
    utilsFreeMemory(path);
    CHECK(FolderDeleteTree(folder, NULL), 0);
}

static void workAndMessages(void)
{
    sysmaint_pool* pool = NULL;
    sysmaint_topic* topic = NULL;
    sysmaint_subscription* subscription = NULL;
    sysmaint_message* message = NULL;
    sysmaint_message* reply = NULL;
    sysmaint_work_key key = {sizeof key, SYSMAINT_SCOPE_WORK, NULL, NULL, 1, 40, NULL};
    uint32_t sum = 0;
    const uint32_t value = 1;
    const wchar_t* answer = NULL;
    CHECK(sysmaint_message_create(SYSMAINT_MESSAGE_PARAMETERS, L"t", 1, &message), 0);
    CHECK(sysmaint_message_create(SYSMAINT_MESSAGE_PARAMETERS, L"t", 1, &reply), 0);
    CHECK(sysmaint_message_set_number(message, L"n", 2), 0);
    CHECK(sysmaint_pool_create(L"c99", &pool), 0);
    CHECK(sysmaint_pool_queue(pool, &key, onWork, &sum, message, SYSMAINT_QUEUE_AT_END, NULL), 0);
    CHECK(sysmaint_pool_wait(pool, &key, SYSMAINT_INFINITE, NULL), 0);
    CHECK(sum, 42);
    CHECK(sysmaint_pool_close(pool), 0);
    CHECK(sysmaint_topic_create(L"c99", &topic), 0);
    CHECK(sysmaint_topic_subscribe(topic, SYSMAINT_ROLE_HANDLER, onMessage, NULL, &subscription), 0);
    CHECK(sysmaint_topic_send(topic, message, reply, &value, NULL), 0);
    CHECK(sysmaint_message_text(reply, L"answer", &answer), 0);
    CHECK(answer != NULL && wcscmp(answer, L"with") == 0, 1);
    CHECK(sysmaint_topic_unsubscribe(subscription, SYSMAINT_INFINITE), 0);
    CHECK(sysmaint_topic_close(topic), 0);
    CHECK(sysmaint_message_close(message), 0);
    CHECK(sysmaint_message_close(reply), 0);
}

int main(void)
{
    sysmaint_failure failure = {sizeof failure, 0, NULL, NULL};
    wchar_t* temp = NULL;
    CHECK(EnvironmentExpand(L"%TEMP%\\sysmaint-c99", 0xFFFFFFFF, &temp), 0);
    scanAndWipe(temp);
    utilsFreeMemory(temp);
    workAndMessages();
    CHECK(sysmaint_pool_close(NULL), 6);
    CHECK(sysmaint_last_failure(&failure), 0);
    CHECK(strcmp(failure.function, "sysmaint_pool_close"), 0);
    CHECK(BootExecuteIsScheduled(L"sysmaint-c99 is on no list"), 0);
    CHECK(WriteLogEntry(NULL, L"Disk Cleaner", L"nothing"), 6);
    return failures;
}

/* A program for the Visual Studio ABI, without a runtime library and without our header: what another compiler or
   language declares for itself. It is started in a folder with the files a.tmp, b.tmp and c.log, and ends with the line of
   the first expectation that failed. */

typedef unsigned short wchar;
typedef struct { unsigned int size, kind, type; int code; const wchar *path; void *item; } Found;
typedef struct { unsigned int size, depth; } Options;
typedef struct { unsigned int size; int code; const char *function; const wchar *text; } Failure;
typedef int (*Callback)(void *context, const Found *found);

#define SYSMAINT __declspec(dllimport)
SYSMAINT unsigned int sysmaint_version(void);
SYSMAINT int sysmaint_last_failure(Failure *failure);
SYSMAINT int sysmaint_validator_create(const wchar *filters, const wchar *ignores, void **validator);
SYSMAINT int sysmaint_validator_close(void *validator);
SYSMAINT int sysmaint_scan_create(unsigned int kind, void **scan);
SYSMAINT int sysmaint_scan_add_folder(void *scan, const wchar *path, int expand);
SYSMAINT int sysmaint_scan_run(void *scan, const Options *options, void *validator, void *cancel, Callback callback,
                               void *context);
SYSMAINT int sysmaint_scan_close(void *scan);
SYSMAINT long PathIsInsideW(const wchar *path, const wchar *folder, int *inside);
SYSMAINT long FormatByteSize(unsigned long long bytes, unsigned int decimals, wchar **text);
SYSMAINT void utilsFreeMemory(void *memory);
SYSMAINT void *CreateEventW(void *security, int manual, int signalled, const wchar *name);
SYSMAINT int SetEvent(void *event);
SYSMAINT __declspec(noreturn) void ExitProcess(unsigned int code);

#define EXPECT(condition) do { if (!(condition)) ExitProcess(__LINE__); } while (0)

enum { FOLDERS = 1, STOPPED = 4711, CANCELLED = 1223 };

struct State
{
    int calls;
    int stops;    /* the result of the first call */
    void *cancel; /* signalled in the first call */
    wchar last;   /* of the last path */
};

static int on_found(void *context, const Found *found)
{
    struct State *state = context;
    const wchar *end = found->path;
    if (found->size < sizeof(Found) || found->kind != 0)
        return 1;
    while (*end != 0)
        ++end;
    state->last = end[-1];
    if (++state->calls > 1)
        return 0;
    if (state->cancel)
        SetEvent(state->cancel);
    return state->stops;
}

static void calls_back_and_stops(void)
{
    void *scan = 0, *validator = 0;
    struct State all = {0}, some = {0}, stopping = {0}, cancelling = {0};
    const Options options = {sizeof(Options), 1};
    Failure failure = {sizeof(Failure), 0, 0, 0};
    EXPECT(sysmaint_scan_create(FOLDERS, &scan) == 0 && sysmaint_scan_add_folder(scan, L".", 0) == 0);
    EXPECT(sysmaint_validator_create(L"*.tmp", L"b.*", &validator) == 0);
    EXPECT(sysmaint_scan_run(scan, 0, 0, 0, on_found, &all) == 0 && all.calls == 3);
    EXPECT(sysmaint_scan_run(scan, &options, validator, 0, on_found, &some) == 0 && some.calls == 1 && some.last == 'p');
    EXPECT(sysmaint_validator_close(validator) == 0);

    stopping.stops = STOPPED;
    EXPECT(sysmaint_scan_run(scan, 0, 0, 0, on_found, &stopping) == STOPPED && stopping.calls == 1);
    cancelling.cancel = CreateEventW(0, 1, 0, 0);
    EXPECT(sysmaint_scan_run(scan, 0, 0, cancelling.cancel, on_found, &cancelling) == CANCELLED && cancelling.calls == 1);
    EXPECT(sysmaint_scan_run(scan, 0, 0, 0, 0, 0) == 87);
    EXPECT(sysmaint_last_failure(&failure) == 0 && failure.code == 87 && failure.function != 0 && failure.text != 0);
    EXPECT(sysmaint_scan_close(scan) == 0 && sysmaint_scan_close(scan) == 6);
}

static void has_the_utilities(void)
{
    wchar *text = 0;
    int inside = 0;
    EXPECT(PathIsInsideW(L"C:\\a\\b", L"c:\\A", &inside) == 0 && inside == 1);
    EXPECT(FormatByteSize(2048, 0, &text) == 0 && text[0] == '2');
    utilsFreeMemory(text);
}

void start(void)
{
    EXPECT(sysmaint_version() == VERSION);
    calls_back_and_stops();
    has_the_utilities();
    ExitProcess(0);
}

#include "Command.h"
#include "Console.h"

#include <algorithm>
#include <cwctype>
#include <iterator>
#include <memory>
#include <utility>

#include "core/win32/utils/scanengine/api.h"
#include "core/win32/utils/wiper/api.h"

namespace {
constexpr const wchar_t* kHelp =
    LR"(usage: sysmaint wipe file PATH... | tree FOLDER | free DRIVE | volume DRIVE
                [--method zeros|random|gutmann] [--passes N] [--filter TEXT] [--ignore TEXT] [--yes]

Overwrites data and deletes it. What it will do is shown first, and it asks before it begins.

  file     single files. One that cannot be opened waits for the restart.
  tree     a folder with everything in it. With --filter or --ignore only the files that these let
           through; then the folders stay. Links are removed, what they lead to is not touched.
  free     what deleted files left in a drive's free space
  volume   everything on a drive, which must not be in use

  --method   zeros (the default), random (text of letters and digits), gutmann (35 passes)
  --passes   how often, 1 to 1000; 1 is the default
  --filter, --ignore   as for 'sysmaint scan'
  --yes      do not ask

Drives' roots, the Windows folder and what leads to it or is in it are refused, and so is the volume that
Windows is on.

example: sysmaint wipe tree "C:\Temp\old reports" --method random --passes 3
)";

/// The counts of one run, shown while it goes on.
struct Run : WipeProgress
{
    static void show(WipeProgress* progress)
    {
        auto& run = *static_cast<Run*>(progress);
        if (!run.line.isDue())
            return;
        const ULONGLONG elapsed = std::max<ULONGLONG>(GetTickCount64() - run.begin, 1);
        const unsigned long long done = run.doneBefore + run.done;
        const unsigned long long total = std::max(run.doneBefore + run.total + run.toCome, done);
        const unsigned long long rate = done * 1000 / elapsed;
        const unsigned long long left = total - done;
        std::wstring text = std::to_wstring(total != 0 ? done * 100 / total : 0) + L" %, " +
                            formatBytes(done) + L" of " + formatBytes(total) + L", " + formatBytes(rate) +
                            L"/s";
        if (rate != 0)
            text += L", " + formatCount(left / rate) + L" s left";
        run.line.show(text);
    }

    ProgressLine line;
    ULONGLONG begin = 0;               // of the first call
    unsigned long long doneBefore = 0; // by earlier calls
    unsigned long long toCome = 0;     // for later calls
    unsigned long long files = 0;
    unsigned long long failed = 0;
    std::vector<std::wstring> waiting; // for the restart
};

struct Options
{
    std::uint32_t method = kWipeZeros;
    std::uint32_t passes = 1;
    SharedPtr<IScanValidator> validator; // without rules unless some are given
    bool hasRules = false;
    bool yes = false;
};

std::wstring lower(std::wstring text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](wchar_t c) { return std::towlower(c); });
    return text;
}

/// What Win32 takes a path for.
std::wstring systemPath(const std::wstring& path)
{
    std::wstring full(32768, L'\0');
    full.resize(GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
    while (full.size() > 3 && full.back() == L'\\')
        full.pop_back();
    return full.empty() ? path : full;
}

/// The path from its root on, with its names as they stand: Win32 would take "report." for "report", and one
/// of them is the wrong one to wipe.
std::wstring fullPath(const std::wstring& path)
{
    std::wstring plain = path;
    std::replace(plain.begin(), plain.end(), L'/', L'\\');
    if (plain.compare(0, 2, L"\\\\") == 0)
        return plain;
    const bool drive = plain.size() >= 2 && plain[1] == L':';
    std::wstring full = systemPath(drive ? plain.substr(0, 2) + (plain.substr(2, 1) == L"\\" ? L"\\" : L".")
                                   : plain.substr(0, 1) == L"\\" ? std::wstring(L"\\")
                                                                 : std::wstring(L"."));
    for (std::size_t at = drive ? 2 : 0; at < plain.size();) {
        const std::size_t end = std::min(plain.find(L'\\', at), plain.size());
        const std::wstring name = plain.substr(at, end - at);
        at = end + 1;
        if (name == L"..") {
            full.resize(full.find_last_of(L'\\'));
            if (full.size() == 2)
                full += L'\\';
        } else if (!name.empty() && name != L".") {
            if (full.back() != L'\\')
                full += L'\\';
            full += name;
        }
    }
    return full;
}

/// For the system's own calls: the very name that `fullPath` gave.
std::wstring literal(const std::wstring& full)
{
    return full.compare(0, 2, L"\\\\") == 0 ? full : L"\\\\?\\" + full;
}

std::wstring windowsFolder()
{
    wchar_t folder[MAX_PATH];
    return std::wstring(folder, GetWindowsDirectoryW(folder, MAX_PATH));
}

/// Where a path leads by whatever name: through short names, links, substituted drives. Of something that is
/// not there or cannot be opened the path itself.
std::wstring finalPath(const std::wstring& path)
{
    const HANDLE file = ::CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return path;
    std::wstring full(32768, L'\0');
    full.resize(GetFinalPathNameByHandleW(file, full.data(), static_cast<DWORD>(full.size()), 0));
    CloseHandle(file);
    return full.empty() ? path : full;
}

/// Whether a path is a symbolic link, a junction or a mount point.
bool isLink(const std::wstring& path)
{
    WIN32_FIND_DATAW data;
    const HANDLE search = FindFirstFileW(path.c_str(), &data);
    if (search == INVALID_HANDLE_VALUE)
        return false;
    FindClose(search);
    return (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (data.dwReserved0 == 0 || IsReparseTagNameSurrogate(data.dwReserved0)); // 0: cannot be told
}

bool isWithin(const std::wstring& path, const std::wstring& folder)
{
    return path == folder || path.compare(0, folder.size() + 1, folder + L"\\") == 0;
}

/// Refuses what nobody may mean, by whatever name.
void requireHarmless(const std::wstring& path)
{
    const auto plain = [](const std::wstring& any) {
        std::wstring full = lower(systemPath(any));
        if (full.compare(0, 4, L"\\\\?\\") == 0 || full.compare(0, 4, L"\\\\.\\") == 0)
            full.erase(0, 4);
        return full;
    };
    const std::wstring name = printable(path);
    // A link itself may be removed wherever it leads.
    const std::wstring named = plain(path);
    const std::wstring reached = isLink(path) ? named : plain(finalPath(path));
    const std::wstring windows[] = {plain(windowsFolder()), plain(finalPath(windowsFolder()))};
    for (const std::wstring& full : {named, reached}) {
        if (full.size() <= 3 && full.size() >= 2 && full[1] == L':')
            throw UsageError{name + L" is the root of a drive"};
        for (const std::wstring& folder : windows)
            if (isWithin(full, folder) || isWithin(folder, full))
                throw UsageError{name + L" is the Windows folder, leads to it or is in it"};
    }
}

std::wstring requireDrive(const std::wstring& word)
{
    const bool drive = (word.size() == 2 || (word.size() == 3 && word[2] == L'\\')) && word[1] == L':' &&
                       std::iswalpha(word[0]) != 0;
    if (!drive)
        throw UsageError{printable(word) + L" is not a drive such as D:"};
    return word.substr(0, 2) + L"\\";
}

/// Shows what is about to happen and asks. False: not wanted.
bool confirmed(const Options& options, const std::wstring& what)
{
    constexpr const wchar_t* kMethods[] = {L"", L"zeros", L"random text", L"the 35 passes of Gutmann"};
    messages().writeLine(what + L"; " + kMethods[options.method] + L", " + formatCount(options.passes) +
                         (options.passes == 1 ? L" time" : L" times"));
    messages().flush();
    if (options.yes)
        return true;
    const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    if (!GetConsoleMode(input, &mode))
        throw UsageError{L"there is nobody to ask; say --yes"};
    messages().write(L"This cannot be undone. Go on? Type yes: ");
    messages().flush();
    wchar_t answer[16] = {};
    DWORD length = 0;
    if (ReadConsoleW(input, answer, 15, &length, nullptr) && length >= 3 &&
        std::wstring_view(answer, 3) == L"yes" && (length == 3 || answer[3] <= L' '))
        return true;
    messages().writeLine(L"nothing was wiped");
    return false;
}

std::wstring formatFiles(unsigned long long count)
{
    return formatCount(count) + (count == 1 ? L" file" : L" files");
}

unsigned long long sizeOf(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
    return (static_cast<unsigned long long>(data.nFileSizeHigh) << 32U) | data.nFileSizeLow;
}

class Wipe
{
public:
    explicit Wipe(const Options& options) : m_options(options), m_wiper(DllGetWiper()) {}

    int file(const std::vector<std::wstring>& words)
    {
        std::vector<std::wstring> paths;
        for (const std::wstring& word : words) {
            requireHarmless(word);
            const std::wstring path = literal(paths.emplace_back(fullPath(word)));
            const DWORD attributes = GetFileAttributesW(path.c_str());
            if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
                throw UsageError{printable(word) + L" is a folder; say tree"};
            messages().writeLine(L"  " + printable(paths.back()));
            m_run.total += sizeOf(path) * m_options.passes;
        }
        if (!confirmed(m_options, L"wipe " + formatFiles(paths.size())))
            return kExitFailed;
        long result = ERROR_SUCCESS;
        for (const std::wstring& path : paths) {
            // A missing file is not to wait for the restart.
            const std::wstring target = literal(path);
            long code = GetFileAttributesW(target.c_str()) == INVALID_FILE_ATTRIBUTES
                            ? static_cast<long>(GetLastError())
                            : ERROR_SUCCESS;
            if (code == ERROR_SUCCESS) {
                code = call(kWipeFile, path, nullptr, m_options.passes);
                if (code == ERROR_SUCCESS && GetFileAttributesW(target.c_str()) == INVALID_FILE_ATTRIBUTES)
                    ++m_run.files;
                noteWaiting(path);
            }
            if (code == ERROR_CANCELLED)
                return finish(code);
            result = report(path, code, result);
        }
        return finish(result);
    }

    int tree(const std::wstring& folder)
    {
        requireHarmless(folder);
        const std::wstring root = fullPath(folder);
        const DWORD attributes = GetFileAttributesW(literal(root).c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            throw UsageError{printable(folder) + L" is no folder; say file"};
        if (!m_options.hasRules)
            m_stack.push_back({HeapStringW(root.c_str()), L"", true, false});
        // A link is removed, what it leads to is not touched.
        const long code = isLink(literal(root)) ? ERROR_SUCCESS : list(root);
        if (code != ERROR_SUCCESS)
            return finish(report(folder, code, code));
        showListed();
        if (!confirmed(m_options, L"wipe " + printable(root) + L": " + formatFiles(m_listedFiles) + L", " +
                                      formatBytes(m_listedBytes)))
            return kExitFailed;
        m_run.total = m_listedBytes * m_options.passes;
        return finish(walk(root));
    }

    int freeSpace(const std::wstring& drive)
    {
        ULARGE_INTEGER free{};
        if (!GetDiskFreeSpaceExW(drive.c_str(), nullptr, nullptr, &free))
            return finish(report(drive, static_cast<long>(GetLastError()), ERROR_SUCCESS));
        if (!confirmed(m_options, L"wipe the free space of " + drive + L", " + formatBytes(free.QuadPart)))
            return kExitFailed;
        // Each call raises its progress to the end, so each pass is a call.
        long code = ERROR_SUCCESS;
        for (std::uint32_t pass = 1; pass <= m_options.passes && code == ERROR_SUCCESS; ++pass) {
            m_run.doneBefore += std::exchange(m_run.done, 0);
            m_run.total = free.QuadPart;
            m_run.toCome = free.QuadPart * (m_options.passes - pass);
            code = call(kWipeFreeSpace, drive, nullptr, 1);
        }
        noteWaiting(drive + L"FreeSpaceFile.qmx");
        return finish(report(drive, code, ERROR_SUCCESS));
    }

    int volume(const std::wstring& drive)
    {
        if (lower(windowsFolder()).compare(0, 2, lower(drive), 0, 2) == 0)
            throw UsageError{L"Windows is on " + drive};
        ULARGE_INTEGER size{};
        if (!GetDiskFreeSpaceExW(drive.c_str(), nullptr, &size, nullptr))
            return finish(report(drive, static_cast<long>(GetLastError()), ERROR_SUCCESS));
        if (!confirmed(m_options, L"wipe EVERYTHING on " + drive + L", " + formatBytes(size.QuadPart)))
            return kExitFailed;
        m_run.total = size.QuadPart * m_options.passes;
        return finish(report(drive, call(kWipePartition, drive, nullptr, m_options.passes), ERROR_SUCCESS));
    }

private:
    long call(std::uint32_t kind, const std::wstring& path, DirectoryStack* stack, std::uint32_t passes)
    {
        if (!m_wiper)
            return ERROR_NOT_ENOUGH_MEMORY;
        if (m_run.begin == 0)
            m_run.begin = GetTickCount64();
        return m_wiper->Wipe(&Run::show, &m_run, kind, path.c_str(), stack, m_options.validator.get(),
                             m_options.method, passes, cancelEvent());
    }

    /// Fills the stack in the order of the scan, in which a folder comes before its content.
    long list(const std::wstring& root)
    {
        struct Lister : INotifyHandler
        {
            explicit Lister(Wipe& wipe) : owner(wipe) {}
            void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) override
            {
                const HeapStringW path = item->getPath();
                if (notification.getFirst() == kContainerFound) {
                    owner.m_stack.push_back({path, L"", true, owner.m_options.hasRules});
                    return;
                }
                const std::size_t slash = path.find_last_of(L'\\');
                owner.m_stack.push_back({path.substr(slash + 1), path.substr(0, slash), false, false});
                ++owner.m_listedFiles;
                if (const auto* file = dynamic_cast<const IFile*>(item.get()); file != nullptr)
                    owner.m_listedBytes += file->getSize();
            }
            Wipe& owner;
        } lister(*this);
        void* engine = CreateFileScanEngine(L"sysmaint wipe");
        if (engine == INVALID_HANDLE_VALUE)
            return static_cast<long>(GetLastError());
        ScanOptions options;
        options.depthGiven = 1;
        options.depth = 65535;
        long code = FSEngineRegisterHandler(engine, lister, kContainerFound, 0, 0);
        if (code == ERROR_SUCCESS)
            code = FSEngineRegisterHandler(engine, lister, kLeafFound, 0, 0);
        if (code == ERROR_SUCCESS)
            code = FSEngineAddPath(engine, root.c_str(), 0);
        if (code == ERROR_SUCCESS)
            code = FSEngineScan(engine, cancelEvent(), m_options.validator, options);
        CloseFileScanEngine(engine);
        return code;
    }

    /// The first of what will go, by name.
    void showListed() const
    {
        constexpr unsigned long long kMost = 20;
        unsigned long long shown = 0;
        for (const DirectoryStackEntry& entry : m_stack)
            if (!entry.isDirectory && shown++ < kMost)
                messages().writeLine(L"  " + printable(entry.directory + L"\\" + entry.path));
        if (shown > kMost)
            messages().writeLine(L"  and " + formatCount(shown - kMost) + L" more");
    }

    /// Goes on after an entry that fails, which then stays.
    long walk(const std::wstring& root)
    {
        long result = ERROR_SUCCESS;
        unsigned long long failedFiles = 0;
        while (!m_stack.empty()) {
            const long code = call(kWipeDirectoryStack, root, &m_stack, m_options.passes);
            if (code == ERROR_CANCELLED || m_stack.empty()) {
                result = code != ERROR_SUCCESS ? code : result;
                break;
            }
            if (code == ERROR_SUCCESS)
                continue;
            DirectoryStackEntry& top = m_stack.back();
            if (top.skip)
                return report(root, code, result);
            top.skip = true;
            failedFiles += top.isDirectory ? 0 : 1;
            const HeapStringW path = top.isDirectory ? top.path : top.directory + L"\\" + top.path;
            result = report(path.c_str(), code, result);
        }
        const auto left = static_cast<unsigned long long>(
            std::count_if(m_stack.begin(), m_stack.end(),
                          [](const DirectoryStackEntry& entry) { return !entry.isDirectory; }));
        m_run.files = m_listedFiles - failedFiles - left;
        return result;
    }

    void noteWaiting(const std::wstring& path)
    {
        if (m_wiper && m_wiper->getNeedsReboot() != 0)
            m_run.waiting.push_back(path);
        if (m_wiper)
            m_wiper->setNeedsReboot(0);
    }

    /// Says what went wrong with one thing; returns the code that the whole ends with.
    long report(const std::wstring& path, long code, long result)
    {
        if (code == ERROR_SUCCESS || code == ERROR_CANCELLED)
            return code == ERROR_SUCCESS ? result : code;
        m_run.line.clear();
        messages().writeLine(L"wipe: " + printable(path) + L": " + formatCode(code));
        ++m_run.failed;
        return code;
    }

    int finish(long code)
    {
        m_run.line.clear();
        for (const std::wstring& path : m_run.waiting)
            messages().writeLine(L"waits for the restart: " + printable(path));
        messages().writeLine((code == ERROR_CANCELLED ? L"cancelled; wiped so far: " : L"wiped ") +
                             formatFiles(m_run.files) + L", " + formatBytes(m_run.doneBefore + m_run.done) +
                             L" written, " + formatCount(m_run.failed) + L" failed, " +
                             formatCount(m_run.waiting.size()) + L" wait for the restart");
        if (code == ERROR_CANCELLED)
            return kExitCancelled;
        return code == ERROR_SUCCESS ? kExitDone : kExitFailed;
    }

    const Options& m_options;
    std::unique_ptr<IWiper> m_wiper;
    Run m_run;
    DirectoryStack m_stack;
    unsigned long long m_listedFiles = 0;
    unsigned long long m_listedBytes = 0;
};

int run(const std::vector<std::wstring>& words)
{
    const Arguments arguments(words, {{L"--method", true},
                                      {L"--passes", true},
                                      {L"--filter", true},
                                      {L"--ignore", true},
                                      {L"--yes", false}});
    if (arguments.operands().size() < 2)
        throw UsageError{L"wipe what? file, tree, free or volume, and which"};
    const std::wstring what = arguments.operands()[0];
    const std::vector<std::wstring> targets(arguments.operands().begin() + 1, arguments.operands().end());
    if (what != L"file" && targets.size() != 1)
        throw UsageError{L"one at a time, please"};

    Options options;
    const std::wstring method = arguments.value(L"--method", L"zeros");
    constexpr const wchar_t* kNames[] = {L"zeros", L"random", L"gutmann"};
    const auto* const named = std::find(std::begin(kNames), std::end(kNames), method);
    if (named == std::end(kNames))
        throw UsageError{L"--method takes zeros, random or gutmann"};
    options.method = kWipeZeros + static_cast<std::uint32_t>(named - std::begin(kNames));
    options.passes = arguments.number(L"--passes", 1, 1000).value_or(1);
    options.yes = arguments.has(L"--yes");
    options.hasRules = arguments.has(L"--filter") || arguments.has(L"--ignore");
    if (options.hasRules && what != L"file" && what != L"tree")
        throw UsageError{L"--filter and --ignore are for files and trees"};
    options.validator = SharedPtr<IScanValidator>(DllGetScanValidator(
        arguments.value(L"--filter", L"").c_str(), arguments.value(L"--ignore", L"").c_str()));
    if (!options.validator)
        throw UsageError{
            L"an entry of --filter or --ignore does not have exactly three digits after its ':'"};

    Wipe wipe(options);
    if (what == L"file")
        return wipe.file(targets);
    if (what == L"tree")
        return wipe.tree(targets[0]);
    if (what == L"free")
        return wipe.freeSpace(requireDrive(targets[0]));
    if (what == L"volume")
        return wipe.volume(requireDrive(targets[0]));
    throw UsageError{L"unknown: " + printable(what) + L"; file, tree, free or volume"};
}
} // namespace

const Command kWipeCommand = {L"wipe", L"overwrite and delete files, trees, free space, volumes", kHelp,
                              &run};

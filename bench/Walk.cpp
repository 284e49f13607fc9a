#include <windows.h>

#include <shlwapi.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>

#include "Bench.h"
#include "CountingHandler.h"
#include "core/win32/utils/scanengine/include/File.h"
#include "exports/c/Finder.h"

namespace {
/// Checks the memory in use from time to time.
struct MemoryWatcher : CountingHandler
{
    void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) override
    {
        CountingHandler::onNotify(notification, item);
        if (count % 1000 == 0)
            peak = std::max(peak, privateBytes());
    }
    unsigned long long peak = 0;
};

constexpr int kParts = 3;

/// A tree of three equal parts with 100 files per folder, created once and kept for the next run.
class Tree
{
public:
    explicit Tree(long filesInPart)
        : m_files(filesInPart),
          m_root(temporaryFolder() + L"sysmaint-bench-tree-" + std::to_wstring(filesInPart))
    {
    }

    void make() const
    {
        if (GetFileAttributesW(m_root.c_str()) != INVALID_FILE_ATTRIBUTES)
            return;
        const std::wstring unfinished = m_root + L".new"; // also what an interrupted run has left
        CreateDirectoryW(unfinished.c_str(), nullptr);
        for (int part = 0; part < kParts; ++part)
            makePart(unfinished + L"\\part" + std::to_wstring(part));
        require(MoveFileW(unfinished.c_str(), m_root.c_str()), "the tree cannot be made");
    }

    [[nodiscard]] const std::wstring& whole() const { return m_root; }
    [[nodiscard]] std::wstring part() const { return m_root + L"\\part0"; }
    [[nodiscard]] unsigned long long folders() const
    {
        return static_cast<unsigned long long>(m_files + 99) / 100;
    }
    [[nodiscard]] unsigned long long entries() const
    {
        return static_cast<unsigned long long>(m_files) + folders();
    }
    [[nodiscard]] unsigned long long wholeEntries() const { return kParts * (entries() + 1); }

private:
    void makePart(const std::wstring& part) const
    {
        CreateDirectoryW(part.c_str(), nullptr);
        for (long file = 0; file < m_files; ++file) {
            const std::wstring folder = part + L"\\folder" + std::to_wstring(file / 100);
            if (file % 100 == 0)
                CreateDirectoryW(folder.c_str(), nullptr);
            const std::wstring path =
                folder + L"\\document " + std::to_wstring(file) + (file % 3 == 0 ? L".tmp" : L".dat");
            const HANDLE made =
                CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
            require(made != INVALID_HANDLE_VALUE, "the tree cannot be made");
            CloseHandle(made);
        }
    }

    long m_files;
    std::wstring m_root;
};

template <class Visit>
void bareWalk(const std::wstring& folder, Visit&& visit)
{
    WIN32_FIND_DATAW entry;
    const HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE)
        return;
    do {
        if (std::wcscmp(entry.cFileName, L".") == 0 || std::wcscmp(entry.cFileName, L"..") == 0)
            continue;
        const bool isFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        visit(entry.cFileName, isFolder);
        if (isFolder)
            bareWalk(folder + L"\\" + entry.cFileName, visit);
    } while (FindNextFileW(search, &entry));
    FindClose(search);
}

/// Our walk over a tree; `filters` and `ignores` as DllGetScanValidator takes them.
void ourWalk(const std::wstring& root, const wchar_t* filters, const wchar_t* ignores,
             CountingHandler& counter, unsigned long long expected)
{
    void* engine = CreateFileScanEngine(L"bench");
    FSEngineRegisterHandler(engine, counter, kContainerFound, 0, 0);
    FSEngineRegisterHandler(engine, counter, kLeafFound, 0, 0);
    FSEngineAddPath(engine, root.c_str(), 0);
    ScanOptions options;
    options.depthGiven = 1;
    options.depth = 65535;
    const SharedPtr<IScanValidator> validator(DllGetScanValidator(filters, ignores));
    require(FSEngineScan(engine, nullptr, validator, options) == ERROR_SUCCESS, "the walk failed");
    require(counter.count == expected, "the walk did not find what is there");
    FSEngineClear(engine);
    CloseFileScanEngine(engine);
}

std::int32_t countFound(void* context, const sysmaint_found* /*found*/)
{
    ++*static_cast<unsigned long long*>(context);
    return ERROR_SUCCESS;
}

std::function<void()> countingWalk(const std::wstring& root, const std::wstring& filters,
                                   const std::wstring& ignores, unsigned long long expected)
{
    return [=] {
        CountingHandler counter;
        ourWalk(root, filters.c_str(), ignores.c_str(), counter, expected);
    };
}

/// The same walk through the C interface.
std::function<void()> callbackWalk(const std::wstring& root, unsigned long long expected)
{
    return [=] {
        unsigned long long count = 0;
        sysmaint_scan* scan = nullptr;
        require(sysmaint_scan_create(SYSMAINT_SCAN_FOLDERS, &scan) == ERROR_SUCCESS &&
                    sysmaint_scan_add_folder(scan, root.c_str(), 0) == ERROR_SUCCESS &&
                    sysmaint_scan_run(scan, nullptr, nullptr, nullptr, &countFound, &count) == ERROR_SUCCESS,
                "the walk failed");
        require(count == expected, "the walk did not find what is there");
        sysmaint_scan_close(scan);
    };
}

/// What one found file costs on its way to a handler, without the disk, in nanoseconds.
double reportCost(INotifyHandler& handler, long count)
{
    NotifyProvider provider;
    provider.registerHandler(handler, kLeafFound, 0, 0);
    const auto file = makeShared<ScanItem, File>(L"C:\\folder\\document.txt", 0);
    return seconds([&] {
               for (long i = 0; i < count; ++i)
                   provider.notify(nullptr, 0, kLeafFound, file);
           }) /
           static_cast<double>(count) * 1e9;
}

/// What the C interface adds to a found file.
FigureRow addedRow(BenchScale scale)
{
    const long count = scale(1000000);
    const auto handlerCost = [=] {
        CountingHandler counter;
        const double cost = reportCost(counter, count);
        require(counter.count == static_cast<unsigned long long>(count), "the handler was not called");
        return cost;
    };
    return {"what a callback of the C interface adds to a found file",
            "a C++ handler in all",
            "ns",
            100,
            FigureRow::Of::Median,
            [=] {
                unsigned long long called = 0;
                Finder finder(&countFound, &called);
                const double cost = reportCost(finder, count) - handlerCost();
                require(called == static_cast<unsigned long long>(count), "the callback was not called");
                return cost;
            },
            handlerCost};
}

/// 20 patterns that match nothing in the tree, but for the last one.
std::wstring rules(const wchar_t* extension, const wchar_t* last)
{
    std::wstring text;
    for (int i = 0; i < 19; ++i)
        text += L"*" + std::to_wstring(i) + extension + L",";
    return text + last;
}

/// The same patterns for PathMatchSpecW, one after the other.
struct PatternLists
{
    PatternLists(const std::wstring& filterText, const std::wstring& ignoreText)
        : filters(list(filterText)), ignores(list(ignoreText))
    {
    }
    [[nodiscard]] bool accept(const wchar_t* name) const
    {
        return matches(filters, name) && !matches(ignores, name);
    }

    static std::vector<std::wstring> list(const std::wstring& text)
    {
        std::vector<std::wstring> patterns;
        for (std::size_t at = 0; at <= text.size();) {
            const std::size_t end = std::min(text.find(L',', at), text.size());
            patterns.push_back(text.substr(at, end - at));
            at = end + 1;
        }
        return patterns;
    }
    static bool matches(const std::vector<std::wstring>& patterns, const wchar_t* name)
    {
        return std::any_of(patterns.begin(), patterns.end(), [&](const std::wstring& pattern) {
            return PathMatchSpecW(name, pattern.c_str()) != 0;
        });
    }

    std::vector<std::wstring> filters;
    std::vector<std::wstring> ignores;
};

void iteratorWalk(const std::wstring& root, unsigned long long entries)
{
    unsigned long long count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        static_cast<void>(entry);
        ++count;
    }
    require(count == entries, "the iterator did not find what is there");
}

/// The cost of only the rules for the files of the tree, without the disk.
BenchRow askedRow(BenchScale scale, const std::wstring& filters, const std::wstring& ignores)
{
    struct Asked
    {
        std::vector<std::unique_ptr<File>> files;
        std::vector<std::wstring> names;
    };
    const auto asked = std::make_shared<Asked>();
    const long count = scale(100000);
    const PatternLists lists(filters, ignores);
    const SharedPtr<IScanValidator> validator(DllGetScanValidator(filters.c_str(), ignores.c_str()));
    const auto accepted = [=](auto&& accepts) {
        long found = 0;
        for (long i = 0; i < count; ++i)
            found += accepts(static_cast<std::size_t>(i)) ? 1 : 0;
        require(found == (count + 2) / 3 - (count + 29) / 30,
                "the files that are accepted are not those that should");
    };
    return {"the rules alone: 20 filters and 20 ignore rules",
            "PathMatchSpecW per rule",
            10,
            static_cast<double>(count),
            [=] { accepted([&](std::size_t i) { return validator->validate(*asked->files[i]); }); },
            [=] { accepted([&](std::size_t i) { return lists.accept(asked->names[i].c_str()); }); },
            [=] {
                for (long i = static_cast<long>(asked->files.size()); i < count; ++i) {
                    asked->names.push_back(L"document " + std::to_wstring(i) +
                                           (i % 3 == 0 ? L".tmp" : L".dat"));
                    const std::wstring path =
                        L"C:\\tree\\folder" + std::to_wstring(i / 100) + L"\\" + asked->names.back();
                    asked->files.push_back(std::make_unique<File>(path.c_str(), 0));
                }
            }};
}
} // namespace

BenchRows memoryRows(BenchScale scale)
{
    const Tree tree(scale(100000));
    BenchRows rows;
    // The peak includes what the program had before.
    rows.figures = {{"peak private memory, walk of 300,000 files", "no result lists", "MiB", 64,
                     FigureRow::Of::Most,
                     [=] {
                         tree.make();
                         MemoryWatcher watcher;
                         ourWalk(tree.whole(), L"", L"", watcher, tree.wholeEntries());
                         return static_cast<double>(watcher.peak) / 1048576;
                     },
                     nullptr}};
    return rows;
}

BenchRows walkRows(BenchScale scale)
{
    const long files = scale(100000);
    const Tree tree(files);
    const std::wstring root = tree.part();
    const unsigned long long entries = tree.entries();
    // Every third file is a .tmp, and of these the last ignore rule takes every tenth.
    const unsigned long long accepted =
        static_cast<unsigned long long>((files + 2) / 3 - (files + 29) / 30) + tree.folders();
    const auto operations = static_cast<double>(entries);
    const auto prepare = [=] { tree.make(); };

    const std::wstring filters = rules(L".bak", L"*.tmp");
    const std::wstring ignores = rules(L".keep", L"*0.tmp");
    const PatternLists lists(filters, ignores);
    const auto bare = [=] {
        unsigned long long count = 0;
        bareWalk(root, [&](const wchar_t*, bool) { ++count; });
        require(count == entries, "the bare loop did not find what is there");
    };
    const auto bareFiltered = [=] {
        unsigned long long count = 0;
        bareWalk(root, [&](const wchar_t* name, bool isFolder) {
            count += isFolder || lists.accept(name) ? 1 : 0;
        });
        require(count == accepted, "the filtered loop did not find what is there");
    };

    BenchRows rows;
    rows.timed = {
        {"walk, counting handler", "bare FindFirstFileW loop", 0.85, operations,
         countingWalk(root, L"", L"", entries), bare, prepare},
        {"walk, counting handler", "std::filesystem recursive iterator", 1.0, operations,
         countingWalk(root, L"", L"", entries), [=] { iteratorWalk(root, entries); }, prepare},
        {"walk, callback of the C interface", "the walk with a counting handler", 0.95, operations,
         callbackWalk(root, entries), countingWalk(root, L"", L"", entries), prepare},
        {"walk, 20 filters and 20 ignore rules", "the bare loop, PathMatchSpecW per rule", 2.0, operations,
         countingWalk(root, filters, ignores, accepted), bareFiltered, prepare},
        askedRow(scale, filters, ignores),
    };
    rows.figures = {{"what 20 filters and 20 ignore rules add", "what PathMatchSpecW per rule adds", "ns", 0,
                     FigureRow::Of::Median,
                     [=] {
                         tree.make();
                         return (seconds(countingWalk(root, filters, ignores, accepted)) -
                                 seconds(countingWalk(root, L"", L"", entries))) /
                                operations * 1e9;
                     },
                     [=] { return (seconds(bareFiltered) - seconds(bare)) / operations * 1e9; }},
                    addedRow(scale)};
    return rows;
}

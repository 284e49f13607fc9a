#include <windows.h>

#include <shlwapi.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "Bench.h"
#include "core/win32/utils/scanengine/api.h"

namespace {
struct Counter : INotifyHandler
{
    void onNotify(const Notification&, const SharedPtr<ScanItem>&) override
    {
        if (++count % 1000 == 0 && measures)
            peak = std::max(peak, privateBytes());
    }
    unsigned long long count = 0;
    bool measures = false;
    unsigned long long peak = 0;
};

unsigned long long entriesOf(long files)
{
    return static_cast<unsigned long long>(files) + static_cast<unsigned long long>(files + 99) / 100;
}

/// A tree of 100 files to a folder, made once and kept for the next run.
std::wstring makeTree(long files)
{
    const std::wstring root = temporaryFolder() + L"sysmaint-bench-" + std::to_wstring(files);
    if (!CreateDirectoryW(root.c_str(), nullptr))
        return root;
    for (long file = 0; file < files; ++file) {
        const std::wstring folder = root + L"\\folder" + std::to_wstring(file / 100);
        if (file % 100 == 0)
            CreateDirectoryW(folder.c_str(), nullptr);
        const std::wstring path =
            folder + L"\\document " + std::to_wstring(file) + (file % 3 == 0 ? L".tmp" : L".dat");
        CloseHandle(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    }
    return root;
}

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

void walkTree(const std::wstring& root, const wchar_t* filters, const wchar_t* ignores, Counter& counter)
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
    FSEngineClear(engine);
    CloseFileScanEngine(engine);
}

/// Our walk over the tree; `filters` and `ignores` as DllGetScanValidator takes them.
std::function<void()> ourWalk(const std::wstring& root, const wchar_t* filters, const wchar_t* ignores,
                              unsigned long long expected)
{
    return [=] {
        Counter counter;
        walkTree(root, filters, ignores, counter);
        require(counter.count == expected, "the walk did not find what is there");
    };
}

/// 20 patterns that match nothing in the tree, but for the last one of the filters.
std::wstring rules(const wchar_t* extension, const wchar_t* last)
{
    std::wstring text;
    for (int i = 0; i < 19; ++i)
        text += L"*" + std::to_wstring(i) + extension + L",";
    return text + last;
}
} // namespace

std::vector<BenchRow> memoryRows(BenchScale scale)
{
    const long files = scale(300000);
    const std::wstring root = makeTree(files);
    Counter counter;
    counter.measures = true;
    const unsigned long long before = privateBytes();
    walkTree(root, L"", L"", counter);
    require(counter.count == entriesOf(files), "the walk did not find what is there");
    char name[100];
    std::snprintf(name, sizeof name, "walk of %ld files (peak %+.1f MiB private)", files,
                  (static_cast<double>(counter.peak) - static_cast<double>(before)) / 1048576.0);
    return {{name, "goal: below 64 MiB", 0, static_cast<double>(entriesOf(files)),
             ourWalk(root, L"", L"", entriesOf(files)), nullptr}};
}

std::vector<BenchRow> walkRows(BenchScale scale)
{
    const long files = scale(100000);
    const std::wstring root = makeTree(files);
    const unsigned long long entries = entriesOf(files);
    const double operations = static_cast<double>(entries);

    const auto filters = std::make_shared<std::wstring>(rules(L".bak", L"*.tmp"));
    const auto ignores = std::make_shared<std::wstring>(rules(L".keep", L"*.lock"));
    const unsigned long long accepted = static_cast<unsigned long long>((files + 2) / 3) + (files + 99) / 100;
    const auto list = [](const std::wstring& text) {
        std::vector<std::wstring> patterns;
        for (std::size_t at = 0; at <= text.size();) {
            const std::size_t end = std::min(text.find(L',', at), text.size());
            patterns.push_back(text.substr(at, end - at));
            at = end + 1;
        }
        return patterns;
    };
    const auto filterList = list(*filters);
    const auto ignoreList = list(*ignores);

    return {
        {"walk, counting handler", "bare FindFirstFileW loop", 0.65, operations,
         ourWalk(root, L"", L"", entries),
         [=] {
             unsigned long long count = 0;
             bareWalk(root, [&](const wchar_t*, bool) { ++count; });
             require(count == entries, "the bare loop did not find what is there");
         }},
        {"walk, counting handler", "std::filesystem recursive iterator", 1.0, operations,
         ourWalk(root, L"", L"", entries),
         [=] {
             unsigned long long count = 0;
             for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
                 static_cast<void>(entry);
                 ++count;
             }
             require(count == entries, "the iterator did not find what is there");
         }},
        {"walk, 20 filters and 20 ignore rules", "the bare loop, PathMatchSpecW per rule", 2.0, operations,
         ourWalk(root, filters->c_str(), ignores->c_str(), accepted),
         [=] {
             // Kept alive with the row: the texts belong to it.
             static_cast<void>(filters->size() + ignores->size());
             unsigned long long count = 0;
             const auto matches = [](const std::vector<std::wstring>& patterns, const wchar_t* name) {
                 for (const std::wstring& pattern : patterns)
                     if (PathMatchSpecW(name, pattern.c_str()))
                         return true;
                 return false;
             };
             bareWalk(root, [&](const wchar_t* name, bool isFolder) {
                 count += isFolder || (matches(filterList, name) && !matches(ignoreList, name)) ? 1 : 0;
             });
             require(count == accepted, "the filtered loop did not find what is there");
         }},
    };
}

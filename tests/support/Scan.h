#pragma once

#include "core/win32/utils/scanengine/api.h"
#include "support/Process.h"
#include "support/Raised.h"

/// The validator that accepts everything.
inline SharedPtr<IScanValidator> everything()
{
    return SharedPtr<IScanValidator>(DllGetScanValidator());
}

/// The function by which the library lists a folder, among others.
using AskedHandle = Replaced<"GetFileInformationByHandleEx", decltype(&GetFileInformationByHandleEx)>;

/// A hook for it: shows each entry that the system lists to `change`.
inline auto changingEntries(const std::function<void(FILE_ID_BOTH_DIR_INFO&)>& change)
{
    return after([change](BOOL result, HANDLE, FILE_INFO_BY_HANDLE_CLASS question, void* answer, DWORD) {
        const bool lists = question == FileIdBothDirectoryInfo || question == FileIdBothDirectoryRestartInfo;
        for (DWORD offset = result && lists ? 1 : 0; offset != 0;) {
            auto& entry = *static_cast<FILE_ID_BOTH_DIR_INFO*>(answer);
            offset = entry.NextEntryOffset;
            answer = static_cast<char*>(answer) + offset;
            change(entry);
        }
    });
}

/// Collects what a scan reports, separately what could not be listed, and runs the test's action on each
/// item.
class Collector : public INotifyHandler
{
public:
    void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) override
    {
        if (notification.getValue() != 0) {
            codes[item->getPath()] = notification.getValue();
            return;
        }
        ++calls;
        if (collects)
            ++paths[item->getPath()];
        if (action)
            action(notification, item);
    }

    bool collects = true;
    std::atomic<long> calls{0};
    std::map<std::wstring, int> paths;
    std::map<std::wstring, std::uint32_t> codes;
    std::function<void(const Notification&, const SharedPtr<ScanItem>&)> action;
};

/// An engine with one handler for everything, closed at the end of the scope.
class TestEngine
{
public:
    explicit TestEngine(INotifyHandler& handler, const wchar_t* name = L"test engine")
        : handle(CreateFileScanEngine(name))
    {
        FSEngineRegisterHandler(handle, handler, kContainerFound, 0, 0);
        FSEngineRegisterHandler(handle, handler, kLeafFound, 0, 0);
    }
    TestEngine(TestEngine&&) = delete;
    ~TestEngine() { CloseFileScanEngine(handle); }

    long scan(const std::wstring& folder, unsigned depth = 65535, HANDLE cancelEvent = nullptr,
              const wchar_t* filters = nullptr, const wchar_t* ignores = nullptr) const
    {
        FSEngineClear(handle);
        const long code = FSEngineAddPath(handle, folder.c_str(), 0);
        return code != ERROR_SUCCESS ? code : rescan(depth, cancelEvent, filters, ignores);
    }
    long rescan(unsigned depth = 65535, HANDLE cancelEvent = nullptr, const wchar_t* filters = nullptr,
                const wchar_t* ignores = nullptr) const
    {
        const SharedPtr<IScanValidator> validator(DllGetScanValidator(filters, ignores));
        return FSEngineScan(handle, cancelEvent, validator,
                            {.depth = static_cast<std::uint16_t>(depth), .depthGiven = 1});
    }

    void* handle;
};

/// The folder that support/make_tree filled; "tree" is below it.
inline std::wstring testFolder()
{
    const wchar_t* const folder = _wgetenv(L"SYSMAINT_TEST_FOLDER");
    return folder != nullptr ? folder : L"";
}

/// A new folder of this process below the temporary folder, with only these folders in it.
inline std::wstring scratchFolder(std::initializer_list<const wchar_t*> folders = {})
{
    static long count = 0;
    wchar_t temporary[MAX_PATH];
    GetTempPathW(MAX_PATH, temporary);
    const std::wstring begin = temporary + (L"sysmaint-" + std::to_wstring(GetCurrentProcessId())) + L"-";
    std::wstring folder;
    do
        folder = begin + std::to_wstring(++count);
    while (!CreateDirectoryW(folder.c_str(), nullptr)); // process ids are reused
    for (const wchar_t* name : folders)
        CreateDirectoryW((folder + name).c_str(), nullptr);
    return folder;
}

/// Whether exactly that name exists.
inline bool stands(const std::wstring& path)
{
    return GetFileAttributesW((L"\\\\?\\" + path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

using FilePtr = std::unique_ptr<IFile>;
using DirectoryPtr = std::unique_ptr<IDirectory>;
inline FilePtr fileAt(const std::wstring& path)
{
    return FilePtr(DllGetFile(path.c_str(), 0));
}
inline DirectoryPtr folderAt(const std::wstring& path)
{
    return DirectoryPtr(DllGetDirectory(path.c_str(), 0));
}

/// The item of a handle, which is closed.
inline SharedPtr<ScanItem> itemOf(void* handle)
{
    SharedPtr<ScanItem> item;
    GetScanItemByHandle(handle, item);
    CloseScanItem(handle);
    return item;
}

/// What an object stores.
template <class Object>
std::string dumpOf(const Object& object, unsigned long code = kStateAll)
{
    MemoryOutputByteStream stream;
    EXPECT_EQ(object.dump(code, stream), ERROR_SUCCESS);
    return {reinterpret_cast<const char*>(stream.getData()), stream.getSize()};
}

/// A stream that ends early, at any byte, leaves an object unchanged. Complete, it would make it equal to
/// `other`.
template <class Object>
void expectCutsChangeNothing(Object& object, const Object& other, unsigned long code = kStateAll)
{
    const std::string whole = dumpOf(other, code);
    const std::string before = dumpOf(object, code);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        MemoryInputByteStream cut(whole.data(), size);
        EXPECT_EQ(codeOf([&] { object.load(code, cut); }), ERROR_READ_FAULT) << size << " for " << code;
        EXPECT_EQ(dumpOf(object, code), before) << size << " for " << code;
    }
}

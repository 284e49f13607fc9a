#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "core/win32/utils/scanengine/api.h"
#include "support/Process.h"

/// Collects what a scan reports, and does on each item what the test wants.
class Collector : public INotifyHandler
{
public:
    void onNotify(const Notification& notification, const SharedPtr<ScanItem>& item) override
    {
        ++calls;
        if (collects)
            ++paths[item->getPath()];
        if (action)
            action(notification, item);
    }

    bool collects = true;
    long calls = 0;
    std::map<std::wstring, int> paths;
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
    TestEngine(const TestEngine&) = delete;
    TestEngine& operator=(const TestEngine&) = delete;
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
        ScanOptions options;
        options.depthGiven = 1;
        options.depth = static_cast<std::uint16_t>(depth);
        return FSEngineScan(handle, cancelEvent,
                            SharedPtr<IScanValidator>(DllGetScanValidator(filters, ignores)), options);
    }

    void* handle;
};

/// The folder that support/make_tree filled; "tree" is below it.
inline std::wstring testFolder()
{
    wchar_t folder[1024];
    const DWORD length = GetEnvironmentVariableW(L"SYSMAINT_TEST_FOLDER", folder, 1024);
    return std::wstring(folder, length);
}

/// A new empty folder of this process's own, below the temporary folder.
inline std::wstring scratchFolder()
{
    static long count = 0;
    wchar_t temporary[MAX_PATH];
    GetTempPathW(MAX_PATH, temporary);
    std::wstring folder;
    do
        folder = std::wstring(temporary) + L"sysmaint-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                 std::to_wstring(++count);
    while (!CreateDirectoryW(folder.c_str(), nullptr)); // process numbers come again
    return folder;
}

/// The code that an operation of an item raises, or 0.
template <class Operation>
unsigned long codeOf(Operation&& operation)
{
    try {
        operation();
    } catch (const Exception& raised) {
        return raised.getCode();
    }
    return ERROR_SUCCESS;
}

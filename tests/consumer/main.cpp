// Finds itself: consumer.exe
#include <cstdio>
#include <cwchar>

#include "core/win32/utils/scanengine/api.h"

struct Finder : INotifyHandler
{
    void onNotify(const Notification&, const SharedPtr<ScanItem>& item) override
    {
        found += std::wcsstr(item->getPath(), L"\\consumer.exe") != nullptr ? 1 : 0;
    }
    int found = 0;
};

int main()
{
    Finder finder;
    void* engine = CreateFileScanEngine(L"consumer");
    FSEngineAddPath(engine, L".", 1);
    FSEngineRegisterHandler(engine, finder, kContainerFound, 0, 0);
    FSEngineRegisterHandler(engine, finder, kLeafFound, 0, 0);
    const SharedPtr<IScanValidator> validator(DllGetScanValidator(L"consumer.exe", L""));
    const long code = FSEngineScan(engine, nullptr, validator, ScanOptions{});
    CloseFileScanEngine(engine);
    std::printf("found: %d, code: %ld\n", finder.found, code);
    return finder.found == 1 && code == 0 ? 0 : 1;
}

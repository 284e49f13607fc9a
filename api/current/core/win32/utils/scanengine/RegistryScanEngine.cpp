#include "core/win32/utils/scanengine/include/RegistryScanEngine.h"

#include <atomic>

#include "core/win32/registry/include/RegistryPath.h"
#include "core/win32/utils/objectmanager/include/LibraryCall.h"

constexpr char kRegistryScanEngineHeader[] = "core\\win32\\utils\\scanengine\\include\\RegistryScanEngine.h";

using namespace primitives;

ObjectTable<SharedPtr<RegistryScanEngine>> registryScanEngines(30); // they hold scan items

namespace {
std::wstring uniqueName()
{
    static std::atomic<unsigned long long> count{0};
    return L"engine*" + std::to_wstring(count.fetch_add(1, std::memory_order_relaxed));
}
} // namespace

RegistryScanEngine::RegistryScanEngine() : RegistryScanEngine(uniqueName().c_str()) {}

void RegistryScanEngine::addPath(HKEY root, const wchar_t* path, unsigned long options)
{
    const InsideLibrary inside;
    placedStep(PLACE(kRegistryScanEngineHeader, "RegistryScanEngine::addPath", __LINE__),
               [&] { appendRoot(makeShared<ScanItem, RegistryPath>(root, path, options)); });
}

const char* RegistryScanEngine::scanPlace() const noexcept
{
    return PLACE(kRegistryScanEngineHeader, "RegistryScanEngine::scan", __LINE__);
}

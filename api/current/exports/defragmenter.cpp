// The exported functions of the registry defragmenter.

#include "core/win32/registry/defragmenter/api.h"
#include "core/win32/registry/defragmenter/include/RegistryDefragmenter.h"

#include "core/win32/registry/defragmenter/include/DriveLetters.h"
#include "core/win32/registry/defragmenter/include/HiveList.h"
#include "exports/Frames.h"

using boundary::statusFrame;

namespace {
constexpr char kDefragmenterApi[] = "core\\win32\\registry\\defragmenter\\api.h";
} // namespace

void* CreateRegistryDefragmenter(const wchar_t* name)
{
    return createRegistryDefragmenter(PLACE(kDefragmenterApi, "CreateRegistryDefragmenter", __LINE__), name);
}

long RegistryDefragmenterAnalyze(void* defragmenter, RDAnalyzerResults& results, void* stopEvent)
{
    return statusFrame(PLACE(kDefragmenterApi, "RegistryDefragmenterAnalyze", __LINE__),
                       registryDefragmenters(), defragmenter,
                       [&](RegistryDefragmenter& object) { object.analyze(results, stopEvent); });
}

long RegistryDefragmenterGetResults(void* defragmenter, RDAnalyzerResults& results)
{
    return statusFrame(PLACE(kDefragmenterApi, "RegistryDefragmenterGetResults", __LINE__),
                       registryDefragmenters(), defragmenter,
                       [&](RegistryDefragmenter& object) { object.getResults(results); });
}

long RegistryDefragmenterDump(void* defragmenter, unsigned long code, IOutputByteStream& stream)
{
    return statusFrame(PLACE(kDefragmenterApi, "RegistryDefragmenterDump", __LINE__), registryDefragmenters(),
                       defragmenter, [&](RegistryDefragmenter& object) { return object.dump(code, stream); });
}

long RegistryDefragmenterLoad(void* defragmenter, unsigned long code, IInputByteStream& stream)
{
    return statusFrame(PLACE(kDefragmenterApi, "RegistryDefragmenterLoad", __LINE__), registryDefragmenters(),
                       defragmenter, [&](RegistryDefragmenter& object) { return object.load(code, stream); });
}

int CloseRegistryDefragmenter(void* defragmenter)
{
    return registryDefragmenters().close(defragmenter);
}

long DumpHiveList(IOutputByteStream& stream)
{
    return statusFrame([&]() -> long {
        dumpHiveList(stream);
        return ERROR_SUCCESS;
    });
}

// The C interface: the analysis of hives.

#include "core/win32/registry/defragmenter/include/DriveLetters.h"
#include "core/win32/registry/defragmenter/include/HiveList.h"
#include "core/win32/registry/defragmenter/include/RegistryDefragmenter.h"
#include "exports/c/CFrames.h"
#include "win32/stateholder/include/StateCodes.h"

using cframes::requireArguments;
using cframes::status;

namespace {
using HiveCallback = cframes::Callback<sysmaint_hive_callback>;
using DefragmenterPtr = SingletonPtr<RegistryDefragmenter>;

/// Tells the caller of hives. Returns whether to go on.
bool tell(HiveCallback& callback, const RDHiveResult& hive)
{
    const sysmaint_hive told{sizeof told,  ERROR_SUCCESS, hive.mountName.c_str(), hive.path.c_str(), L"",
                             hive.oldSize, hive.newSize};
    return callback.call(&told);
}
bool tell(HiveCallback& callback, const RDHiveFailure& hive)
{
    const sysmaint_hive told{sizeof told,
                             static_cast<std::int32_t>(hive.code),
                             hive.mountName.c_str(),
                             hive.path.c_str(),
                             hive.report.c_str(),
                             0,
                             0};
    return callback.call(&told);
}

/// Tells of the hives of a list from `first` on, which is moved to its end.
template <class Hives>
bool tellFrom(HiveCallback& callback, const Hives& hives, std::size_t& first)
{
    while (first < hives.size())
        if (!tell(callback, hives[first++]))
            return false;
    return true;
}

/// Tells of the results of an analysis as they come in.
class Progress
{
public:
    explicit Progress(HiveCallback& callback) noexcept : m_callback(callback) {}

    bool tellNew(const RDAnalyzerResults& results)
    {
        return tellFrom(m_callback, results.getResults(), m_results) &&
               tellFrom(m_callback, results.getFailures(), m_failures);
    }

private:
    HiveCallback& m_callback;
    std::size_t m_results = 0;
    std::size_t m_failures = 0;
};

/// Raises 6 and 487.
DefragmenterPtr defragmenterOf(void* handle)
{
    return cframes::objectOf<DefragmenterPtr>(registryDefragmenters(), handle);
}

RDAnalyzerResults resultsOf(RegistryDefragmenter& defragmenter)
{
    RDAnalyzerResults results;
    defragmenter.getResults(results);
    return results;
}
} // namespace

std::int32_t sysmaint_hive_list(sysmaint_hive_callback callback, void* context)
{
    return status(__func__, [&] {
        requireArguments(callback != nullptr);
        HiveCallback call(callback, context);
        const DriveLetters drives;
        for (const LoadedHive& hive : readHiveList()) {
            std::wstring path = hive.path;
            const long code = primitives::codeOfStep([&] { path = drives.resolve(path); });
            if (code == ERROR_NOT_ENOUGH_MEMORY)
                raiseCode(code);
            const sysmaint_hive told{sizeof told, 0, hive.mountName.c_str(), path.c_str(), L"", 0, 0};
            call(&told);
        }
    });
}

std::int32_t sysmaint_hive_list_dump(void** bytes, std::uint64_t* size)
{
    return status(__func__, [&] {
        cframes::storeDump(bytes, size, [](auto& stream) -> long {
            dumpHiveList(stream);
            return ERROR_SUCCESS;
        });
    });
}

std::int32_t sysmaint_hive_analyze(void* defragmenter, void* stop_event, sysmaint_hive_callback callback,
                                   void* context)
{
    return status(__func__, [&]() -> long {
        cframes::requireNoPseudoHandle(stop_event);
        const DefragmenterPtr object = defragmenterOf(defragmenter);
        HiveCallback call(callback, context);
        Progress progress(call);
        RDAnalyzerResults results;
        return call.codeOf(cframes::codeOfPolling(stop_event, [&] {
            object->analyze(results, stop_event,
                            [&] { return !call || progress.tellNew(resultsOf(*object)); });
        }));
    });
}

std::int32_t sysmaint_hive_results(void* defragmenter, sysmaint_hive_callback callback, void* context)
{
    return status(__func__, [&]() -> long {
        const DefragmenterPtr object = defragmenterOf(defragmenter);
        requireArguments(callback != nullptr);
        HiveCallback call(callback, context);
        Progress(call).tellNew(resultsOf(*object));
        return call.codeOf(ERROR_SUCCESS);
    });
}

std::int32_t sysmaint_hive_results_dump(void* defragmenter, void** bytes, std::uint64_t* size)
{
    return status(__func__, [&] {
        const DefragmenterPtr object = defragmenterOf(defragmenter);
        cframes::storeDump(bytes, size, [&](auto& stream) { return object->dump(kStateNone, stream); });
    });
}

std::int32_t sysmaint_hive_results_load(void* defragmenter, const void* bytes, std::uint64_t size)
{
    return status(__func__, [&] {
        const DefragmenterPtr object = defragmenterOf(defragmenter);
        // All of it is read once before the results are replaced.
        cframes::loadWhole(bytes, size,
                           [](auto& stream) { return RDAnalyzerResults().load(kStateNone, stream); });
        MemoryInputByteStream stream(bytes, size);
        return object->load(kStateNone, stream);
    });
}

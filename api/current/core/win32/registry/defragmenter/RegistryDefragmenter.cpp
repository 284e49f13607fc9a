#include "core/win32/registry/defragmenter/include/RegistryDefragmenter.h"

#include <optional>

#include "core/win32/registry/defragmenter/include/RDWorker.h"

constexpr char kRegistryDefragmenterHeader[] =
    "core\\win32\\registry\\defragmenter\\include\\RegistryDefragmenter.h";

namespace {
constexpr unsigned long kCategory = 0;
constexpr unsigned long kWork = 0;

/// Whether the stop event is signalled. Raises the code of an event that cannot be polled: nothing could stop
/// the analysis.
bool isStoppedAtFirst(HANDLE stopEvent)
{
    const DWORD wait = stopEvent == nullptr ? WAIT_TIMEOUT : WaitForSingleObject(stopEvent, 0);
    if (wait == WAIT_FAILED)
        throw Exception(PLACE(kRegistryDefragmenterHeader, "RegistryDefragmenter::analyze", __LINE__));
    if (wait != WAIT_TIMEOUT)
        giveBackTaken(stopEvent);
    return wait != WAIT_TIMEOUT;
}
} // namespace

ObjectTable<SingletonPtr<RegistryDefragmenter>> registryDefragmenters(40);

namespace {
SingletonPtr<RegistryDefragmenter> makeDefragmenter()
{
    return SingletonPtr<RegistryDefragmenter>(new RegistryDefragmenter);
}
} // namespace

void* createRegistryDefragmenter(const char* place, const wchar_t* name) noexcept
{
    static ReadWriteLock creating;
    static std::wstring filedName;
    return boundary::handleFrame([&]() -> void* {
        if (name == nullptr)
            throw Exception(place, ERROR_INVALID_PARAMETER);
        const WriteLocker locker(creating);
        void* const handle = registryDefragmenters().lookup(filedName.c_str());
        if (handle != INVALID_HANDLE_VALUE)
            return handle;
        if (GetLastError() != ERROR_NOT_FOUND)
            raiseLastError();
        filedName = name;
        return registryDefragmenters().openOrCreate(name, &makeDefragmenter);
    });
}

class RegistryDefragmenter::Turn
{
public:
    explicit Turn(std::atomic<bool>& isBusy) : m_isBusy(isBusy)
    {
        if (isBusy.exchange(true))
            raiseCode(ERROR_BUSY);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() { m_isBusy = false; }

private:
    std::atomic<bool>& m_isBusy;
};

class RegistryDefragmenter::Run
{
public:
    Run(const PoolOpening& pool, IRDWorker& worker) : m_pool(pool)
    {
        requireSuccess(PLACE(kRegistryDefragmenterHeader, "RegistryDefragmenter::analyze", 129),
                       pool.with([&](ThreadPool& object) {
                           return object.queueWork({kCategory, kWork}, worker, HashMessageW(),
                                                   ITHPWorkItem::ScheduleOption::AtEnd, &m_instance);
                       }));
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    /// Ends the worker in any state, because what it uses is destroyed next.
    ~Run()
    {
        while (isRunning())
            if (withWork([](ThreadPool& pool, const THPWorkKey& work) {
                    return pool.cancelWork(work, IThreadPool::OperationType::CancelAndWait);
                }) != ERROR_SUCCESS)
                SwitchToThread();
    }

    /// Waits until it has ended. Returns 0, its code, or why the wait failed.
    [[nodiscard]] long wait() const noexcept
    {
        long result = ERROR_SUCCESS;
        const long code = withWork([&](ThreadPool& pool, const THPWorkKey& work) {
            const long waited = pool.wait(work, INFINITE, nullptr);
            return waited == ERROR_SUCCESS ? pool.getResult(work, result) : waited;
        });
        return code != ERROR_SUCCESS ? code : result;
    }

private:
    template <class Operation>
    long withWork(Operation&& operation) const noexcept
    {
        return m_pool.with(
            [&](ThreadPool& pool) { return operation(pool, THPWorkKey(kCategory, kWork, m_instance)); });
    }
    [[nodiscard]] bool isRunning() const noexcept
    {
        bool running = false;
        const long code = withWork([&](ThreadPool& pool, const THPWorkKey& work) {
            running = pool.isRunning(work);
            return ERROR_SUCCESS;
        });
        // Out of memory: the state is unknown. Otherwise the process is ending, and the work with it.
        return code == ERROR_NOT_ENOUGH_MEMORY || running;
    }

    const PoolOpening& m_pool;
    void* m_instance = nullptr;
};

const PoolOpening& RegistryDefragmenter::requireCategory()
{
    if (!m_pool.isValid())
        m_pool =
            PoolOpening(PLACE(kRegistryDefragmenterHeader, "RegistryDefragmenter::getThreadPool", __LINE__),
                        L"RegistryDefragmenter");
    const THPCategoryOptions options(THPCategoryOptions::kNoLimit, 0, THREAD_PRIORITY_IDLE, 0);
    requireSuccess(
        PLACE(kRegistryDefragmenterHeader, "RegistryDefragmenter::analyze", 105),
        m_pool.requireCategory(THPIdentifier(kCategory), options)); // perhaps from an earlier analysis
    return m_pool;
}

void RegistryDefragmenter::analyze(RDAnalyzerResults& results, void* stopEvent,
                                   const std::function<bool()>& afterHive)
{
    const Turn turn(m_isBusy);
    m_collected.replace({});
    std::vector<LoadedHive> hives = readHiveList();
    const DriveLetters drives;
    const PoolOpening& pool = requireCategory();

    IRDWorker::Queue queue;
    RDWorker worker(queue, stopEvent, afterHive);
    std::optional<Run> run; // only one on any number of processors: the copies share a disk
    bool isStopped = isStoppedAtFirst(stopEvent);
    if (!isStopped) {
        RDHiveItem::deleteLeftovers();
        run.emplace(pool, worker);
        isStopped = isCancelled(stopEvent);
    }
    if (isStopped)
        throw Exception(PLACE(kRegistryDefragmenterHeader, "RegistryDefragmenter::analyze", 142),
                        ERROR_CANCELLED);
    primitives::placedStep(PLACE(kRegistryDefragmenterHeader, "RegistryDefragmenter::analyze", 220), [&] {
        for (std::size_t i = 0; i < hives.size() && !isStopped; ++i) {
            isStopped = isCancelled(stopEvent);
            if (!isStopped)
                queue.push(makeShared<RDHiveItem>(std::move(hives[i]), drives, m_collected));
        }
        queue.push(IRDWorker::Item());
    });
    if (isStopped || isCancelled(stopEvent))
        throw Exception(PLACE(kRegistryDefragmenterHeader, "RegistryDefragmenter::analyze", 233),
                        ERROR_CANCELLED);

    const char* const place = PLACE(kRegistryDefragmenterHeader, "RegistryDefragmenter::analyze", __LINE__);
    const long ended = run->wait();
    run.reset(); // it has certainly ended now
    if (!worker.isComplete())
        throw Exception(place, worker.isStopped() ? DWORD{ERROR_CANCELLED} : static_cast<DWORD>(ended));
    results = m_collected.copy();
    requireSuccess(place, worker.getFirstFailure());
}

long RegistryDefragmenter::load(unsigned long code, IInputByteStream& stream)
{
    RDAnalyzerResults results;
    results.load(code, stream);
    const Turn turn(m_isBusy);
    m_collected.replace(std::move(results));
    return ERROR_SUCCESS;
}

long RegistryDefragmenter::dump(unsigned long code, IOutputByteStream& stream) const
{
    return m_collected.copy().dump(code, stream);
}

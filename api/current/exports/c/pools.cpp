// The C interface: thread pools.

#include "core/win32/utils/threadpool/include/ThreadPool.h"

#include "exports/c/Messages.h"

using cframes::given;
using cframes::requireArguments;
using cframes::status;

namespace {
constexpr char kHeader[] = "c\\sysmaint.h";

/// The parameter with the caller's function that travels with the arguments of its work. So nothing needs to
/// be kept for work that is dropped.
constexpr wchar_t kCallParameter[] = L"\x1sysmaint callback";
struct WorkCall
{
    sysmaint_work_callback function;
    void* context;
};

/// The key of an operation that may have the scopes from `least` to `most`. Raises 87.
THPWorkKey givenKey(const sysmaint_work_key* key, std::uint32_t least, std::uint32_t most)
{
    const sysmaint_work_key copy = given(key);
    requireArguments(copy.scope >= least && copy.scope <= most);
    const bool isNamed = copy.category != nullptr;
    const THPIdentifier category = isNamed ? THPIdentifier(copy.category)
                                           : THPIdentifier(static_cast<unsigned long>(copy.category_number));
    if (copy.scope == SYSMAINT_SCOPE_CATEGORY)
        return category;
    const THPIdentifier work =
        isNamed ? THPIdentifier(copy.work) : THPIdentifier(static_cast<unsigned long>(copy.work_number));
    return copy.scope == SYSMAINT_SCOPE_WORK ? THPWorkKey(category, work)
                                             : THPWorkKey(category, work, copy.instance);
}

using OpenPool = cframes::Opening<ThreadPoolPtr, closePool>;
cframes::Table<sysmaint_pool, OpenPool> pools;

/// The frame of an operation with a key: `operation` gets the pool and the key.
template <class Operation>
std::int32_t withKey(const char* function, sysmaint_pool* pool, const sysmaint_work_key* key,
                     std::uint32_t least, std::uint32_t most, Operation&& operation) noexcept
{
    return status(function, [&] {
        const auto opening = pools().get(pool);
        cframes::requireRunning();
        return operation(**opening, givenKey(key, least, most));
    });
}

/// What the pool runs: calls the caller's function.
long runWork(IThreadContext& context, void* cancelEvent)
{
    const HashMessageW& all = context.getArguments();
    const ParameterW* parameter = nullptr;
    requireSuccess(all.getParameter(kCallParameter, parameter));
    WorkCall call{};
    std::memcpy(&call, parameter->getData(), sizeof call);
    const auto own = MessageHolder::copyOf(HashMessageW(all.getTopicName(), all.getId()));
    for (const auto& [name, value] : all.getParameters())
        if (std::wcscmp(name.c_str(), kCallParameter) != 0)
            requireSuccess(own->as<HashMessageW>().setParameter(name.c_str(), value));
    const cframes::Lent arguments(messages(), own);
    const sysmaint_work work{sizeof work, context.getID(), context.getName(), cancelEvent, arguments.get()};
    const OutsideLibrary outside;
    return call.function(call.context, &work);
}

HashMessageW argumentsOf(sysmaint_message* message, const WorkCall& call)
{
    HashMessageW arguments;
    if (message != nullptr)
        arguments = messages().get(message)->as<HashMessageW>();
    requireSuccess(arguments.setParameter(kCallParameter, &call, sizeof call));
    return arguments;
}
} // namespace

std::int32_t sysmaint_pool_create(const wchar_t* name, sysmaint_pool** pool)
{
    return cframes::openingStatus(__func__, pools, pool, threadPools, [&] {
        return createPool(PLACE(kHeader, "sysmaint_pool_create", __LINE__), name);
    });
}

std::int32_t sysmaint_pool_open(const wchar_t* name, sysmaint_pool** pool)
{
    return cframes::openingStatus(__func__, pools, pool, threadPools,
                                  [&] { return threadPools().lookup(name); });
}

std::int32_t sysmaint_pool_close(sysmaint_pool* pool)
{
    return status(__func__, [&] { pools().remove(pool)->close(); });
}

std::int32_t sysmaint_pool_create_category(sysmaint_pool* pool, const sysmaint_work_key* key,
                                           const sysmaint_category_options* options)
{
    return withKey(__func__, pool, key, SYSMAINT_SCOPE_CATEGORY, SYSMAINT_SCOPE_CATEGORY,
                   [&](ThreadPool& object, const THPWorkKey& category) {
                       const sysmaint_category_options copy = given(options);
                       requireArguments(copy.is_suspended <= 1);
                       object.createCategory(category, THPCategoryOptions(copy.maximum_threads,
                                                                          copy.is_suspended != 0
                                                                              ? THPCategoryOptions::kSuspended
                                                                              : THPCategoryOptions::kRunning,
                                                                          copy.priority, copy.stack_size));
                   });
}

std::int32_t sysmaint_pool_queue(sysmaint_pool* pool, const sysmaint_work_key* key,
                                 sysmaint_work_callback callback, void* context, sysmaint_message* arguments,
                                 std::uint32_t option, void** instance)
{
    return withKey(__func__, pool, key, SYSMAINT_SCOPE_WORK, SYSMAINT_SCOPE_WORK,
                   [&](ThreadPool& object, const THPWorkKey& work) {
                       requireArguments(callback != nullptr);
                       return object.queueWork(work, &runWork, argumentsOf(arguments, {callback, context}),
                                               static_cast<ITHPWorkItem::ScheduleOption>(option), instance);
                   });
}

std::int32_t sysmaint_pool_suspend(sysmaint_pool* pool, const sysmaint_work_key* key)
{
    return withKey(__func__, pool, key, SYSMAINT_SCOPE_CATEGORY, SYSMAINT_SCOPE_WORK,
                   [](ThreadPool& object, const THPWorkKey& work) { return object.suspendWork(work); });
}

std::int32_t sysmaint_pool_resume(sysmaint_pool* pool, const sysmaint_work_key* key)
{
    return withKey(__func__, pool, key, SYSMAINT_SCOPE_CATEGORY, SYSMAINT_SCOPE_WORK,
                   [](ThreadPool& object, const THPWorkKey& work) { return object.resumeWork(work); });
}

std::int32_t sysmaint_pool_cancel(sysmaint_pool* pool, const sysmaint_work_key* key, std::uint32_t operation)
{
    if (key == nullptr)
        return status(__func__, [&] {
            const auto opening = pools().get(pool);
            requireArguments(operation == SYSMAINT_CANCEL_AND_RETURN);
            cframes::requireRunning();
            return (*opening)->cancelWork();
        });
    return withKey(__func__, pool, key, SYSMAINT_SCOPE_CATEGORY, SYSMAINT_SCOPE_INSTANCE,
                   [&](ThreadPool& object, const THPWorkKey& work) {
                       return object.cancelWork(work, static_cast<IThreadPool::OperationType>(operation));
                   });
}

std::int32_t sysmaint_pool_wait(sysmaint_pool* pool, const sysmaint_work_key* key, std::uint32_t timeout,
                                void* extra)
{
    return withKey(
        __func__, pool, key, SYSMAINT_SCOPE_CATEGORY, SYSMAINT_SCOPE_INSTANCE,
        [&](ThreadPool& object, const THPWorkKey& work) { return object.wait(work, timeout, extra); });
}

std::int32_t sysmaint_pool_result(sysmaint_pool* pool, const sysmaint_work_key* key, std::int32_t* result)
{
    return withKey(__func__, pool, key, SYSMAINT_SCOPE_WORK, SYSMAINT_SCOPE_INSTANCE,
                   [&](ThreadPool& object, const THPWorkKey& work) {
                       requireArguments(result != nullptr);
                       long found = 0;
                       requireSuccess(object.getResult(work, found));
                       *result = found;
                   });
}

std::int32_t sysmaint_pool_is_running(sysmaint_pool* pool, const sysmaint_work_key* key,
                                      std::int32_t* running)
{
    return withKey(__func__, pool, key, SYSMAINT_SCOPE_CATEGORY, SYSMAINT_SCOPE_INSTANCE,
                   [&](ThreadPool& object, const THPWorkKey& work) {
                       requireArguments(running != nullptr);
                       *running = object.isRunning(work) ? 1 : 0;
                   });
}

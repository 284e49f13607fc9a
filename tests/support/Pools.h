#pragma once

#include "core/win32/utils/communication/api.h"
#include "core/win32/utils/threadpool/api.h"
#include "support/Process.h"

using Option = ITHPWorkItem::ScheduleOption;
using Operation = IThreadPool::OperationType;

inline constexpr unsigned long kCategory = 1;
inline const THPCategoryOptions kOneThread(1, 0, 0, 0);

/// Work that the test defines.
struct Work : ITHPWorkItem
{
    explicit Work(std::function<long(IThreadContext&, HANDLE)> what) : body(std::move(what)) {}
    explicit Work(const std::function<void()>& what)
        : body([what](IThreadContext&, HANDLE) -> long { return what(), ERROR_SUCCESS; })
    {
    }
    long operator()(IThreadContext& context, void* cancel) override { return body(context, cancel); }
    std::function<long(IThreadContext&, HANDLE)> body;
};

/// Work that blocks until it is released or cancelled, and counts its starts.
struct Blocker : Work
{
    Blocker()
        : Work([this](IThreadContext&, HANDLE cancel) -> long {
              ++begun;
              started.set();
              const HANDLE events[] = {cancel, goOn.get()};
              WaitForMultipleObjects(2, events, FALSE, INFINITE);
              ++ended;
              return ERROR_SUCCESS;
          })
    {
    }
    std::atomic<int> begun{0}, ended{0};
    TestEvent started, goOn;
};

/// A pool with one category, closed at the end of the scope.
struct TestPool
{
    explicit TestPool(const THPCategoryOptions& options = kOneThread, const wchar_t* name = L"test pool")
        : handle(THPCreateThreadPool(name))
    {
        EXPECT_EQ(THPCreateCategory(handle, kCategory, options), ERROR_SUCCESS);
    }
    TestPool(TestPool&&) = delete;
    ~TestPool() { close(); }

    void close()
    {
        EXPECT_TRUE(handle == nullptr || THPCloseThreadpool(std::exchange(handle, nullptr)) != 0);
    }
    long queue(unsigned long work, ITHPWorkItem& item, Option option = Option::AtEnd,
               void** instance = nullptr, unsigned long category = kCategory) const
    {
        return THPQueueWork(handle, category, work, item, HashMessageW(), option, instance);
    }
    [[nodiscard]] bool begins(unsigned long work, Blocker& item, Option option = Option::AtEnd) const
    {
        return queue(work, item, option) == ERROR_SUCCESS && item.started.wait();
    }
    [[nodiscard]] long run(unsigned long work, ITHPWorkItem& item) const
    {
        const long code = queue(work, item);
        return code == ERROR_SUCCESS ? wait(work) : code;
    }
    [[nodiscard]] long wait(unsigned long work, unsigned long timeout = 60000, HANDLE extra = nullptr) const
    {
        return THPWait(handle, kCategory, work, timeout, extra);
    }
    [[nodiscard]] long cancel(unsigned long work, Operation operation = Operation::CancelAndWait) const
    {
        return THPCancelWork(handle, kCategory, work, operation);
    }
    [[nodiscard]] long result(unsigned long work) const
    {
        long result = -1;
        EXPECT_EQ(THPGetWorkResult(handle, kCategory, work, result), ERROR_SUCCESS);
        return result;
    }
    [[nodiscard]] int isRunning(unsigned long work) const
    {
        int running = -1;
        EXPECT_EQ(THPIsRunning(handle, kCategory, work, running), ERROR_SUCCESS);
        return running;
    }
    void* handle;
};

/// Handles messages as the test defines, or records which operation was called.
template <class Base>
struct Recorder : Base
{
    using Body = std::function<void(const MessageW&, std::uint32_t)>;
    Recorder() = default;
    explicit Recorder(Body what) : body(std::move(what)) {}
    explicit Recorder(const std::function<void()>& what)
        : body([what](const MessageW&, std::uint32_t) { what(); })
    {
    }
    void record(const std::string& operation, const MessageW& message, MessageW& reply, std::uint32_t value,
                void* context)
    {
        ++calls;
        if (body)
            return body(message, value);
        called = operation;
        lastContext = context;
        reply.setId(message.getId() + 1);
    }
    Body body;
    std::string called;
    void* lastContext = nullptr;
    std::atomic<int> calls{0};
};
template <class Base, class Type>
struct Takes : Base
{
    using Base::Base;
    using Base::onMessage;
    void onMessage(const Type& message, Type& reply, void* context) override
    {
        this->record(typeid(Type).name(), message, reply, 0xFFFFFFFF, context);
    }
    void onMessage(const Type& message, Type& reply, std::uint32_t value, void* context) override
    {
        this->record(typeid(Type).name() + std::string(" value"), message, reply, value, context);
    }
};
template <class Base>
using TakesAll = Takes<Takes<Takes<Takes<Base, MessageW>, DataMessage>, ArrayMessage>, HashMessageW>;
using Handler = TakesAll<Recorder<IMessageHandler>>;
using Filter = TakesAll<Recorder<MessageFilter>>;

/// A topic with one subscriber, which must outlive it.
inline TopicHandle topicOf(IMessageHandler& handler)
{
    TopicHandle topic = CreateMessageTopic(L"test topic");
    EXPECT_EQ(TopicSubscribe(topic, handler), ERROR_SUCCESS);
    return topic;
}
inline long post(const TopicHandle& topic, std::uint32_t id = 0)
{
    return TopicPostMessage(topic, MessageW(L"topic", id));
}
inline long send(const TopicHandle& topic, std::uint32_t id = 0)
{
    MessageW reply;
    return TopicSendMessage(topic, MessageW(L"topic", id), reply, nullptr);
}

/// Creates what the process keeps of pools and topics before any test counts.
struct PoolsWarmUp : testing::Environment
{
    void SetUp() override
    {
        Handler handler([] { throw 1L; });
        const TopicHandle topic = topicOf(handler);
        EXPECT_EQ(post(topic), ERROR_SUCCESS);
        EXPECT_EQ(TopicConsumeAll(topic, 60000), ERROR_SUCCESS);
    }
};
inline testing::Environment* const poolsWarmUp = testing::AddGlobalTestEnvironment(new PoolsWarmUp);

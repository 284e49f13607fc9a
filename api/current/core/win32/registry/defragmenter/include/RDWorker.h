#pragma once

#include <windows.h>

#include <functional>

#include "core/win32/registry/defragmenter/include/RDHiveItem.h"
#include "core/win32/utils/objectmanager/include/SharedPtr.h"
#include "win32/communication/include/ConsumerQueue.h"
#include "win32/threadpool/include/ITHPWorkItem.h"

/// The work of an analysis: consumes the queue of hives. An empty pointer marks the end of the queue.
struct IRDWorker : ITHPWorkItem
{
    using Item = SharedPtr<RDHiveItem>;
    using Queue = ConsumerQueue<Item>;

    /// Analyzes one hive. Returns whether to continue. Raises std::bad_alloc.
    virtual bool consumeItem(const Item& item) = 0;
};

/// See IRDWorker. Query its results after the run.
class RDWorker final : public IRDWorker
{
public:
    /// What is called after each hive; may be empty. Returns whether to go on.
    using AfterHive = std::function<bool()>;

    /// The references must outlive the run.
    RDWorker(Queue& queue, HANDLE stopEvent, const AfterHive& afterHive) noexcept
        : m_queue(queue), m_stopEvent(stopEvent), m_afterHive(afterHive)
    {
    }

    long operator()(IThreadContext& context, void* cancelEvent) override;
    bool consumeItem(const Item& item) override;

    /// Whether the stop event stopped it, or what is called after each hive.
    [[nodiscard]] bool isStopped() const noexcept { return m_isStopped; }
    /// Whether it reached the end of the queue.
    [[nodiscard]] bool isComplete() const noexcept { return m_isComplete; }
    /// The code of the first hive that failed, or 0.
    [[nodiscard]] long getFirstFailure() const noexcept { return m_firstFailure; }

private:
    void addFailure(RDHiveItem& item, long code, const wchar_t* report);

    Queue& m_queue;
    HANDLE m_stopEvent;
    const AfterHive& m_afterHive;
    bool m_isStopped = false;
    bool m_isComplete = false;
    long m_firstFailure = ERROR_SUCCESS;
};

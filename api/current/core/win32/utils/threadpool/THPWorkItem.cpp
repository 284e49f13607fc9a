#include "core/win32/utils/threadpool/include/THPWorkItem.h"

namespace {
void* nextInstance() noexcept
{
    static std::atomic<std::uintptr_t> last{0};
    return reinterpret_cast<void*>(++last);
}

const THPWorkCall& checked(const THPWorkCall& call)
{
    const bool complete =
        call.kind == THPWorkCall::kFunction ? call.function != nullptr : call.kind == THPWorkCall::kObject;
    if (!complete)
        throw Exception(PLACE(kTHPWorkItemHeader, "THPWorkItem::THPWorkItem", __LINE__),
                        ERROR_INVALID_PARAMETER);
    return call;
}
} // namespace

bool signalEvent(HANDLE event) noexcept
{
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (SetEvent(event))
            return true;
    }
    return false;
}

Win32Handle EventCache::take() noexcept
{
    {
        const WriteLocker locker(m_lock);
        if (!m_events.empty()) {
            Win32Handle event = std::move(m_events.back());
            m_events.pop_back();
            return event;
        }
    }
    return Win32Handle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

void EventCache::giveBack(Win32Handle event) noexcept
{
    if (!ResetEvent(event.get()))
        return; // nobody can use it: it is closed
    const WriteLocker locker(m_lock);
    if (m_events.size() < kKept)
        m_events.push_back(std::move(event));
}

THPWorkItem::THPWorkItem(const THPWorkKey& key, const THPWorkCall& call, const HashMessageW& arguments,
                         ScheduleOption option, const SharedPtr<EventCache>& events)
    : m_work(key.work.value()), m_call(checked(call)), m_arguments(arguments), m_option(option),
      m_instance(nextInstance()), m_events(events)
{
}

THPWorkItem::~THPWorkItem()
{
    if (m_done.isValid())
        m_events->giveBack(std::move(m_done));
}

void* THPWorkItem::getUserData() const
{
    return m_call.kind == THPWorkCall::kObject ? m_call.object->getUserData() : &m_arguments;
}

long THPWorkItem::operator()(IThreadContext& context, void* cancelEvent)
{
    return m_call.kind == THPWorkCall::kObject ? (*m_call.object)(context, cancelEvent)
                                               : m_call.function(context, cancelEvent);
}

void THPWorkItem::releaseArguments() noexcept
{
    const OutsideLibrary outside;
    m_arguments.clearParameters();
}

void THPWorkItem::complete(State state, long status) noexcept
{
    m_state = state;
    m_status = status;
    m_thread = 0;
    if (m_done.isValid())
        signalEvent(m_done.get());
}

HANDLE THPWorkItem::getDoneEvent() noexcept
{
    if (!m_done.isValid())
        m_done = m_events->take();
    return m_done.get();
}

#include "core/win32/utils/threadpool/include/THPThread.h"

#include <memory>

#include "core/win32/utils/threadpool/include/THPCategory.h"
#include "core/win32/utils/threadpool/include/ThreadContext.h"

namespace {
/// Where each thread keeps which worker it is.
class CurrentThreadSlot
{
public:
    CurrentThreadSlot() noexcept : m_index(TlsAlloc()) {}
    CurrentThreadSlot(const CurrentThreadSlot&) = delete;
    CurrentThreadSlot& operator=(const CurrentThreadSlot&) = delete;
    ~CurrentThreadSlot() { TlsFree(m_index); }

    void set(THPThread* thread) const noexcept { TlsSetValue(m_index, thread); }
    [[nodiscard]] THPThread* get() const noexcept
    {
        const DWORD lastError = GetLastError();
        auto* thread = static_cast<THPThread*>(TlsGetValue(m_index));
        SetLastError(lastError); // the call clears it
        return thread;
    }

private:
    DWORD m_index;
} currentThread;
} // namespace

/// What a thread takes over when it begins: all that must live as long as it does.
struct THPThread::Start
{
    SharedPtr<THPThread> thread;
    SharedPtr<THPCategory> owner;
    ModuleHandle module;
};

THPThread* THPThread::current() noexcept
{
    return currentThread.get();
}

long THPThread::createEvents() noexcept
{
    for (Win32Handle* event : {&m_workAvailable, &m_terminate}) {
        event->reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        if (!event->isValid())
            return static_cast<long>(GetLastError());
    }
    return createCancelEvent();
}

long THPThread::createCancelEvent() noexcept
{
    m_cancel.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_cancelStatus = m_cancel.isValid() ? ERROR_SUCCESS : static_cast<long>(GetLastError());
    return m_cancelStatus;
}

long THPThread::start(const SharedPtr<THPThread>& self, const SharedPtr<THPCategory>& owner,
                      const ItemPtr& item, bool stopped)
{
    THPThread& thread = *self;
    const DWORD flags = thread.m_options.creationFlags;
    if (thread.m_state != State::NotStarted || (flags != 0 && flags != CREATE_SUSPENDED))
        return ERROR_INVALID_STATE;
    if (const long code = thread.createEvents(); code != ERROR_SUCCESS)
        return code;

    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                            reinterpret_cast<LPCWSTR>(&THPThread::entry), &module))
        return static_cast<long>(GetLastError());
    std::unique_ptr<Start> start(new Start{self, owner, ModuleHandle(module)});

    // The new thread cannot look at what it has to do before this lock is left, so it either finds its first
    // item or that its start has failed.
    const WriteLocker locker(thread.m_lock);
    if (flags == CREATE_SUSPENDED || stopped)
        thread.m_gate.startSuspended(flags == CREATE_SUSPENDED);
    thread.m_thread.reset(CreateThread(nullptr, static_cast<SIZE_T>(thread.m_options.stackSize),
                                       &THPThread::entry, start.get(), flags, &thread.m_id));
    if (!thread.m_thread.isValid())
        return static_cast<long>(GetLastError());
    static_cast<void>(start.release());
    if (!SetThreadPriority(thread.m_thread.get(), thread.m_options.priority)) {
        const auto code = static_cast<long>(GetLastError());
        thread.m_abandoned = true;
        thread.resume();
        return code;
    }
    thread.m_state = flags == CREATE_SUSPENDED ? State::Suspended : State::Running;
    thread.m_item = item;
    return ERROR_SUCCESS;
}

long THPThread::handOver(const ItemPtr& item) noexcept
{
    setItem(item);
    if (SetEvent(m_workAvailable.get()))
        return ERROR_SUCCESS;
    const auto code = static_cast<long>(GetLastError());
    clearItem();
    return code;
}

void THPThread::setItem(const ItemPtr& item) noexcept
{
    const WriteLocker locker(m_lock);
    m_item = item;
}

THPThread::ItemPtr THPThread::getItem() noexcept
{
    const ReadLocker locker(m_lock);
    return m_item;
}

long THPThread::suspend() noexcept
{
    return isSuspended() ? static_cast<long>(ERROR_INVALID_STATE) : m_gate.suspend(m_thread.get());
}

long THPThread::cancel() noexcept
{
    return SetEvent(m_cancel.get()) ? ERROR_SUCCESS : static_cast<long>(GetLastError());
}

bool THPThread::takeCancel() noexcept
{
    const bool cancelled = m_cancel.isValid() && WaitForSingleObject(m_cancel.get(), 0) == WAIT_OBJECT_0;
    if (!m_cancel.isValid() || (cancelled && !ResetEvent(m_cancel.get())))
        createCancelEvent(); // the old one would cancel the next item too
    return cancelled;
}

DWORD WINAPI THPThread::entry(void* parameter)
{
    if (parameter == nullptr)
        return ERROR_INVALID_PARAMETER;
    ModuleHandle module;
    long code;
    {
        const std::unique_ptr<Start> start(static_cast<Start*>(parameter));
        module = std::move(start->module);
        code = start->thread->loop(*start->owner);
        currentThread.set(nullptr);
    }
    FreeLibraryAndExitThread(module.release(), static_cast<DWORD>(code));
}

long THPThread::loop(THPCategory& owner)
{
    {
        const ReadLocker locker(m_lock); // held by start until it is decided
        if (m_abandoned)
            return ERROR_CANCELLED;
    }
    currentThread.set(this);
    bool hasWork = true;
    for (;;) {
        const bool ending = WaitForSingleObject(m_terminate.get(), 0) == WAIT_OBJECT_0;
        if (!hasWork && !ending) {
            const long code = waitForWork();
            if (code == ERROR_CANCELLED)
                continue; // the poll above finds out
            if (code != ERROR_SUCCESS && owner.retire(*this))
                return code;
        }
        if (const ItemPtr item = getItem(); item)
            hasWork = owner.workDone(*this, item, ending ? ERROR_CANCELLED : run(*item));
        else if (ending)
            return ERROR_SUCCESS;
        else
            hasWork = false;
    }
}

long THPThread::waitForWork() noexcept
{
    const HANDLE events[] = {m_workAvailable.get(), m_terminate.get()};
    switch (WaitForMultipleObjects(2, events, FALSE, INFINITE)) {
    case WAIT_OBJECT_0:
        // If this fails the next wait ends at once, finds nothing, and tries again.
        ResetEvent(m_workAvailable.get());
        return ERROR_SUCCESS;
    case WAIT_OBJECT_0 + 1:
        return ERROR_CANCELLED;
    default:
        return static_cast<long>(GetLastError());
    }
}

long THPThread::run(THPWorkItem& item) noexcept
{
    if (!m_cancel.isValid())
        return m_cancelStatus;
    ThreadContext context(item);
    const OutsideLibrary outside;
    return boundary::statusFrame([&] { return item(context, m_cancel.get()); });
}

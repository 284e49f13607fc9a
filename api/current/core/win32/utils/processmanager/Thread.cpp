#include "core/win32/utils/processmanager/include/Thread.h"

#include <algorithm>

#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/time/include/Time.h"

ObjectTable<SharedPtr<Thread>> threadObjects(50);

namespace {
constexpr DWORD kFailed = static_cast<DWORD>(-1); // of SuspendThread and ResumeThread
} // namespace

std::wstring Thread::defaultName(const ThreadEntry& entry)
{
    return std::to_wstring(entry.id) + L"@" + std::to_wstring(entry.startTime);
}

Win32Handle Thread::open(DWORD access) const
{
    Win32Handle thread(
        ::OpenThread(access | THREAD_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, m_entry.id));
    if (!thread.isValid()) {
        const long code = lastError();
        raiseCode(code == ERROR_INVALID_PARAMETER ? static_cast<long>(ERROR_NOT_FOUND) : code);
    }
    FILETIME started, exited, kernel, user;
    if (m_entry.startTime == 0 || !GetThreadTimes(thread.get(), &started, &exited, &kernel, &user))
        raiseCode(ERROR_ACCESS_DENIED);
    if (timetext::number(started) != m_entry.startTime || GetThreadId(thread.get()) != m_entry.id ||
        GetProcessIdOfThread(thread.get()) != m_entry.processId || isSignalled(thread.get()))
        raiseCode(ERROR_NOT_FOUND);
    return thread;
}

Win32Handle Thread::openUnprotected() const
{
    Win32Handle thread = open(THREAD_SUSPEND_RESUME); // while it is held, its process keeps its id
    const ProcessSnapshot snapshot;
    const ProcessEntry* const process = snapshot.find(m_entry.processId);
    if (process == nullptr)
        raiseCode(ERROR_NOT_FOUND);
    protection::requireUnprotected(Process(*process).open(0).get(), process->id, process->name);
    return thread;
}

ThreadEntry Thread::details() const
{
    const Win32Handle thread = open(0);
    const ProcessSnapshot snapshot;
    const auto& threads = snapshot.getThreads();
    const auto found = std::find_if(threads.begin(), threads.end(),
                                    [&](const ThreadEntry& each) { return each.id == m_entry.id; });
    if (found == threads.end())
        raiseCode(ERROR_NOT_FOUND);
    return *found;
}

bool Thread::isRunning() const
{
    try {
        static_cast<void>(open(0));
        return true;
    } catch (long code) {
        if (code != ERROR_NOT_FOUND)
            throw;
        return false;
    }
}

void Thread::wait(unsigned long timeout, HANDLE cancelEvent) const
{
    requireEvent(cancelEvent);
    const long code = waitForEvent(open(0).get(), timeout, cancelEvent);
    requireSuccess(code == WAIT_TIMEOUT ? static_cast<long>(ERROR_TIMEOUT) : code);
}

unsigned long Thread::suspend() const
{
    const DWORD before = SuspendThread(openUnprotected().get());
    if (before == kFailed)
        raiseLastError();
    return before;
}

unsigned long Thread::resume() const
{
    const DWORD before = ResumeThread(openUnprotected().get());
    if (before == kFailed)
        raiseLastError();
    return before;
}

void Thread::setPriority(long priority) const
{
    if (!SetThreadPriority(open(THREAD_SET_INFORMATION).get(), static_cast<int>(priority)))
        raiseLastError();
}

#include "core/win32/utils/listeners/include/MessageReporter.h"

#include <cstring>

#include "core/win32/utils/objectmanager/include/Boundary.h"

namespace {
constexpr DWORD kPause = 200; // milliseconds after a failure

const ReporterOptions& checked(const ReporterOptions& options)
{
    const bool isMode = options.mode == ReportMode::Queue || options.mode == ReportMode::Send;
    if (!isMode || options.timeout == 0 || options.mostWaiting == 0)
        raiseCode(ERROR_INVALID_PARAMETER);
    return options;
}
} // namespace

/// The only thread that uses the link. Waits for its turn as long as the limits allow.
class ReportLine::Turn
{
public:
    Turn(ReportLine& line, const WaitLimits& limits) : m_line(line)
    {
        const WriteLocker locker(line.m_lock);
        while (line.m_taken && !line.m_stopped) {
            if (limits.deadline.getLeft() == 0)
                raiseCode(WAIT_TIMEOUT);
            line.m_lock.waitWrite(line.m_changed, limits.deadline.getLeft());
        }
        if (line.m_stopped)
            raiseCode(ERROR_CANCELLED);
        line.m_taken = true;
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn()
    {
        const WriteLocker locker(m_line.m_lock);
        m_line.m_taken = false;
        WakeAllConditionVariable(&m_line.m_changed);
    }

private:
    ReportLine& m_line;
};

ReportLine::ReportLine(void* connection, const ReporterOptions& options)
    : m_options(checked(options)), m_link(connection)
{
}

void ReportLine::add(Bytes request)
{
    const WriteLocker locker(m_lock);
    if (m_stopped)
        raiseCode(ERROR_CANCELLED);
    const std::size_t size = request.size();
    const bool isTooMuch = size > m_options.mostWaiting || m_bytes > m_options.mostWaiting - size;
    if (isTooMuch && !m_queue.empty())
        raiseCode(linkprotocol::kTryLater);
    const std::uint64_t number = m_lastNumber + 1;
    std::memcpy(request.data() + offsetof(linkprotocol::Request, number), &number, sizeof number);
    const bool isWaitedFor = m_queue.empty();
    m_queue.push_back(std::move(request));
    m_bytes += size;
    m_lastNumber = number;
    if (isWaitedFor)
        WakeAllConditionVariable(&m_changed);
}

void ReportLine::note(long code) noexcept
{
    const WriteLocker locker(m_lock);
    count(code);
}

void ReportLine::count(long code) noexcept
{
    if (code == ERROR_SUCCESS) {
        ++m_state.delivered;
        return;
    }
    ++m_state.refused;
    m_state.refusal = code;
}

// Returns the peer's code.
long ReportLine::exchange(const Bytes& request, AnyMessage& reply)
{
    const WaitLimits limits(Deadline(waitLimit(m_options.timeout)), m_stopEvent.get());
    const Turn turn(*this, limits); // refused once the event is signalled
    long answer = ERROR_SUCCESS;
    const long code = boundary::statusOf([&]() -> long {
        answer = m_link.exchange(request, limits, reply);
        return ERROR_SUCCESS;
    });
    {
        const WriteLocker locker(m_lock);
        m_state.connection = code;
    }
    requireSuccess(code);
    return answer;
}

void ReportLine::pause() noexcept
{
    const Deadline deadline(kPause);
    while (!m_stopped && deadline.getLeft() != 0)
        m_lock.waitWrite(m_changed, deadline.getLeft());
}

void ReportLine::endFlushes() noexcept
{
    for (const Win32Handle& event : m_flushing)
        static_cast<void>(signalSurely(event.get()));
}

// The message stays at the front until the peer has answered. Others may be put behind it meanwhile.
void ReportLine::forwardFirst() noexcept
{
    const Bytes& request = m_queue.front();
    bool failed = true;
    m_lock.unlockWrite();
    const long code = boundary::statusOf([&] {
        AnyMessage reply;
        const long answer = exchange(request, reply);
        failed = answer == linkprotocol::kTryLater;
        return answer;
    });
    m_lock.lockWrite();
    if (failed) {
        m_state.connection = code;
        pause();
        return;
    }
    count(code);
    m_bytes -= request.size();
    m_queue.pop_front();
    if (m_queue.empty())
        endFlushes();
}

void ReportLine::forward() noexcept
{
    const WriteLocker locker(m_lock);
    while (!m_stopped) {
        if (m_queue.empty())
            m_lock.waitWrite(m_changed, INFINITE);
        else
            forwardFirst();
    }
}

long ReportLine::flush(const WaitLimits& limits)
{
    std::list<Win32Handle> event;
    event.push_back(makeEvent());
    const HANDLE emptied = event.front().get();
    const auto at = event.begin();
    {
        const WriteLocker locker(m_lock);
        if (m_queue.empty() || m_stopped)
            return m_queue.empty() ? ERROR_SUCCESS : ERROR_CANCELLED;
        m_flushing.splice(m_flushing.end(), event);
    }
    const long code = limits.wait(emptied);
    const WriteLocker locker(m_lock);
    event.splice(event.end(), m_flushing, at);
    return code == ERROR_SUCCESS && m_stopped && !m_queue.empty() ? long{ERROR_CANCELLED} : code;
}

ReporterState ReportLine::getState() noexcept
{
    const ReadLocker locker(m_lock);
    ReporterState state = m_state;
    state.waiting = m_queue.size();
    return state;
}

void ReportLine::close() noexcept
{
    const bool isTold = signalSurely(m_stopEvent.get());
    const Deadline deadline(waitLimit(INFINITE));
    const WriteLocker locker(m_lock);
    m_stopped = true;
    endFlushes();
    WakeAllConditionVariable(&m_changed);
    while (isTold && m_taken && deadline.getLeft() != 0)
        m_lock.waitWrite(m_changed, deadline.getLeft());
    if (!m_taken)
        m_link.end();
}

MessageReporter::MessageReporter(void* connection, const ReporterOptions& options)
    : m_line(std::make_shared<ReportLine>(connection, options))
{
    if (options.mode == ReportMode::Queue)
        m_threads.start([line = m_line] { line->forward(); });
}

long MessageReporter::flush(unsigned long timeout, void* cancelEvent) noexcept
{
    return boundary::statusFrame([&] { return m_line->flush(WaitLimits::ofEvent(timeout, cancelEvent)); });
}

void MessageReporter::end() noexcept
{
    if (isProcessEnding())
        return;
    const InsideLibrary inside;
    m_line->close();
    m_threads.wait();
}

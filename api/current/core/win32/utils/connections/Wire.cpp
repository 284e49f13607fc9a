#include "core/win32/utils/connections/include/Wire.h"

namespace {
constexpr std::size_t kLargestPiece = 1U << 30U; // the system counts the bytes of one call in 32 bits
} // namespace

/// The only reader or the only writer.
class Wire::Turn
{
public:
    explicit Turn(std::atomic<bool>& taken) : m_taken(taken)
    {
        if (taken.exchange(true))
            raiseCode(ERROR_BUSY);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() { m_taken = false; }

private:
    std::atomic<bool>& m_taken;
};

template <class Begin>
DWORD Wire::transfer(HANDLE event, const WaitLimits& limits, Begin&& begin)
{
    if (m_closed)
        raiseCode(ERROR_NOT_CONNECTED);
    OverlappedCall call(event);
    const long begun = begin(call.get());
    // Who closes the wire says so first and cancels then: either that reaches this operation, or we see it.
    if (m_closed)
        CancelIoEx(getHandle(), &call.get());
    DWORD done = 0;
    const long code = call.finish(getHandle(), begun, limits, done,
                                  [this](OVERLAPPED& ended, DWORD& count) { return resultOf(ended, count); });
    if (code != ERROR_SUCCESS)
        raiseCode(m_closed ? static_cast<long>(ERROR_NOT_CONNECTED) : code);
    return done;
}

std::size_t Wire::readSome(void* target, std::size_t size, const WaitLimits& limits)
{
    const Turn turn(m_reading);
    const auto piece = static_cast<DWORD>(std::min(size, kLargestPiece));
    const DWORD done = transfer(m_readEvent->get(), limits,
                                [&](OVERLAPPED& overlapped) { return beginRead(target, piece, overlapped); });
    if (done == 0)
        raiseCode(ERROR_BROKEN_PIPE);
    return done;
}

void Wire::readAll(void* target, std::size_t size, const WaitLimits& limits)
{
    auto* at = static_cast<unsigned char*>(target);
    for (std::size_t done = 0; done < size;) {
        try {
            done += readSome(at + done, size - done, limits);
        } catch (long) {
            if (done != 0)
                close();
            throw;
        }
    }
}

void Wire::writeAll(const void* source, std::size_t size, const WaitLimits& limits)
{
    const Turn turn(m_writing);
    const auto* at = static_cast<const unsigned char*>(source);
    try {
        if (!m_writeEvent.isValid())
            m_writeEvent = makeEvent();
        for (std::size_t done = 0; done < size;) {
            const auto piece = static_cast<DWORD>(std::min(size - done, kLargestPiece));
            done += transfer(m_writeEvent.get(), limits, [&](OVERLAPPED& overlapped) {
                return beginWrite(at + done, piece, overlapped);
            });
        }
    } catch (long) {
        close();
        throw;
    }
}

void Wire::close() noexcept
{
    if (m_closed.exchange(true))
        return;
    CancelIoEx(getHandle(), nullptr);
    endWriting();
}

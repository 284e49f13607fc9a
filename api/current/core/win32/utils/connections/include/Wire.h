#pragma once

#include <windows.h>

#include <atomic>
#include <memory>

#include "core/win32/utils/connections/include/OverlappedCall.h"

/// An established stream of bytes to a peer: a pipe's end or a socket. One thread may read while another
/// writes. The operations raise bare codes; 170 when another thread is at the same.
class Wire
{
public:
    /// `event` is for its operations, of which none is under way.
    explicit Wire(EventPtr event) noexcept : m_readEvent(std::move(event)) {}
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;
    virtual ~Wire() = default;

    /// Reads what has arrived, at least one byte. Raises 109 when the peer has closed. Of a read that ends
    /// for another reason nothing is lost.
    std::size_t readSome(void* target, std::size_t size, const WaitLimits& limits);
    /// Reads exactly so many bytes. When it fails in the middle the wire is closed: nobody would know where
    /// to go on.
    void readAll(void* target, std::size_t size, const WaitLimits& limits);
    /// Writes all bytes. When it fails the wire is closed: nobody can tell how much the peer has got.
    void writeAll(const void* source, std::size_t size, const WaitLimits& limits);
    /// False when nothing has arrived that could be read now, other than the peer's end perhaps. One call of
    /// the system, where a read that gives up at once takes several.
    [[nodiscard]] virtual bool hasArrived() noexcept { return true; }
    /// Ends what other threads wait for; nothing is read or written any more. The system's object lives as
    /// long as this one.
    void close() noexcept;
    [[nodiscard]] bool isClosed() const noexcept { return m_closed; }

protected:
    /// Begins to read or to write. Returns 0, 997 when it is on its way, or the code.
    virtual long beginRead(void* target, DWORD size, OVERLAPPED& overlapped) noexcept = 0;
    virtual long beginWrite(const void* source, DWORD size, OVERLAPPED& overlapped) noexcept = 0;
    /// Waits for the end of an operation. Returns 0, 109 when the peer has closed, or the code.
    virtual long resultOf(OVERLAPPED& overlapped, DWORD& done) noexcept = 0;
    [[nodiscard]] virtual HANDLE getHandle() const noexcept = 0;
    /// Tells the peer that nothing more comes, where that is not what closing the handle does.
    virtual void endWriting() noexcept {}

private:
    class Turn;
    template <class Begin>
    DWORD transfer(HANDLE event, const WaitLimits& limits, Begin&& begin);

    EventPtr m_readEvent;
    Win32Handle m_writeEvent; // made by the first write
    std::atomic<bool> m_reading{false};
    std::atomic<bool> m_writing{false};
    std::atomic<bool> m_closed{false};
};

using WirePtr = std::shared_ptr<Wire>;

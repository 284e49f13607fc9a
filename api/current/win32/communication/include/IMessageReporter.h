#pragma once

#include "win32/communication/include/IMessageHandler.h"

/// What a reporter does with a message that its topic delivers.
enum class ReportMode : unsigned long
{
    /// Queues it and returns at once; a thread of the reporter forwards what is queued, in order. The peer's
    /// listener posts it. The delivery never fails: what cannot be queued is counted in ReporterState.
    Queue = 0,
    /// Forwards it on the delivering thread, one message at a time, and waits for the answer of the peer's
    /// handlers, which becomes the reply. What fails becomes the code of the delivery.
    Send = 1,
};

/// How a reporter works.
struct ReporterOptions
{
    ReportMode mode = ReportMode::Queue;
    unsigned long timeout = 30000; ///< milliseconds for one message: connecting, forwarding and the answer
    /// Bytes of the messages that may wait in the queue; a larger message is queued when no other waits.
    unsigned long long mostWaiting = 16ULL << 20U;
};

/// What has become of a reporter's messages. Every message that reached the reporter is in one of the three
/// counts; those that a listener of this process delivered never reach it.
struct ReporterState
{
    unsigned long long delivered = 0; ///< the peer has posted them, or its handlers have answered
    unsigned long long waiting = 0;   ///< queued
    unsigned long long refused = 0;   ///< the queue was full, or the message or its forwarding failed
    long refusal = 0;                 ///< the code of the latest of those
    long connection = 0;              ///< why forwarding does not succeed at the moment; 0: it does, or idles
};

/// A handler that forwards what a topic delivers to the listener of another process. The caller subscribes it
/// like any other handler, and unsubscribes it before destroying it with `delete`, which does what stop does.
///
/// What a listener of this process has delivered is not forwarded, so two processes that report the same
/// topic to each other do not echo.
///
/// While the peer is away a queueing reporter tries to connect again and again. A message whose answer got
/// lost with the connection is forwarded once more, and a listener that still knows the reporter posts it
/// only once; it knows the last 1,024 reporters that posted to it. Only a message that was under way while
/// the peer's listener was replaced, or while that many others posted, may arrive twice. A sent message is
/// never repeated after the peer may have got it.
///
/// Codes of a delivery in the mode Send: 258 the time is over; 1223 stopped; 4336 larger than the
/// connection's limit; 13 the answer is not one; 109 the peer was gone before it answered; the connection's
/// codes; what the peer's handlers raised.
struct IMessageReporter : IMessageHandler
{
    /// Waits until nothing is queued. Codes: 0; 258 the time is over; 1223 the cancel event, which may be
    /// null, was signalled, or the reporter was stopped and messages are left; 6 the handle is not an
    /// event's; 8; the system's code for an event that was refused.
    [[nodiscard]] virtual long flush(unsigned long timeout, void* cancelEvent) noexcept = 0;
    [[nodiscard]] virtual ReporterState getState() noexcept = 0;
    /// Ends forwarding at once, for good. Queued messages are not forwarded any more and stay counted (the
    /// first may have arrived, if it was under way); further ones are refused with 1223. Waits until the
    /// reporter's thread has let go of them.
    virtual void stop() noexcept = 0;
};

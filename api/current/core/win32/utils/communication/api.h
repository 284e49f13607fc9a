#pragma once

// Message topics: named channels inside the process. A handler object subscribed to a topic receives every
// message that is sent or posted to it; filters receive it before the handlers do.
//
// Status functions return a Win32 code. Besides their own codes: 8 when memory runs out, 6 for a topic handle
// that is not open, 1115 at the end of the process, when the other threads are gone and there is nothing to
// wait for. A failing call queues and delivers nothing, unless stated otherwise. In a thread that holds the
// loader lock, in the start or the end of a module, each call waits at most 5 seconds in all; a handler that
// is still running then goes on, even if the module that its code belongs to is unloaded next.
//
// Sent messages are delivered on the sender's thread, on several threads at once if several send. Posted
// messages are copied, queued and delivered one at a time, in the order of posting, by the topic's consumer:
// work number 0 in category 0 of the thread pool whose name is the topic's followed by "Topic". The consumer
// begins with the first post and then waits for more until it is stopped.
//
// From inside its own operations a handler may subscribe, unsubscribe, send, post, stop the consumer and
// close the topic; no lock of the topic is held meanwhile. A handler that ends its thread (ExitThread) ends
// the delivery: a sent message reaches no further subscribers, and queued messages get a new consumer.

#include <windows.h>

#include "core/win32/utils/communication/plain.h"
#include "core/win32/utils/objectmanager/include/Api.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "win32/communication/include/MessageFilter.h"

/// Closes a handle; nonzero on success, 0 for a handle that is not open. TopicHandle does this by itself.
///
/// Closing the last handle closes the topic, even while calls are in progress. Messages still queued are
/// dropped, and the call waits until the consumer has ended, so no posted message is delivered afterwards. It
/// does not wait for a consumer whose handler makes the call, or whose handler itself waits for the calling
/// thread, in a close or without a limit; then the topic ends with the delivery.
///
/// If the system refuses to signal the consumer's event, the call tries again for 5 seconds. Then it returns
/// 0 with the system's code as the last error: the topic is closed, but a delivery may still be running.
SYSMAINT_API int CloseMessageTopic(void* topic);

/// Owner of one topic handle.
using TopicHandle = SmartHandle<CloseMessageTopic>;

// ---- Topics. A topic known by a number has the name "#" followed by the number in decimal digits. On
// failure the handle is not valid and the thread's last error holds the code: 87 null name, 8, and for
// functions that only open 1168 no such topic.

SYSMAINT_API TopicHandle CreateMessageTopic(const wchar_t* name);
SYSMAINT_API TopicHandle CreateMessageTopic(unsigned long number);
SYSMAINT_API TopicHandle OpenMessageTopic(const wchar_t* name);
SYSMAINT_API TopicHandle OpenMessageTopic(unsigned long number);
/// The topic's name, valid while the topic is open. Codes: 87 null `name`.
SYSMAINT_API long TopicGetNameByHandle(const TopicHandle& topic, const wchar_t** name);

// ---- Subscribers. They are called in the order of their addresses, and must live until they are
// unsubscribed or the topic is gone.

/// Adds a handler or a filter. Subscribing it again has no effect.
SYSMAINT_API long TopicSubscribe(const TopicHandle& topic, IMessageHandler& handler);
SYSMAINT_API long TopicSubscribe(const TopicHandle& topic, MessageFilter& filter);
/// Stops the consumer, waits for it, and removes the subscriber; after the return no delivery reaches it.
/// `timeout`, in milliseconds, covers all waiting together. Queued messages stay queued, and the next post
/// restarts the consumer.
///
/// From inside a delivery of the topic the call does not wait for deliveries: those that other threads have
/// begun with the subscriber may then still be running.
///
/// Codes: 1168 it is not subscribed, and the consumer continues; 258 the time is over, 1131 the call has no
/// limit and a delivery waits for the calling thread in the same way, or 8, and it is still subscribed: if it
/// was the consumer that did not end, only the stop request remains, otherwise messages delivered meanwhile
/// have skipped the subscriber; the pool's.
SYSMAINT_API long TopicUnsubscribe(const TopicHandle& topic, IMessageHandler& handler, unsigned long timeout);
SYSMAINT_API long TopicUnsubscribe(const TopicHandle& topic, MessageFilter& filter, unsigned long timeout);

// ---- Sending: calls each filter and then each handler with the message, on the calling thread. Without a
// value, or with the value 0xFFFFFFFF, the operations without a value are called. `context` is passed on
// untouched. What a subscriber raises ends the delivery and becomes the code of the call.

SYSMAINT_API long TopicSendMessage(const TopicHandle& topic, const MessageW& message, MessageW& reply,
                                   void* context);
SYSMAINT_API long TopicSendMessage(const TopicHandle& topic, const MessageW& message, MessageW& reply,
                                   unsigned long value, void* context);
SYSMAINT_API long TopicSendMessage(const TopicHandle& topic, const DataMessage& message, DataMessage& reply,
                                   void* context);
SYSMAINT_API long TopicSendMessage(const TopicHandle& topic, const DataMessage& message, DataMessage& reply,
                                   unsigned long value, void* context);
SYSMAINT_API long TopicSendMessage(const TopicHandle& topic, const ArrayMessage& message, ArrayMessage& reply,
                                   void* context);
SYSMAINT_API long TopicSendMessage(const TopicHandle& topic, const ArrayMessage& message, ArrayMessage& reply,
                                   unsigned long value, void* context);
SYSMAINT_API long TopicSendMessage(const TopicHandle& topic, const HashMessageW& message, HashMessageW& reply,
                                   void* context);
SYSMAINT_API long TopicSendMessage(const TopicHandle& topic, const HashMessageW& message, HashMessageW& reply,
                                   unsigned long value, void* context);

// ---- Posting: queues a copy of the message, with a value or without one (0xFFFFFFFF). The handlers' reply
// is discarded, and their context is null. What a subscriber raises ends that delivery, and becomes the code
// with which the consumer's work ends; a new consumer continues with the next message.
//
// Codes: the system's for an event or a thread that was refused, the pool's; 487 the topic was closed
// meanwhile, or somebody has closed its pool, which ends its posts for good. If the consumer could not begin
// for one post, a post of another thread at the same time may still have succeeded: its message is delivered
// with the next post.

SYSMAINT_API long TopicPostMessage(const TopicHandle& topic, const MessageW& message);
SYSMAINT_API long TopicPostMessage(const TopicHandle& topic, const MessageW& message, unsigned long value);
SYSMAINT_API long TopicPostMessage(const TopicHandle& topic, const DataMessage& message);
SYSMAINT_API long TopicPostMessage(const TopicHandle& topic, const DataMessage& message, unsigned long value);
SYSMAINT_API long TopicPostMessage(const TopicHandle& topic, const ArrayMessage& message);
SYSMAINT_API long TopicPostMessage(const TopicHandle& topic, const ArrayMessage& message,
                                   unsigned long value);
SYSMAINT_API long TopicPostMessage(const TopicHandle& topic, const HashMessageW& message);
SYSMAINT_API long TopicPostMessage(const TopicHandle& topic, const HashMessageW& message,
                                   unsigned long value);

/// Waits until every queued message has been delivered, for at most `timeout` milliseconds. Codes: 258 the
/// time is over; 1223 the consumer was stopped, and messages are left; 1131 called from inside a posted
/// delivery of the topic, or without a limit while the delivery in progress waits for the calling thread in
/// the same way; the pool's.
///
/// Returns 0 at once when no consumer is running or about to: nothing has been posted, or a stopped consumer
/// has ended. What that one has left is delivered after the next post.
SYSMAINT_API long TopicConsumeAll(const TopicHandle& topic, unsigned long timeout);
/// Stops the consumer after the delivery in progress, without waiting for it. Queued messages stay queued;
/// the next post restarts the consumer, and they are delivered first. Codes: the pool's.
SYSMAINT_API long TopicStopConsumer(const TopicHandle& topic);

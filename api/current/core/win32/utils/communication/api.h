#pragma once

// Message topics: named channels inside the process. A handler object that is subscribed to a topic receives
// every message that is sent or posted to it; filters receive it before the handlers do.
//
// Status functions return a Win32 code. Besides their own: 8 without memory, 6 for a topic handle that is
// not open, 1115 at the end of the process, when the other threads are gone and there is nothing to wait for.
// A call that fails queues and delivers nothing, unless it says so. A thread that holds the loader lock, in
// the start or the end of a module, waits for 5 seconds at most.
//
// Sent messages are delivered on the sender's thread, on several threads at once if several send. Posted
// messages are copied, queued and delivered one at a time, in the order of posting, by the topic's consumer:
// work number 0 in category 0 of the thread pool that has the topic's name followed by "Topic". The consumer
// begins with the first post and then waits for more until it is stopped.
//
// From inside an operation of its own a handler may subscribe, unsubscribe, send, post, stop the consumer
// and close the topic; no lock of the topic's is held meanwhile.

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Api.h"
#include "core/win32/utils/objectmanager/include/SmartHandle.h"
#include "win32/communication/include/MessageFilter.h"

/// Gives a handle back; nonzero on success, 0 for a handle that is not open. TopicHandle calls it by itself.
///
/// The last handle closes the topic, also when calls are under way: the messages that are still queued are
/// dropped, and the call waits until the consumer has ended; so no posted message is being delivered
/// afterwards. Not waited for is a consumer whose handler makes the call, or whose handler waits itself until
/// the calling thread is done, where two handlers close each other's topic; the topic ends with the delivery
/// then.
SYSMAINT_API int CloseMessageTopic(void* topic);

/// Owner of one topic handle.
using TopicHandle = SmartHandle<CloseMessageTopic>;

// ---- Topics. A topic that is known by a number has the name "#" followed by the number in decimal digits.
// Failure is a handle that is not valid, with the code as the thread's last error: 87 null name, 8, and for
// the functions that only open 1168 no such topic.

SYSMAINT_API TopicHandle CreateMessageTopic(const wchar_t* name);
SYSMAINT_API TopicHandle CreateMessageTopic(unsigned long number);
SYSMAINT_API TopicHandle OpenMessageTopic(const wchar_t* name);
SYSMAINT_API TopicHandle OpenMessageTopic(unsigned long number);
/// The topic's name, valid while the topic is open. Codes: 87 null `name`.
SYSMAINT_API long TopicGetNameByHandle(const TopicHandle& topic, const wchar_t** name);

// ---- Subscribers. They are called in the order of their addresses, and must live until they are
// unsubscribed or the topic is gone.

/// Adds a handler or a filter. One that is subscribed already stays so, once.
SYSMAINT_API long TopicSubscribe(const TopicHandle& topic, IMessageHandler& handler);
SYSMAINT_API long TopicSubscribe(const TopicHandle& topic, MessageFilter& filter);
/// Stops the consumer, waits for it, and takes the subscriber out; when this returns no delivery reaches it
/// any more. `timeout`, in milliseconds, is for all waiting together. Messages that are queued stay so, and
/// the next post begins the consumer again.
///
/// From inside a delivery of the topic nothing waits for deliveries: those that other threads have begun
/// with the subscriber may still be under way then.
///
/// Codes: 1168 it is not subscribed, and the consumer goes on; 258 the time is over and it is still
/// subscribed: if it was the consumer that did not end, as if nothing had been asked but to stop it,
/// otherwise what was delivered meanwhile has passed the subscriber over; the pool's.
SYSMAINT_API long TopicUnsubscribe(const TopicHandle& topic, IMessageHandler& handler, unsigned long timeout);
SYSMAINT_API long TopicUnsubscribe(const TopicHandle& topic, MessageFilter& filter, unsigned long timeout);

// ---- Sending: calls each filter and then each handler with the message, on the calling thread. Without a
// value, or with the value 0xFFFFFFFF, the operations without a value are called. `context` is passed
// through untouched. What a subscriber raises ends the delivery and is the code of the call.

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

// ---- Posting: queues a copy of the message, with a value or without one (0xFFFFFFFF). The reply of the
// handlers is dropped, and the context that they get is null. What a subscriber raises ends that delivery and
// the consumer's work with the code; a new consumer goes on with the next message.
//
// Codes: the system's for an event or a thread that was refused, the pool's; 487 the topic was closed
// meanwhile. If the consumer could not begin for one post, a post of another thread at the same time may have
// succeeded all the same: its message is delivered with the next post.

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

/// Waits until every queued message has been delivered, for at most `timeout` milliseconds. Returns 0 at once
/// when there is no consumer. Codes: 258 the time is over; 1223 the consumer was stopped; 1131 called from
/// inside a posted delivery of the topic, which it would wait for; the pool's.
SYSMAINT_API long TopicConsumeAll(const TopicHandle& topic, unsigned long timeout);
/// Stops the consumer after the delivery that is under way, without waiting for it. Messages that are queued
/// stay so; the next post begins the consumer again, and they are delivered first. Codes: the pool's.
SYSMAINT_API long TopicStopConsumer(const TopicHandle& topic);

/// Says whether the object table of a class answers load and dump requests. With `serve` nonzero it is
/// subscribed to the topic "ObjectManager<" class name ">", for example "ObjectManager<ScanItem>", which is
/// created for that; with 0 it is taken off and lets go of the topic. At first no table has a topic: to load
/// the library makes none. Repeating a call has no effect. Whatever is still served when the
/// library is unloaded ends before the tables do.
///
/// Other messages on such a topic than HashMessageW without a value are refused with 87.
///
/// Codes: 87 null name; 1168 no class of that name has a table.
SYSMAINT_API long ServeObjectRequests(const wchar_t* className, int serve);

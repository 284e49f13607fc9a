#pragma once

// What the functions of the C interface share. Each is its frame and one call:
//
//     int32_t sysmaint_validator_count(sysmaint_validator* validator, uint32_t list, uint32_t* count)
//     {
//         return cframes::status(__func__, [&] {
//             cframes::requireArguments(count != nullptr);
//             const auto object = validators().get(validator);
//             *count = object->count(list);
//         });
//     }
//
// - Outputs are stored last, when nothing can fail any more.
// - Every handle comes from a table of its kind (Handles), also those of families whose C++ functions have
//   handles of their own: their objects are held by an `Opening`. Where most functions of a family are plain
//   C already, its C++ handles are passed on (`opened`).
// - A struct is read through `given`, and handed out with its size.
// - A callback is called through `Callback`, which remembers the result that stopped the call.

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <vector>

#include "c/sysmaint.h"
#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "core/win32/utils/objectmanager/include/ProcessEnd.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/Undestroyed.h"
#include "exports/Frames.h"
#include "exports/c/LastFailure.h"
#include "win32/communication/include/ByteStream.h"

namespace cframes {
/// The code that `body` returns or raises, 0 when it returns nothing.
template <class Body>
long codeOf(Body&& body) noexcept
{
    return boundary::statusOf([&]() -> long {
        if constexpr (std::is_void_v<decltype(body())>) {
            body();
            return ERROR_SUCCESS;
        } else {
            return body();
        }
    });
}

/// The frame of every function that returns a status: the code that `body` returns or raises, 0 when it
/// returns nothing. A failure is kept for sysmaint_last_failure under the name `function`.
template <class Body>
std::int32_t status(const char* function, Body&& body) noexcept
{
    const InsideLibrary inside;
    lastfailure::Scope scope;
    const long code = codeOf(body);
    if (code != ERROR_SUCCESS)
        scope.fail(function, code);
    return code;
}

/// Raises 6 for a pseudo-handle as a cancel event: nothing would ever signal the one that stands for this
/// process.
inline void requireNoPseudoHandle(HANDLE cancelEvent)
{
    if (reinterpret_cast<std::intptr_t>(cancelEvent) < 0)
        raiseCode(ERROR_INVALID_HANDLE);
}

/// The code of `body`, which polls the cancel event before it changes anything. A handle that cannot be
/// polled ends `body` as a signalled event does; only then is it looked at.
template <class Body>
long codeOfPolling(HANDLE cancelEvent, Body&& body) noexcept
{
    const long code = codeOf(body);
    return code == ERROR_CANCELLED && cancelEvent != nullptr ? codeOfCancelled(cancelEvent) : code;
}

/// The frame of a function with a cancel event but without a callback, whose result would be no answer to a
/// poll.
template <class Body>
std::int32_t cancellable(const char* function, HANDLE cancelEvent, Body&& body) noexcept
{
    return status(function, [&]() -> long {
        requireNoPseudoHandle(cancelEvent);
        return codeOfPolling(cancelEvent, body);
    });
}

/// Raises 87 unless the arguments are what they must be.
inline void requireArguments(bool given)
{
    if (!given)
        raiseCode(ERROR_INVALID_PARAMETER);
}

/// Raises 1115 at the end of the process, when the threads that work on something are gone.
inline void requireRunning()
{
    if (isProcessEnding())
        raiseCode(ERROR_SHUTDOWN_IN_PROGRESS);
}

/// A copy of a caller's struct, with zeros for the fields that it does not have. Raises 87 for null, and for
/// a size that no version of the struct had: `first` is that of the first version.
template <class Struct>
[[nodiscard]] Struct given(const Struct* argument, std::size_t first = sizeof(Struct))
{
    requireArguments(argument != nullptr && argument->size >= first && argument->size <= sizeof(Struct));
    Struct copy{};
    std::memcpy(&copy, argument, argument->size);
    return copy;
}

/// The same for a struct that may be null: all of it is zero then.
template <class Struct>
[[nodiscard]] Struct givenOrZero(const Struct* argument, std::size_t first = sizeof(Struct))
{
    return argument != nullptr ? given(argument, first) : Struct{};
}

/// Fills a caller's struct, as far as the size goes that it has set.
template <class Struct>
void store(Struct* target, Struct source)
{
    source.size = target->size;
    std::memcpy(target, &source, source.size);
}

/// Stores what a function returned that leaves its code as the last error; raises that code.
inline void opened(void** handle, void* result)
{
    if (result == INVALID_HANDLE_VALUE)
        raiseLastError();
    *handle = result;
}

/// Calls a close function that returns 0 for a handle that is not open, and leaves a code as the last error
/// when something else was wrong. Raises 6, or that code.
template <class Close>
void closed(Close&& close)
{
    SetLastError(ERROR_SUCCESS);
    if (close() == 0)
        raiseCode(lastError() != ERROR_SUCCESS ? lastError() : ERROR_INVALID_HANDLE);
}

/// A copy of a text for the caller.
template <class Char>
[[nodiscard]] Char* copyText(const Char* text)
{
    return static_cast<Char*>(utilitymemory::copyText(std::basic_string_view<Char>(text)).release());
}

/// Hands a copy of bytes to the caller.
inline void storeBytes(const void* data, std::uint64_t length, void** bytes, std::uint64_t* size)
{
    utilitymemory::Owner copy = utilitymemory::allocate(length);
    if (length != 0)
        std::memcpy(copy.get(), data, length);
    *bytes = copy.release();
    *size = length;
}

/// Hands what `dump` writes into a stream to the caller. Raises its code, and 87.
template <class Dump>
void storeDump(void** bytes, std::uint64_t* size, Dump&& dump)
{
    requireArguments(bytes != nullptr && size != nullptr);
    MemoryOutputByteStream stream;
    const long code = boundary::statusOf([&] { return dump(stream); });
    requireSuccess(code != ERROR_WRITE_FAULT ? code : ERROR_NOT_ENOUGH_MEMORY); // what memory lacks
    storeBytes(stream.getData(), stream.getSize(), bytes, size);
}

/// Lets `load` read a caller's bytes, which must be all that it needs. Raises its code, 87 for null, and 13
/// when bytes are left.
template <class Load>
void loadWhole(const void* bytes, std::uint64_t size, Load&& load)
{
    requireArguments(bytes != nullptr);
    MemoryInputByteStream stream(bytes, size);
    requireSuccess(load(stream));
    if (stream.getRemaining() != 0)
        raiseCode(ERROR_INVALID_DATA);
}

/// A caller's function with its context; may be null. Remembers the result that stopped the call.
template <class Function>
class Callback
{
public:
    Callback(Function function, void* context) noexcept : m_function(function), m_context(context) {}

    explicit operator bool() const noexcept { return m_function != nullptr; }
    /// Calls it outside the library. Raises a result other than 0.
    template <class... Arguments>
    void operator()(Arguments... arguments)
    {
        call(arguments...);
        if (m_result != ERROR_SUCCESS)
            raiseCode(m_result);
    }
    /// Calls it and returns whether to go on. Once it has stopped the call it is not called again.
    template <class... Arguments>
    bool call(Arguments... arguments)
    {
        const OutsideLibrary outside;
        return callFromOutside(arguments...);
    }
    /// The same where the thread is outside the library already.
    template <class... Arguments>
    bool callFromOutside(Arguments... arguments)
    {
        const lastfailure::Aside aside;
        if (m_result == ERROR_SUCCESS)
            m_result = m_function(m_context, arguments...);
        return m_result == ERROR_SUCCESS;
    }
    /// The code of the call that it may have stopped.
    [[nodiscard]] long codeOf(long code) const noexcept
    {
        return m_result != ERROR_SUCCESS ? m_result : code;
    }

private:
    Function m_function;
    void* m_context;
    std::int32_t m_result = ERROR_SUCCESS;
};

/// The numbers that make handles unlike all that were given out before, in every table.
[[nodiscard]] inline std::uint64_t nextSerial() noexcept
{
    static std::atomic<std::uint64_t> last{0};
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

/// The open handles of one kind and their objects. A handle is a number that is never used again: a slot, and
/// above it a serial. No operation makes a kernel call. Objects are destroyed outside the lock.
///
/// One line defines a table: `cframes::Table<sysmaint_validator, Validator> validators;`
template <class Handle, class Object>
class Handles
{
public:
    using Pointer = SharedPtr<Object>;

    /// Raises 8.
    [[nodiscard]] Handle* add(const Pointer& object) { return replace(nullptr, object); }

    /// Closes a handle, which may be closed already, and gives its slot to another object, in one step.
    [[nodiscard]] Handle* replace(Handle* handle, Pointer object)
    {
        const WriteLocker locker(m_lock); // `object` is let go of after unlocking
        if (Slot* slot = findSlot(handle)) {
            slot->object.swap(object);
            slot->number = nextSerial() << kSlotBits | (slot->number & kNone);
            return reinterpret_cast<Handle*>(slot->number);
        }
        if (m_free == kNone) {
            if (m_slots.size() == kNone)
                raiseCode(ERROR_NOT_ENOUGH_MEMORY);
            m_slots.emplace_back();
            m_slots.back().nextFree = std::exchange(m_free, m_slots.size() - 1);
        }
        const std::size_t index = m_free;
        Slot& slot = m_slots[index];
        m_free = slot.nextFree;
        slot.object.swap(object);
        slot.number = nextSerial() << kSlotBits | index;
        return reinterpret_cast<Handle*>(slot.number);
    }

    /// Raises 6.
    [[nodiscard]] Pointer get(Handle* handle)
    {
        const ReadLocker locker(m_lock);
        return slotOf(handle).object;
    }

    /// Closes the handle. Raises 6.
    Pointer remove(Handle* handle)
    {
        const WriteLocker locker(m_lock);
        Slot& slot = slotOf(handle);
        slot.number = 0;
        slot.nextFree = std::exchange(m_free, static_cast<std::size_t>(&slot - m_slots.data()));
        Pointer object;
        object.swap(slot.object);
        return object;
    }

    /// The same for a handle that its owner may have closed already.
    Pointer removeIfOpen(Handle* handle) noexcept
    {
        try {
            return remove(handle);
        } catch (...) {
            return Pointer();
        }
    }

private:
    static constexpr unsigned kSlotBits = 24;
    static constexpr std::size_t kNone = (std::size_t{1} << kSlotBits) - 1;

    struct Slot
    {
        std::uint64_t number = 0; // the open handle; 0: none
        Pointer object;
        std::size_t nextFree = kNone;
    };

    Slot* findSlot(Handle* handle) noexcept
    {
        const auto number = reinterpret_cast<std::uint64_t>(handle);
        const std::size_t index = number & kNone;
        return number != 0 && index < m_slots.size() && m_slots[index].number == number ? &m_slots[index]
                                                                                        : nullptr;
    }
    Slot& slotOf(Handle* handle)
    {
        Slot* const slot = findSlot(handle);
        if (slot == nullptr)
            raiseCode(ERROR_INVALID_HANDLE);
        return *slot;
    }

    ReadWriteLock m_lock;
    std::vector<Slot> m_slots;
    std::size_t m_free = kNone;
};

/// A table that outlives the end of the process, when other threads were ended in the middle of anything.
template <class Handle, class Object>
class Table
{
public:
    Handles<Handle, Object>& operator()() noexcept { return m_handles.get(); }

private:
    Undestroyed<Handles<Handle, Object>> m_handles;
};

/// One opening of an object that C++ callers reach by a number of its family's table, and the object itself.
/// The number may be used again when it is closed; a handle of this interface is not.
template <class Pointer, int (*CloseFn)(void*)>
class Opening
{
public:
    /// Takes over what `open` returns, which the table has opened. Raises the last error when that is the
    /// invalid handle, and 6 or 487 when somebody has closed it meanwhile.
    template <class Table, class Open>
    Opening(Table& table, Open&& open) : m_handle(open()) // here, where nothing else can fail meanwhile
    {
        if (m_handle == INVALID_HANDLE_VALUE)
            raiseLastError();
        requireSuccess(table.get(m_handle, m_object));
    }
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;
    ~Opening()
    {
        if (void* handle = m_handle.exchange(INVALID_HANDLE_VALUE); handle != INVALID_HANDLE_VALUE)
            CloseFn(handle);
    }

    [[nodiscard]] auto& operator*() const noexcept { return *m_object; }
    [[nodiscard]] auto* operator->() const noexcept { return m_object.get(); }
    /// The number, which may just be closed.
    [[nodiscard]] void* number() const noexcept { return m_handle; }
    /// Closes it now, while other calls may use the object. Raises 6, or the code that the close left.
    void close()
    {
        closed([&] { return CloseFn(m_handle.exchange(INVALID_HANDLE_VALUE)); });
    }

private:
    std::atomic<void*> m_handle;
    Pointer m_object;
};

/// The frame of a function that opens such an object: `open` returns the number.
template <class Handle, class Object, class Family, class Open>
std::int32_t openingStatus(const char* function, Table<Handle, Object>& table, Handle** handle,
                           Family& family, Open&& open) noexcept
{
    return status(function, [&] {
        requireArguments(handle != nullptr);
        *handle = table().add(makeShared<Object>(family(), open));
    });
}

/// Files what is to begin, then begins it, so that nothing fails once it has begun. Returns its handle.
template <class Handle, class Object, class Begin>
[[nodiscard]] Handle* addAndBegin(Table<Handle, Object>& table, const SharedPtr<Object>& made, Begin&& begin)
{
    Handle* const handle = table().add(made);
    try {
        begin(*made);
    } catch (...) {
        table().removeIfOpen(handle);
        throw;
    }
    return handle;
}

/// The object of a C++ handle. Raises 6 and 487.
template <class Pointer, class Family>
[[nodiscard]] Pointer objectOf(Family& family, void* handle)
{
    Pointer object;
    requireSuccess(family.get(handle, object));
    return object;
}

/// A handle that a callback gets for the time that it runs. The callback may close it itself.
template <class Handle, class Object>
class Lent
{
public:
    Lent(Handles<Handle, Object>& handles, const SharedPtr<Object>& object)
        : m_handles(handles), m_handle(handles.add(object))
    {
    }
    Lent(const Lent&) = delete;
    Lent& operator=(const Lent&) = delete;
    ~Lent() { m_handles.removeIfOpen(m_handle); }

    [[nodiscard]] Handle* get() const noexcept { return m_handle; }

private:
    Handles<Handle, Object>& m_handles;
    Handle* m_handle;
};

/// The same for a callback that is called many times: each call's handle ends with the next call's.
template <class Handle, class Object>
class Lender
{
public:
    explicit Lender(Handles<Handle, Object>& handles) noexcept : m_handles(handles) {}
    Lender(const Lender&) = delete;
    Lender& operator=(const Lender&) = delete;
    ~Lender() { m_handles.removeIfOpen(m_handle); }

    [[nodiscard]] Handle* lend(const SharedPtr<Object>& object)
    {
        return m_handle = m_handles.replace(m_handle, object);
    }

private:
    Handles<Handle, Object>& m_handles;
    Handle* m_handle = nullptr;
};
} // namespace cframes

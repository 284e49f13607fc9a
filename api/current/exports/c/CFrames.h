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
// - Families whose C++ functions have handles of their own pass these on (`opened`). What C++ callers own as
//   an object gets a handle from a table of its kind (Handles).
// - A struct is read through `given`, and handed out with its size.
// - A callback is called through `Callback`, which remembers the result that stopped the call.

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <vector>

#include "c/sysmaint.h"
#include "core/win32/utils/memory/include/UtilityMemory.h"
#include "core/win32/utils/objectmanager/include/ReadWriteLock.h"
#include "core/win32/utils/objectmanager/include/Undestroyed.h"
#include "exports/Frames.h"
#include "exports/c/LastFailure.h"

namespace cframes {
/// The frame of every function that returns a status: the code that `body` returns or raises, 0 when it
/// returns nothing. A failure is kept for sysmaint_last_failure under the name `function`.
template <class Body>
std::int32_t status(const char* function, Body&& body) noexcept
{
    const InsideLibrary inside;
    lastfailure::Scope scope;
    const long code = boundary::statusOf([&]() -> long {
        if constexpr (std::is_void_v<decltype(body())>) {
            body();
            return ERROR_SUCCESS;
        } else {
            return body();
        }
    });
    if (code != ERROR_SUCCESS)
        scope.fail(function, code);
    return code;
}

/// Raises 87 unless the arguments are what they must be.
inline void requireArguments(bool given)
{
    if (!given)
        raiseCode(ERROR_INVALID_PARAMETER);
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
template <class Handle>
void opened(Handle** handle, void* result)
{
    if (result == INVALID_HANDLE_VALUE || result == nullptr)
        raiseLastError();
    *handle = static_cast<Handle*>(result);
}

/// Raises 6 unless what a close function returned says that the handle was open.
inline void closed(int result)
{
    if (result == 0)
        raiseCode(ERROR_INVALID_HANDLE);
}

/// A copy of a text for the caller.
[[nodiscard]] inline wchar_t* copyText(std::wstring_view text)
{
    return static_cast<wchar_t*>(utilitymemory::copyText(text).release());
}

/// A caller's function with its context; may be null. Remembers the result that stopped the call.
template <class Function>
class Callback
{
public:
    Callback(Function function, void* context) noexcept : m_function(function), m_context(context) {}

    explicit operator bool() const noexcept { return m_function != nullptr; }
    /// Calls it outside the library. Raises a result other than 0; `raised` instead of it when given.
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
        if (m_result == ERROR_SUCCESS) {
            const OutsideLibrary outside;
            m_result = m_function(m_context, arguments...);
        }
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
    [[nodiscard]] Handle* add(const Pointer& object)
    {
        const WriteLocker locker(m_lock);
        if (m_free == kNone) {
            if (m_slots.size() == kNone)
                raiseCode(ERROR_NOT_ENOUGH_MEMORY);
            m_slots.emplace_back();
            m_slots.back().nextFree = std::exchange(m_free, m_slots.size() - 1);
        }
        const std::size_t index = m_free;
        Slot& slot = m_slots[index];
        m_free = slot.nextFree;
        slot.object = object;
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
    static constexpr unsigned kSlotBits = 20;
    static constexpr std::size_t kNone = (std::size_t{1} << kSlotBits) - 1;

    struct Slot
    {
        std::uint64_t number = 0; // the open handle; 0: none
        Pointer object;
        std::size_t nextFree = kNone;
    };

    Slot& slotOf(Handle* handle)
    {
        const auto number = reinterpret_cast<std::uint64_t>(handle);
        const std::size_t index = number & kNone;
        if (number == 0 || index >= m_slots.size() || m_slots[index].number != number)
            raiseCode(ERROR_INVALID_HANDLE);
        return m_slots[index];
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
} // namespace cframes

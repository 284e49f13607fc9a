#pragma once

// The rule for every exported function: failures are raised inside and turned into Win32 codes here. Two
// templates implement it, one for functions that return a handle or a pointer, one for those that return a
// status; the others below wrap the table's steps around these two. While a frame exists, its thread counts
// as being inside the library (LibraryCall.h).
//
// The frames catch only what this compiler's code raises. An exception from a caller built with another
// compiler, or from the processor (an access violation), passes through, as is usual on the platform.

#include <windows.h>

#include <new>
#include <type_traits>
#include <utility>

#include "core/win32/utils/objectmanager/include/Exception.h"
#include "core/win32/utils/objectmanager/include/LibraryCall.h"
#include "core/win32/utils/objectmanager/include/SharedPtr.h"

namespace boundary {
/// ERROR_UNHANDLED_EXCEPTION, which not every platform header names.
inline constexpr long kUnhandledException = 574;

/// Is shown every Exception that a frame of this module turns into a code. Only the library sets it.
inline void (*exceptionObserver)(const Exception& caught) noexcept = nullptr;
inline void observe(const Exception& caught) noexcept
{
    if (exceptionObserver != nullptr)
        exceptionObserver(caught);
}

/// Returns what `body` returns, or `failure` when it raises. The last error then holds the code of an
/// Exception or of a bare long, or 8 when memory runs out; after anything else it is what the last system
/// call left.
template <class Result, class Body>
Result resultFrame(Result failure, Body&& body) noexcept
{
    const InsideLibrary inside;
    long code;
    try {
        return std::forward<Body>(body)();
    } catch (const Exception& raised) {
        observe(raised);
        code = static_cast<long>(raised.getCode());
    } catch (long raised) {
        code = raised;
    } catch (const std::bad_alloc&) {
        code = ERROR_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return failure;
    }
    // The raise site set it, but clean-up since then may have changed it.
    SetLastError(static_cast<DWORD>(code != 0 ? code : kUnhandledException));
    return failure;
}

/// For functions that return a handle: failure is the invalid handle.
template <class Body>
void* handleFrame(Body&& body) noexcept
{
    return resultFrame<void*>(INVALID_HANDLE_VALUE, std::forward<Body>(body));
}

/// The Win32 code of the exception being handled; a raised 0 does not count, since a failure must not look
/// like success. Call this from a catch block.
inline long codeOfCurrentException() noexcept
{
    try {
        throw;
    } catch (const Exception& raised) {
        observe(raised);
        return raised.getCode() != 0 ? static_cast<long>(raised.getCode()) : kUnhandledException;
    } catch (long raised) {
        return raised != 0 ? raised : kUnhandledException;
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return kUnhandledException;
    }
}

/// Returns the status that `body` returns, or the code of what it raises: an Exception's code, a bare long as
/// it is, 8 when memory runs out, 574 for any other type and for a code of 0. This is not the frame of an
/// exported function, but a wrapper for calls into the caller's code.
template <class Body>
long statusOf(Body&& body) noexcept
{
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return codeOfCurrentException();
    }
}

/// The same, as the frame of an exported function.
template <class Body>
long statusFrame(Body&& body) noexcept
{
    const InsideLibrary inside;
    return statusOf(std::forward<Body>(body));
}

/// A status operation on the object behind `handle`, with a shared reference held during the call. Returns
/// the table's code (6, 487) for the handle, or the code that `operation` returns or raises. `operation`
/// takes the object by reference and returns nothing or a status.
template <class Table, class Operation>
long statusFrame(const char* place, Table& table, void* handle, Operation&& operation) noexcept
{
    return statusFrame([&]() -> long {
        typename Table::Pointer object;
        requireSuccess(place, table.get(handle, object));
        if (!object)
            raiseCode(ERROR_INVALID_ADDRESS);
        if constexpr (std::is_void_v<decltype(operation(*object))>) {
            operation(*object);
        } else {
            requireSuccess(place, operation(*object));
        }
        return ERROR_SUCCESS;
    });
}

/// A Create... function: opens the object that already has the name; otherwise `make` creates one (a plain
/// pointer, owned by the table from then on), which is registered. `nullPlace` and `memoryPlace` are the
/// place texts for a null name (87) and for a missing object (8).
template <class Table, class Make>
void* createFrame(const char* nullPlace, const char* memoryPlace, Table& table, const wchar_t* name,
                  Make&& make) noexcept
{
    return handleFrame([&]() -> void* {
        if (name == nullptr)
            throw Exception(nullPlace, ERROR_INVALID_PARAMETER);
        return table.openOrCreate(name, [&] {
            typename Table::Pointer object(make());
            if (!object)
                throw Exception(memoryPlace, ERROR_NOT_ENOUGH_MEMORY);
            return object;
        });
    });
}

/// The same, with one place text for both.
template <class Table, class Make>
void* createFrame(const char* place, Table& table, const wchar_t* name, Make&& make) noexcept
{
    return createFrame(place, place, table, name, std::forward<Make>(make));
}
} // namespace boundary

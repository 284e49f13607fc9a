#pragma once

// What the exported functions share. The boundary rule itself, with the steps of the object tables, is in
// Boundary.h.

#include <memory>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "win32/communication/include/ByteStream.h"

namespace frames {
/// Raises 87 at `place` unless all arguments that must not be null were given.
inline void requireArguments(const char* place, bool given)
{
    if (!given)
        throw Exception(place, ERROR_INVALID_PARAMETER);
}

/// A factory function: creates an object, or returns null.
template <class Interface, class Object, class... Arguments>
Interface* makeObject(Arguments&&... arguments) noexcept
{
    return boundary::resultFrame<Interface*>(nullptr, [&]() -> Interface* {
        // The frame catches it. NOLINTNEXTLINE(bugprone-unhandled-exception-at-new)
        return new Object(std::forward<Arguments>(arguments)...);
    });
}

/// A factory function for an object stored in a stream.
template <class Interface, class Object>
Interface* loadObject(unsigned long loadCode, IInputByteStream& stream) noexcept
{
    return boundary::resultFrame<Interface*>(nullptr, [&]() -> Interface* {
        auto object = std::make_unique<Object>();
        requireSuccess(object->load(loadCode, stream));
        return object.release();
    });
}
} // namespace frames

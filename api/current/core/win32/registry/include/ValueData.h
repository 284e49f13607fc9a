#pragma once

#include <algorithm>

#include <windows.h>

namespace valuedata {
/// Queries the type and the data of a value. The data may grow between two calls, and some providers never
/// report its length, so the query is repeated with more room until the data fits. `allocate(capacity)`
/// returns room for `capacity` bytes, replacing its earlier result; `length` receives how many of them the
/// data fills. Returns 0, 8 for data of 2 GiB or more, or the system's code.
template <class Allocate>
[[nodiscard]] LSTATUS query(HKEY key, const wchar_t* name, DWORD& type, DWORD& length, Allocate&& allocate)
{
    constexpr std::size_t kLeastGrowth = 1024; // bytes, for values whose length the registry does not report
    length = 0;
    LSTATUS status = RegQueryValueExW(key, name, nullptr, &type, nullptr, &length);
    std::size_t capacity = length;
    for (bool known = false; (status == ERROR_SUCCESS && !known) || status == ERROR_MORE_DATA; known = true) {
        if (known)
            capacity = std::max<std::size_t>({length, capacity * 2, kLeastGrowth});
        if (capacity > MAXLONG)
            return ERROR_NOT_ENOUGH_MEMORY;
        length = static_cast<DWORD>(capacity);
        status = RegQueryValueExW(key, name, nullptr, &type, static_cast<BYTE*>(allocate(capacity)), &length);
    }
    length = std::min(length, static_cast<DWORD>(capacity));
    return status;
}
} // namespace valuedata

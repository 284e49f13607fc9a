#pragma once

#include <cstddef>
#include <string>

#include "core/win32/utils/memory/api.h"

/// Owns a buffer that a utility function returned.
template <class T>
class OwnedBuffer
{
public:
    OwnedBuffer() = default;
    OwnedBuffer(const OwnedBuffer&) = delete;
    OwnedBuffer& operator=(const OwnedBuffer&) = delete;
    ~OwnedBuffer() { utilsFreeMemory(m_buffer); }

    [[nodiscard]] T** target() { return &m_buffer; }
    [[nodiscard]] T* get() const { return m_buffer; }

private:
    T* m_buffer = nullptr;
};

/// The text that a utility function returns; `otherwise` when it fails. `call` gets the output pointer.
template <class Call>
std::wstring textOf(Call&& call, const wchar_t* otherwise = L"")
{
    OwnedBuffer<wchar_t> text;
    return call(text.target()) == 0 ? text.get() : otherwise;
}

#pragma once

#include <windows.h>

#include <cstddef>
#include <cwchar>
#include <string_view>
#include <utility>

#include "core/win32/utils/objectmanager/include/PlaceText.h"
#include "core/win32/utils/objectmanager/include/ProcessHeap.h"
#include "core/win32/utils/objectmanager/include/Raise.h"

/// The library's only exception: a Win32 code and a report of where and why it was raised. Thrown by value,
/// caught by reference. Exported functions never let it out. The operations of interface objects and of
/// messages do, and a handler object may throw it through the library to its own caller.
///
/// The report reads "An error occured at:", the three-line place text, an optional "Message: " line, and a
/// "System error: " line when the system has a text for the code. Building it writes nothing anywhere.
class Exception
{
public:
    /// Raises with the thread's last error as the code and leaves the last error unchanged.
    explicit Exception(const char* place) : Exception(place, nullptr, GetLastError()) {}
    /// Raises with `code` and makes it the thread's last error.
    Exception(const char* place, unsigned long code) : Exception(place, nullptr, code) {}
    /// Raises with the thread's last error as the code, leaves the last error unchanged, and adds a custom
    /// message.
    Exception(const char* place, const wchar_t* message) : Exception(place, message, GetLastError()) {}

    /// Raises with `code`, makes it the thread's last error, and adds a custom message (may be null). Raises
    /// std::bad_alloc when memory for the report runs out.
    Exception(const char* place, const wchar_t* message, unsigned long code) : m_code(code)
    {
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                           FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, code, 0, reinterpret_cast<wchar_t*>(&m_systemText), 0, nullptr);
        try {
            m_text = buildReport(place != nullptr ? place : "", message, m_systemText);
        } catch (...) {
            LocalFree(m_systemText);
            throw;
        }
        // Last, so that the code survives whatever the calls above left behind. The forms without a code took
        // it from the last error, so this restores it.
        SetLastError(code);
    }

    Exception(const Exception& other) : m_code(other.m_code)
    {
        m_text = copyText(other.m_text);
        if (other.m_systemText != nullptr) {
            const std::size_t size = (std::wcslen(other.m_systemText) + 1) * sizeof(wchar_t);
            m_systemText = static_cast<wchar_t*>(LocalAlloc(LMEM_FIXED, size));
            if (m_systemText == nullptr) {
                processheap::release(m_text);
                throw std::bad_alloc();
            }
            CopyMemory(m_systemText, other.m_systemText, size);
        }
    }

    Exception& operator=(const Exception& other)
    {
        Exception copy(other);
        std::swap(m_text, copy.m_text);
        std::swap(m_systemText, copy.m_systemText);
        std::swap(m_code, copy.m_code);
        return *this;
    }

    virtual ~Exception()
    {
        processheap::release(m_text);
        if (m_systemText != nullptr)
            LocalFree(m_systemText);
    }

    /// The whole report. Owned by the exception.
    [[nodiscard]] const wchar_t* getText() const noexcept { return m_text; }
    /// The system's text for the code, or null when it has none. Owned by the exception.
    [[nodiscard]] const wchar_t* getSystemText() const noexcept { return m_systemText; }
    /// The Win32 code.
    [[nodiscard]] unsigned long getCode() const noexcept { return m_code; }

private:
    static wchar_t* copyText(const wchar_t* text)
    {
        const std::size_t length = std::wcslen(text) + 1;
        wchar_t* copy = ProcessHeapAllocator<wchar_t>().allocate(length);
        CopyMemory(copy, text, length * sizeof(wchar_t));
        return copy;
    }

    static wchar_t* buildReport(std::string_view place, const wchar_t* message, const wchar_t* systemText)
    {
        constexpr std::wstring_view kHead = L"An error occured at:\n";
        constexpr std::wstring_view kMessage = L"Message: ";
        constexpr std::wstring_view kSystem = L"System error: ";
        const std::wstring_view own = message != nullptr ? message : L"";
        const std::wstring_view system = systemText != nullptr ? systemText : L"";

        std::size_t length = kHead.size() + place.size() + 1;
        if (message != nullptr)
            length += kMessage.size() + own.size() + 1;
        if (systemText != nullptr)
            length += kSystem.size() + system.size() + 1;

        wchar_t* report = ProcessHeapAllocator<wchar_t>().allocate(length + 1);
        wchar_t* at = report;
        const auto append = [&at](std::wstring_view text) {
            for (const wchar_t c : text)
                *at++ = c;
        };
        append(kHead);
        for (const char c : place) // place texts are plain ASCII
            *at++ = static_cast<unsigned char>(c);
        append(L"\n");
        if (message != nullptr) {
            append(kMessage);
            append(own);
            append(L"\n");
        }
        if (systemText != nullptr) {
            append(kSystem);
            append(system);
            append(L"\n");
        }
        *at = L'\0';
        return report;
    }

    wchar_t* m_text = nullptr;       // process heap
    wchar_t* m_systemText = nullptr; // from FormatMessageW or LocalAlloc
    unsigned long m_code = 0;
};

/// Raises `code` as an Exception at `place` unless it is 0.
inline void requireSuccess(const char* place, long code)
{
    if (code != ERROR_SUCCESS)
        throw Exception(place, static_cast<unsigned long>(code));
}

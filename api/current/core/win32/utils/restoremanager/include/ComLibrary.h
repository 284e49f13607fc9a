#pragma once

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>

#include <string>

#include "core/win32/utils/objectmanager/include/Exception.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

/// Looks up a function of a loaded library. Raises an Exception with the last error when it is missing.
template <class Function>
[[nodiscard]] Function* requireFunction(const char* place, HMODULE module, const char* name)
{
    auto* const function = reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    if (function == nullptr)
        throw Exception(place);
    return function;
}

/// The functions of COM, which is loaded on demand: linking it would load the user interface too. Once loaded
/// it stays until the process ends, because its own threads may outlive its last user.
class ComLibrary
{
public:
    /// Raises an Exception with the last error when a library or a function is missing.
    ComLibrary();

    decltype(&::CoInitializeEx) initialize = nullptr;
    decltype(&::CoUninitialize) uninitialize = nullptr;
    decltype(&::CoInitializeSecurity) initializeSecurity = nullptr;
    decltype(&::CoCreateInstance) createInstance = nullptr;
    decltype(&::CoSetProxyBlanket) setProxyBlanket = nullptr;
    decltype(&::SysAllocString) allocString = nullptr;
    decltype(&::SysFreeString) freeString = nullptr;
    decltype(&::VariantClear) clearVariant = nullptr;

private:
    ModuleHandle m_ole;
    ModuleHandle m_automation;
};

/// Raises an Exception with the low 16 bits of a failing result, or 574 when these are 0.
void requireComSuccess(const char* place, HRESULT result);

/// Initialises COM on the calling thread for a scope. A thread that has an apartment of the other kind keeps
/// it, and it is used.
class ComApartment
{
public:
    /// `kind` is COINIT_APARTMENTTHREADED or COINIT_MULTITHREADED. Raises an Exception.
    ComApartment(const ComLibrary& com, DWORD kind);
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    ~ComApartment();

private:
    const ComLibrary& m_com;
    bool m_isOurs;
};

/// Lets the built-in administrators, the local service, the network service, the local system and the
/// process itself call into this process, which the restore client needs. A process that has set its COM
/// security already keeps it. Raises an Exception.
void allowSystemCallbacks(const ComLibrary& com);
/// The process's COM security for calls to WMI: the connect level, and impersonation. A process that has set
/// its COM security already keeps it. Raises an Exception.
void allowImpersonation(const ComLibrary& com);

/// Owner of one reference to a COM object.
template <class Interface>
class ComPtr
{
public:
    ComPtr() noexcept = default;
    ComPtr(ComPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ComPtr& operator=(ComPtr&&) = delete;
    ~ComPtr()
    {
        if (m_object != nullptr)
            m_object->Release();
    }

    [[nodiscard]] Interface* get() const noexcept { return m_object; }
    Interface* operator->() const noexcept { return m_object; }
    /// Where a call stores the reference. Use it once.
    [[nodiscard]] Interface** receive() noexcept { return &m_object; }

private:
    Interface* m_object = nullptr;
};

/// A text for COM.
class ComText
{
public:
    /// Raises std::bad_alloc.
    ComText(const ComLibrary& com, const wchar_t* text);
    ComText(const ComText&) = delete;
    ComText& operator=(const ComText&) = delete;
    ~ComText() { m_com.freeString(m_text); }

    [[nodiscard]] BSTR get() const noexcept { return m_text; }

private:
    const ComLibrary& m_com;
    BSTR m_text;
};

/// A value that a COM call fills in.
class ComValue
{
public:
    explicit ComValue(const ComLibrary& com) noexcept : m_com(com) {}
    ComValue(const ComValue&) = delete;
    ComValue& operator=(const ComValue&) = delete;
    ~ComValue() { m_com.clearVariant(&m_value); }

    [[nodiscard]] VARIANT* receive() noexcept { return &m_value; }
    /// The 32-bit number that it holds. Raises a bare 13 when it holds anything else.
    [[nodiscard]] unsigned long getNumber() const;
    /// The text that it holds. Raises a bare 13 when it holds anything else.
    [[nodiscard]] std::wstring getText() const;
    /// Whether it holds a text that is not empty and differs from `text`.
    [[nodiscard]] bool isOtherText(const wchar_t* text) const noexcept;

private:
    const ComLibrary& m_com;
    VARIANT m_value{};
};

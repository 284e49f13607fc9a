#pragma once

#include <wbemcli.h>

#include "core/win32/utils/restoremanager/include/ComLibrary.h"

/// A connection to a WMI namespace; "ROOT\Default" holds the classes of System Restore. The thread needs COM.
class WmiNamespace
{
public:
    /// Raises an Exception with the low 16 bits of the code of the call that failed.
    explicit WmiNamespace(const ComLibrary& com, const wchar_t* name = L"ROOT\\Default");

    /// The first object that a WQL query finds, or an empty pointer. Raises an Exception.
    [[nodiscard]] ComPtr<IWbemClassObject> findFirst(const wchar_t* query) const;
    /// Subscribes to the events that a WQL query describes. They are queued until they are fetched. Raises an
    /// Exception; a refusal may also come with the first fetch.
    [[nodiscard]] ComPtr<IEnumWbemClassObject> subscribe(const wchar_t* query) const;
    /// Calls a static method that takes one text. Returns what the method returns. Raises an Exception, or a
    /// bare 13 when the result is not a number.
    unsigned long callMethod(const wchar_t* className, const wchar_t* method, const wchar_t* parameter,
                             const wchar_t* text) const;

private:
    void setBlanket(IUnknown* proxy) const;

    const ComLibrary& m_com;
    ComPtr<IWbemLocator> m_locator;
    ComPtr<IWbemServices> m_services;
};

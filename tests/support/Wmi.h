#pragma once

#include "support/Test.h"

#include <oleauto.h>
#include <wbemcli.h>

#include "support/ImportReplacement.h"

/// What the DLL has taken from COM and not released, and which of its calls fails.
struct ComCalls
{
    long failing = 0; ///< number of the call that fails, from 1; 0: none
    HRESULT code = S_OK;
    long calls = 0, apartments = 0;
    long references = 0; ///< of the stand-ins' objects
    long texts = 0;

    HRESULT next() { return ++calls == failing ? code : S_OK; }
    void fail(long number, HRESULT result)
    {
        failing = number;
        code = result;
        calls = 0;
    }
    [[nodiscard]] bool isBalanced() const { return apartments == 0 && references == 0 && texts == 0; }
};
inline ComCalls com;

/// A COM object with the methods in its table; calling any other would end the test.
struct FakeObject
{
    FakeObject(std::initializer_list<std::pair<int, void*>> methods)
    {
        slots[0] = address(+[](FakeObject* self, const IID& id, FakeObject** object) -> HRESULT {
            const bool isKnown =
                id == __uuidof(IUnknown) || id == __uuidof(IClassFactory) || id == __uuidof(IWbemLocator);
            *object = isKnown ? self : nullptr;
            com.references += isKnown ? 1 : 0;
            return isKnown ? S_OK : E_NOINTERFACE;
        });
        slots[1] = address(+[](FakeObject*) -> ULONG { return static_cast<ULONG>(++com.references); });
        slots[2] = address(+[](FakeObject*) -> ULONG { return static_cast<ULONG>(--com.references); });
        for (const auto& [slot, function] : methods)
            slots[slot] = function;
    }
    FakeObject(const FakeObject&) = delete;

    void* const* table = slots; // what callers see first
    void* slots[32]{};
};

/// While it lives, the calling thread's apartment uses this WMI instead of the system's.
class FakeWmi
{
public:
    /// Calls that return an object: a digit for the number of their texts, one for where they store it.
    static constexpr int kNextRow = 2, kExecute = 25;

    FakeWmi()
    {
        ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        ::CoRegisterClassObject(__uuidof(WbemLocator), reinterpret_cast<IUnknown*>(&s_factory),
                                CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &m_registration);
        com = ComCalls{};
        s_asked.clear();
    }
    FakeWmi(const FakeWmi&) = delete;
    ~FakeWmi()
    {
        properties.clear();
        withheld = -1;
        onAsked = nullptr;
        s_events.clear();
        fetches = 0;
        ::CoRevokeClassObject(m_registration);
        ::CoUninitialize();
        com = ComCalls{};
    }

    static inline std::map<std::wstring, VARIANT> properties;              ///< of every object
    static inline int withheld = -1;                                       ///< succeeds without an object
    static std::wstring takeAsked() { return std::exchange(s_asked, {}); } ///< each text with a ';', in order
    static inline std::function<void(std::wstring_view text)> onAsked;     ///< called with each text
    /// The next event of a subscription: sets the properties of the returned object, or returns a code.
    using Event = std::function<HRESULT()>;
    static inline std::atomic<long> fetches{0}; ///< that found no event
    static void post(Event event)
    {
        const std::lock_guard guard(s_lock);
        s_events.push_back(std::move(event));
    }
    static VARIANT number(long value, VARTYPE type = VT_I4)
    {
        VARIANT variant{};
        variant.vt = type;
        variant.lVal = value;
        return variant;
    }
    /// Of a text, or of none; it replaces the property's value.
    static void setText(const wchar_t* name, const wchar_t* value)
    {
        VARIANT& variant = properties[name];
        ::VariantClear(&variant);
        variant.vt = VT_BSTR;
        variant.bstrVal = ::SysAllocString(value);
    }

private:
    using Self = FakeObject;
    using Any = LONG_PTR;

    template <int Texts, int Target, FakeObject& Object>
    static HRESULT give(Self* self, Any a, Any b, Any c, Any d, Any e, Any f, Any g, Any h)
    {
        const Any arguments[] = {a, b, c, d, e, f, g, h};
        for (int i = 0; i < Texts; ++i)
            s_asked.append(reinterpret_cast<const wchar_t*>(arguments[i])).append(L";");
        if (Texts != 0 && onAsked)
            onAsked(reinterpret_cast<const wchar_t*>(arguments[Texts - 1]));
        const HRESULT result = com.next();
        const bool isGiven = SUCCEEDED(result) && (withheld != Texts * 10 + Target || self == &s_factory);
        EXPECT_TRUE(self != &s_rows || b == 1) << "there is room for one row";
        *reinterpret_cast<Self**>(arguments[Target]) = isGiven ? &Object : nullptr;
        com.references += isGiven ? 1 : 0;
        return SUCCEEDED(result) && !isGiven ? static_cast<HRESULT>(WBEM_S_FALSE) : result;
    }
    static HRESULT get(Self*, const wchar_t* name, long, VARIANT* value, CIMTYPE*, long*)
    {
        const auto found = properties.find(name);
        if (const HRESULT result = com.next(); FAILED(result) || found == properties.end())
            return FAILED(result) ? result : static_cast<HRESULT>(WBEM_E_NOT_FOUND);
        com.texts += found->second.vt == VT_BSTR ? 1 : 0;
        return ::VariantCopy(value, &found->second);
    }
    static HRESULT nextEvent(Self*, long, ULONG, Self** object, ULONG* count)
    {
        Event event;
        {
            const std::lock_guard guard(s_lock);
            if (!s_events.empty()) {
                event.swap(s_events.front());
                s_events.pop_front();
            }
        }
        const HRESULT result = event ? event() : static_cast<HRESULT>(WBEM_S_TIMEDOUT);
        *count = result == S_OK ? 1 : 0;
        *object = result == S_OK ? &s_object : nullptr;
        com.references += result == S_OK ? 1 : 0;
        fetches += event ? 0 : 1;
        Sleep(event ? 0 : 5);
        return result;
    }
    static HRESULT put(Self*, const wchar_t* name, long, VARIANT* value, CIMTYPE)
    {
        s_asked.append(name).append(L"=").append(value->bstrVal).append(L";");
        return com.next();
    }

    static inline std::wstring s_asked;
    static inline std::mutex s_lock;
    static inline std::deque<Event> s_events;
    static FakeObject s_object, s_rows, s_subscription, s_services, s_locator, s_factory;
    DWORD m_registration = 0;
};

inline FakeObject FakeWmi::s_object{{4, address(&get)},
                                    {5, address(&put)},
                                    {15, address(&give<0, 1, s_object>)},
                                    {19, address(&give<1, 2, s_object>)}};
inline FakeObject FakeWmi::s_rows{{4, address(&give<0, 2, s_object>)}};
inline FakeObject FakeWmi::s_subscription{{4, address(&nextEvent)}};
inline FakeObject FakeWmi::s_services{{6, address(&give<1, 3, s_object>)},
                                      {20, address(&give<2, 4, s_rows>)},
                                      {22, address(&give<2, 4, s_subscription>)},
                                      {24, address(&give<2, 5, s_object>)}};
inline FakeObject FakeWmi::s_locator{{3, address(&give<1, 7, s_services>)}};
inline FakeObject FakeWmi::s_factory{{3, address(&give<0, 2, s_locator>)}};

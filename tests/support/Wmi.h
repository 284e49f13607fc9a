#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <oleauto.h>
#include <wbemcli.h>

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>

/// What the DLL has taken of COM and not given back, and which of its calls fails.
struct ComCalls
{
    long failing = 0; ///< number of the call that fails, from 1; 0: none
    HRESULT code = S_OK;
    long calls = 0;
    long apartments = 0;
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

/// A COM object with the methods that stand in its table; to call any other would end the test.
struct FakeObject
{
    template <class Result, class... Arguments>
    static void* method(Result (*function)(Arguments...))
    {
        return reinterpret_cast<void*>(function);
    }
    FakeObject(std::initializer_list<std::pair<int, void*>> methods)
    {
        slots[0] = method(+[](FakeObject* self, const IID& id, FakeObject** object) -> HRESULT {
            const bool isKnown =
                id == __uuidof(IUnknown) || id == __uuidof(IClassFactory) || id == __uuidof(IWbemLocator);
            *object = isKnown ? self : nullptr;
            com.references += isKnown ? 1 : 0;
            return isKnown ? S_OK : E_NOINTERFACE;
        });
        slots[1] = method(+[](FakeObject*) -> ULONG { return static_cast<ULONG>(++com.references); });
        slots[2] = method(+[](FakeObject*) -> ULONG { return static_cast<ULONG>(--com.references); });
        for (const auto& [slot, function] : methods)
            slots[slot] = function;
    }
    FakeObject(const FakeObject&) = delete;

    /// The end of a method that gives this object out.
    HRESULT give(FakeObject** target, bool isThere = true)
    {
        const HRESULT result = com.next();
        *target = SUCCEEDED(result) && isThere ? this : nullptr;
        com.references += *target != nullptr ? 1 : 0;
        return result;
    }

    void* const* table = slots; // what callers see first
    void* slots[32]{};
};

/// While it lives, the calling thread's apartment has this WMI in the place of the system's.
class FakeWmi
{
public:
    FakeWmi()
    {
        ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        ::CoRegisterClassObject(__uuidof(WbemLocator), reinterpret_cast<IUnknown*>(&s_factory),
                                CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &m_registration);
        com = ComCalls{};
    }
    FakeWmi(const FakeWmi&) = delete;
    ~FakeWmi()
    {
        properties.clear();
        rows = 1;
        hasAnswer = true;
        s_events.clear();
        fetches = 0;
        ::CoRevokeClassObject(m_registration);
        ::CoUninitialize();
        com = ComCalls{};
    }

    static inline std::map<std::wstring, VARIANT> properties; ///< of every object
    static inline long rows = 1;                              ///< that a query finds
    static inline bool hasAnswer = true;                      ///< whether a method has output
    static inline std::wstring asked;                         ///< what was asked for, in order

    /// What a subscription gives next: it sets the properties of the object that it gives, or returns a code.
    using Event = std::function<HRESULT()>;
    static inline std::atomic<long> fetches{0}; ///< that have found nothing to give
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

private:
    using Self = FakeObject;
    static HRESULT get(Self*, const wchar_t* name, long, VARIANT* value, CIMTYPE*, long*)
    {
        const auto found = properties.find(name);
        if (const HRESULT result = com.next(); FAILED(result) || found == properties.end())
            return FAILED(result) ? result : static_cast<HRESULT>(WBEM_E_NOT_FOUND);
        com.texts += found->second.vt == VT_BSTR ? 1 : 0;
        return ::VariantCopy(value, &found->second);
    }
    static HRESULT put(Self*, const wchar_t* name, long, VARIANT* value, CIMTYPE)
    {
        asked += std::wstring(name) + L"=" + value->bstrVal;
        return com.next();
    }
    static HRESULT spawn(Self* self, long, Self** instance) { return self->give(instance); }
    static HRESULT getMethod(Self* self, const wchar_t* name, long, Self** input, Self**)
    {
        asked += std::wstring(name) + L";";
        return self->give(input);
    }
    static HRESULT nextRow(Self*, long, ULONG, Self** row, ULONG* count)
    {
        const HRESULT result = s_object.give(row, rows > 0);
        *count = *row != nullptr ? 1 : 0;
        return result == S_OK && *count == 0 ? static_cast<HRESULT>(WBEM_S_FALSE) : result;
    }
    static HRESULT getObject(Self*, BSTR path, long, void*, Self** object, void*)
    {
        asked += std::wstring(path) + L".";
        return s_object.give(object);
    }
    static HRESULT subscribe(Self*, BSTR language, BSTR query, long, void*, Self** events)
    {
        asked += std::wstring(language) + L":" + query;
        return s_subscription.give(events);
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
        *object = nullptr;
        *count = 0;
        if (result == S_OK)
            return *count = 1, s_object.give(object);
        fetches += event ? 0 : 1;
        Sleep(event ? 0 : 5);
        return result;
    }
    static HRESULT query(Self*, BSTR language, BSTR query, long, void*, Self** found)
    {
        asked += std::wstring(language) + L":" + query;
        return s_rows.give(found);
    }
    static HRESULT execute(Self*, BSTR path, BSTR method, long, void*, Self*, Self** output, void*)
    {
        asked += std::wstring(L";") + path + L"." + method;
        return s_object.give(output, hasAnswer);
    }
    static HRESULT connect(Self*, BSTR name, BSTR, BSTR, BSTR, long, BSTR, void*, Self** services)
    {
        asked = std::wstring(name) + L";";
        return s_services.give(services);
    }
    static HRESULT create(Self*, void*, const IID&, Self** object)
    {
        ++com.references;
        *object = &s_locator;
        return S_OK;
    }

    static inline FakeObject s_object{{4, Self::method(&get)},
                                      {5, Self::method(&put)},
                                      {15, Self::method(&spawn)},
                                      {19, Self::method(&getMethod)}};
    static inline FakeObject s_rows{{4, Self::method(&nextRow)}};
    static inline std::mutex s_lock;
    static inline std::deque<Event> s_events;
    static inline FakeObject s_subscription{{4, Self::method(&nextEvent)}};
    static inline FakeObject s_services{{6, Self::method(&getObject)},
                                        {20, Self::method(&query)},
                                        {22, Self::method(&subscribe)},
                                        {24, Self::method(&execute)}};
    static inline FakeObject s_locator{{3, Self::method(&connect)}};
    static inline FakeObject s_factory{{3, Self::method(&create)}};
    DWORD m_registration = 0;
};

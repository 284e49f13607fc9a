#include "core/win32/utils/restoremanager/include/WmiNamespace.h"

constexpr char kWmiNamespaceHeader[] = "core\\win32\\utils\\restoremanager\\include\\WmiNamespace.h";

namespace {
/// A call that succeeds must also return the object.
template <class Interface>
void requireObject(const char* place, HRESULT result, const ComPtr<Interface>& object)
{
    requireComSuccess(place, result);
    if (object.get() == nullptr)
        requireComSuccess(place, static_cast<HRESULT>(WBEM_E_NOT_FOUND));
}
} // namespace

WmiNamespace::WmiNamespace(const ComLibrary& com, const wchar_t* name) : m_com(com)
{
    requireObject(PLACE(kWmiNamespaceHeader, "WmiNamespace::WmiNamespace", __LINE__),
                  com.createInstance(__uuidof(WbemLocator), nullptr, CLSCTX_INPROC_SERVER,
                                     __uuidof(IWbemLocator), reinterpret_cast<void**>(m_locator.receive())),
                  m_locator);
    const ComText path(com, name);
    requireObject(PLACE(kWmiNamespaceHeader, "WmiNamespace::WmiNamespace", __LINE__),
                  m_locator->ConnectServer(path.get(), nullptr, nullptr, nullptr,
                                           WBEM_FLAG_CONNECT_USE_MAX_WAIT, nullptr, nullptr,
                                           m_services.receive()),
                  m_services);
    setBlanket(m_services.get());
}

void WmiNamespace::setBlanket(IUnknown* proxy) const
{
    requireComSuccess(PLACE(kWmiNamespaceHeader, "WmiNamespace::setBlanket", __LINE__),
                      m_com.setProxyBlanket(proxy, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                                            RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr,
                                            EOAC_NONE));
}

ComPtr<IWbemClassObject> WmiNamespace::findFirst(const wchar_t* query) const
{
    const ComText language(m_com, L"WQL");
    const ComText text(m_com, query);
    ComPtr<IEnumWbemClassObject> rows;
    requireObject(PLACE(kWmiNamespaceHeader, "WmiNamespace::findFirst", __LINE__),
                  m_services->ExecQuery(language.get(), text.get(),
                                        WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                                        rows.receive()),
                  rows);
    // It is a separate proxy with the process's security, which other code may have set.
    setBlanket(rows.get());
    ComPtr<IWbemClassObject> first;
    ULONG count = 0;
    requireComSuccess(PLACE(kWmiNamespaceHeader, "WmiNamespace::findFirst", __LINE__),
                      rows->Next(WBEM_INFINITE, 1, first.receive(), &count));
    return first;
}

ComPtr<IEnumWbemClassObject> WmiNamespace::subscribe(const wchar_t* query) const
{
    const ComText language(m_com, L"WQL");
    const ComText text(m_com, query);
    ComPtr<IEnumWbemClassObject> events;
    requireObject(PLACE(kWmiNamespaceHeader, "WmiNamespace::subscribe", __LINE__),
                  m_services->ExecNotificationQuery(language.get(), text.get(),
                                                    WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                                    nullptr, events.receive()),
                  events);
    setBlanket(events.get());
    return events;
}

unsigned long WmiNamespace::callMethod(const wchar_t* className, const wchar_t* method,
                                       const wchar_t* parameter, const wchar_t* text) const
{
    const char* const place = PLACE(kWmiNamespaceHeader, "WmiNamespace::callMethod", __LINE__);
    const ComText classText(m_com, className);
    const ComText methodText(m_com, method);
    const ComText argument(m_com, text);
    ComPtr<IWbemClassObject> classObject;
    requireObject(place, m_services->GetObject(classText.get(), 0, nullptr, classObject.receive(), nullptr),
                  classObject);
    ComPtr<IWbemClassObject> signature;
    requireObject(place, classObject->GetMethod(method, 0, signature.receive(), nullptr), signature);
    ComPtr<IWbemClassObject> input;
    requireObject(place, signature->SpawnInstance(0, input.receive()), input);
    VARIANT value{};
    value.vt = VT_BSTR;
    value.bstrVal = argument.get(); // Put copies it
    requireComSuccess(place, input->Put(parameter, 0, &value, 0));
    ComPtr<IWbemClassObject> output;
    requireObject(place,
                  m_services->ExecMethod(classText.get(), methodText.get(), 0, nullptr, input.get(),
                                         output.receive(), nullptr),
                  output);
    ComValue result(m_com);
    requireComSuccess(place, output->Get(L"ReturnValue", 0, result.receive(), nullptr, nullptr));
    return result.getNumber();
}

#include "core/win32/utils/services/include/Services.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "core/win32/utils/objectmanager/include/KeptLibrary.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/WaitEvent.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

namespace {
using ServiceHandle = Win32Owner<ServiceHandleTraits>;

ServiceHandle manager(DWORD access)
{
    ServiceHandle opened(OpenSCManagerW(nullptr, nullptr, access));
    if (!opened.isValid())
        raiseLastError();
    return opened;
}

ServiceHandle open(const wchar_t* name, DWORD access)
{
    ServiceHandle service(OpenServiceW(manager(SC_MANAGER_CONNECT).get(), name, access));
    if (!service.isValid())
        raiseLastError();
    return service;
}

SERVICE_STATUS_PROCESS statusOf(const ServiceHandle& service)
{
    SERVICE_STATUS_PROCESS status;
    DWORD needed = 0;
    if (!QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                              sizeof status, &needed))
        raiseLastError();
    return status;
}

/// Calls a function that fills a buffer and tells the size it needs, until the buffer fits.
template <class Fill>
std::vector<unsigned char> filled(Fill&& fill)
{
    std::vector<unsigned char> buffer(4096);
    for (;;) {
        DWORD needed = 0;
        if (fill(buffer.data(), static_cast<DWORD>(buffer.size()), &needed))
            return buffer;
        const DWORD code = GetLastError();
        if (code != ERROR_INSUFFICIENT_BUFFER && code != ERROR_MORE_DATA)
            raiseLastError();
        buffer.resize(std::max<std::size_t>(needed, buffer.size() * 2));
    }
}

using SharedService = std::shared_ptr<const ServiceHandle>;

/// A request to a service, made on its own thread: the system answers only after the service's program, which
/// may take half a minute. When the wait ends earlier, the thread ends by itself.
class Request
{
public:
    using Call = BOOL (*)(SC_HANDLE service);

    Request(SharedService service, Call call)
        : m_service(std::move(service)), m_call(call), m_answered(CreateEventW(nullptr, TRUE, FALSE, nullptr))
    {
        if (!m_answered.isValid())
            raiseLastError();
    }
    /// Returns 0 or the system's code. Raises 1223 and 258 like waitForEvent.
    static long make(const SharedService& service, Call call, DWORD timeout, HANDLE cancelEvent)
    {
        const auto request = std::make_shared<Request>(service, call);
        auto owned = std::make_unique<std::shared_ptr<Request>>(request);
        requireSuccess(KeptLibrary::hold());
        const Win32Handle thread(CreateThread(nullptr, 0, &run, owned.get(), 0, nullptr));
        if (!thread.isValid()) {
            const long code = lastError();
            KeptLibrary::release();
            raiseCode(code);
        }
        static_cast<void>(owned.release());
        requireSuccess(waitForEvent(request->m_answered.get(), timeout, cancelEvent));
        return request->m_code;
    }

private:
    static DWORD WINAPI run(void* argument)
    {
        const HMODULE own = KeptLibrary::reference();
        {
            const std::unique_ptr<std::shared_ptr<Request>> owned(
                static_cast<std::shared_ptr<Request>*>(argument));
            Request& request = **owned;
            request.m_code = request.m_call(request.m_service->get()) ? ERROR_SUCCESS : lastError();
            SetEvent(request.m_answered.get());
        }
        KeptLibrary::exitThread(own, 0);
    }

    SharedService m_service;
    Call m_call;
    Win32Handle m_answered;
    long m_code = ERROR_SUCCESS;
};

/// Counts a time-out down.
class ServiceWait
{
public:
    ServiceWait(unsigned long timeout, HANDLE cancelEvent)
        : m_begin(GetTickCount64()), m_timeout(timeout), m_cancelEvent(cancelEvent)
    {
        requireEvent(cancelEvent);
    }
    /// Makes a request. Returns its code; raises 1223, or 1460 when the time is up.
    [[nodiscard]] long request(const SharedService& service, Request::Call call) const
    {
        const ULONGLONG gone = GetTickCount64() - m_begin;
        const DWORD left = m_timeout == INFINITE ? INFINITE
                           : gone < m_timeout    ? static_cast<DWORD>(m_timeout - gone)
                                                 : 0;
        try {
            return Request::make(service, call, left, m_cancelEvent);
        } catch (long code) {
            raiseCode(code == WAIT_TIMEOUT ? ERROR_TIMEOUT : code);
        }
    }
    /// Waits a moment. Raises 1223, or 1460 when the time is up.
    void pause() const
    {
        constexpr DWORD kPause = 50; // milliseconds
        if (m_cancelEvent == nullptr)
            Sleep(kPause);
        else if (WaitForSingleObject(m_cancelEvent, kPause) == WAIT_OBJECT_0)
            raiseCode(ERROR_CANCELLED);
        if (m_timeout != INFINITE && GetTickCount64() - m_begin >= m_timeout)
            raiseCode(ERROR_TIMEOUT);
    }

private:
    ULONGLONG m_begin;
    unsigned long m_timeout;
    HANDLE m_cancelEvent;
};

void stopOne(ServiceHandle opened, const ServiceWait& deadline)
{
    const auto service = std::make_shared<const ServiceHandle>(std::move(opened));
    bool isAsked = false;
    for (;;) {
        const DWORD state = statusOf(*service).dwCurrentState;
        if (state == SERVICE_STOPPED)
            return;
        // A service that is starting refuses until it runs.
        if (!isAsked && state != SERVICE_STOP_PENDING) {
            const long code = deadline.request(service, [](SC_HANDLE handle) {
                SERVICE_STATUS ignored;
                return ControlService(handle, SERVICE_CONTROL_STOP, &ignored);
            });
            isAsked = code == ERROR_SUCCESS;
            if (!isAsked && code != ERROR_SERVICE_CANNOT_ACCEPT_CTRL && code != ERROR_SERVICE_NOT_ACTIVE)
                raiseCode(code);
        }
        deadline.pause();
    }
}

std::wstring textOrEmpty(const wchar_t* text)
{
    return text != nullptr ? text : L"";
}
} // namespace

namespace services {
RecordList<ServiceRecord> enumerate(unsigned long kinds, unsigned long states)
{
    const ServiceHandle control = manager(SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE);
    RecordList<ServiceRecord> records;
    std::vector<unsigned char> buffer(65536);
    DWORD resume = 0;
    for (bool more = true; more;) {
        DWORD needed = 0;
        DWORD count = 0;
        more = !EnumServicesStatusExW(control.get(), SC_ENUM_PROCESS_INFO, kinds != 0 ? kinds : SERVICE_WIN32,
                                      states != 0 ? states : SERVICE_STATE_ALL, buffer.data(),
                                      static_cast<DWORD>(buffer.size()), &needed, &count, &resume, nullptr);
        if (more && GetLastError() != ERROR_MORE_DATA)
            raiseLastError();
        const auto* found = reinterpret_cast<const ENUM_SERVICE_STATUS_PROCESSW*>(buffer.data());
        for (DWORD i = 0; i < count; ++i)
            records.add({nullptr, nullptr, found[i].ServiceStatusProcess.dwServiceType,
                         found[i].ServiceStatusProcess.dwCurrentState,
                         found[i].ServiceStatusProcess.dwProcessId},
                        {{&ServiceRecord::name, found[i].lpServiceName},
                         {&ServiceRecord::displayName, found[i].lpDisplayName}});
        if (more && count == 0)
            buffer.resize(buffer.size() + needed);
    }
    return records;
}

std::tuple<unsigned long, std::wstring, std::wstring, std::wstring> config(const wchar_t* name)
{
    const ServiceHandle service = open(name, SERVICE_QUERY_CONFIG);
    const auto buffer = filled([&](unsigned char* target, DWORD size, DWORD* needed) {
        return QueryServiceConfigW(service.get(), reinterpret_cast<QUERY_SERVICE_CONFIGW*>(target), size,
                                   needed);
    });
    const auto* found = reinterpret_cast<const QUERY_SERVICE_CONFIGW*>(buffer.data());
    std::wstring dependencies;
    for (const wchar_t* each = found->lpDependencies; each != nullptr && *each != L'\0';) {
        const std::wstring entry = each;
        dependencies.append(entry).push_back(L'\0');
        each += entry.size() + 1;
    }
    return {found->dwStartType, textOrEmpty(found->lpBinaryPathName), textOrEmpty(found->lpServiceStartName),
            dependencies};
}

unsigned long state(const wchar_t* name)
{
    return statusOf(open(name, SERVICE_QUERY_STATUS)).dwCurrentState;
}

void start(const wchar_t* name, unsigned long timeout, HANDLE cancelEvent)
{
    const ServiceWait deadline(timeout, cancelEvent);
    const auto service =
        std::make_shared<const ServiceHandle>(open(name, SERVICE_START | SERVICE_QUERY_STATUS));
    const long asked =
        deadline.request(service, [](SC_HANDLE handle) { return StartServiceW(handle, 0, nullptr); });
    if (asked != ERROR_SERVICE_ALREADY_RUNNING)
        requireSuccess(asked);
    for (;;) {
        const SERVICE_STATUS_PROCESS status = statusOf(*service);
        if (status.dwCurrentState == SERVICE_RUNNING)
            return;
        if (status.dwCurrentState != SERVICE_START_PENDING) { // it started and failed
            const DWORD code =
                status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR || status.dwWin32ExitCode == 0
                    ? ERROR_PROCESS_ABORTED
                    : status.dwWin32ExitCode;
            raiseCode(static_cast<long>(code));
        }
        deadline.pause();
    }
}

void stop(const wchar_t* name, bool withDependents, unsigned long timeout, HANDLE cancelEvent)
{
    const ServiceWait deadline(timeout, cancelEvent);
    ServiceHandle service =
        open(name, SERVICE_STOP | SERVICE_QUERY_STATUS | (withDependents ? SERVICE_ENUMERATE_DEPENDENTS : 0));
    if (withDependents && statusOf(service).dwCurrentState != SERVICE_STOPPED) {
        DWORD count = 0;
        const auto buffer = filled([&](unsigned char* target, DWORD size, DWORD* needed) {
            return EnumDependentServicesW(service.get(), SERVICE_ACTIVE,
                                          reinterpret_cast<ENUM_SERVICE_STATUSW*>(target), size, needed,
                                          &count);
        });
        const auto* found = reinterpret_cast<const ENUM_SERVICE_STATUSW*>(buffer.data());
        for (DWORD i = 0; i < count; ++i) // listed in the order in which they can be stopped
            stopOne(open(found[i].lpServiceName, SERVICE_STOP | SERVICE_QUERY_STATUS), deadline);
    }
    stopOne(std::move(service), deadline);
}

void setStartType(const wchar_t* name, unsigned long type)
{
    if (type > SERVICE_DISABLED)
        raiseCode(ERROR_INVALID_PARAMETER);
    if (!ChangeServiceConfigW(open(name, SERVICE_CHANGE_CONFIG).get(), SERVICE_NO_CHANGE, type,
                              SERVICE_NO_CHANGE, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr))
        raiseLastError();
}

void remove(const wchar_t* name)
{
    if (!DeleteService(open(name, DELETE).get()))
        raiseLastError();
}

bool exists(const wchar_t* name)
{
    const ServiceHandle service(OpenServiceW(manager(SC_MANAGER_CONNECT).get(), name, SERVICE_QUERY_STATUS));
    if (service.isValid() || GetLastError() == ERROR_ACCESS_DENIED)
        return true;
    if (GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST)
        raiseLastError();
    return false;
}

std::wstring description(const wchar_t* name)
{
    const ServiceHandle service = open(name, SERVICE_QUERY_CONFIG);
    const auto buffer = filled([&](unsigned char* target, DWORD size, DWORD* needed) {
        return QueryServiceConfig2W(service.get(), SERVICE_CONFIG_DESCRIPTION, target, size, needed);
    });
    return textOrEmpty(reinterpret_cast<const SERVICE_DESCRIPTIONW*>(buffer.data())->lpDescription);
}
} // namespace services

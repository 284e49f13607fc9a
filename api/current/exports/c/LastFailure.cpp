#include "exports/c/LastFailure.h"

#include <memory>
#include <string>
#include <utility>

#include "c/sysmaint.h"
#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/ProcessEnd.h"

/// One thread's.
struct lastfailure::Record
{
    bool isInside = false;             // in a function of the C interface, and in no callback of it
    std::unique_ptr<Exception> caught; // since that function began
    long code = ERROR_SUCCESS;
    const char* function = nullptr;
    std::unique_ptr<Exception> failed; // what the code was made of; null: the code alone was raised
    std::wstring text;                 // made when somebody asks
};
using lastfailure::Record;

namespace {

/// Where each thread keeps its record; released at the thread's end.
class Slot
{
public:
    Slot() noexcept : m_index(FlsAlloc(&release)) { boundary::exceptionObserver = &keep; }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;
    ~Slot()
    {
        boundary::exceptionObserver = nullptr;
        if (!isProcessEnding())
            FlsFree(m_index); // calls release for every thread
    }

    [[nodiscard]] Record* find() const noexcept
    {
        const DWORD lastError = GetLastError();
        auto* record = static_cast<Record*>(FlsGetValue(m_index));
        SetLastError(lastError); // the call clears it
        return record;
    }
    /// Null when there is no memory.
    [[nodiscard]] Record* findOrMake() const noexcept
    {
        if (Record* record = find())
            return record;
        std::unique_ptr<Record> made(new (std::nothrow) Record);
        return made && FlsSetValue(m_index, made.get()) ? made.release() : nullptr;
    }

private:
    static void WINAPI release(void* record) noexcept
    {
        if (!isProcessEnding())
            std::default_delete<Record>()(static_cast<Record*>(record));
    }
    static void keep(const Exception& caught) noexcept;

    DWORD m_index;
};
const Slot slot;

void Slot::keep(const Exception& caught) noexcept
{
    Record* const record = slot.find();
    // The first of several with one code knows best where it was.
    if (record == nullptr || !record->isInside ||
        (record->caught && record->caught->getCode() == caught.getCode()))
        return;
    const DWORD lastError = GetLastError();
    try {
        record->caught = std::make_unique<Exception>(caught);
    } catch (...) {
        record->caught.reset();
    }
    SetLastError(lastError);
}

std::wstring systemText(long code)
{
    constexpr DWORD kLongest = 1024;
    wchar_t text[kLongest];
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                        static_cast<DWORD>(code), 0, text, kLongest, nullptr);
    return std::wstring(text, length);
}
} // namespace

lastfailure::Scope::Scope() noexcept : Aside(slot.findOrMake())
{
    if (m_record != nullptr)
        m_record->isInside = true;
}

void lastfailure::Scope::fail(const char* function, long code) noexcept
{
    if (m_record == nullptr)
        return;
    m_record->function = function;
    m_record->code = code;
    m_record->text.clear();
    m_record->failed = std::move(m_record->caught);
    if (m_record->failed && static_cast<long>(m_record->failed->getCode()) != code)
        m_record->failed.reset(); // something else, which the function has dealt with
}

lastfailure::Aside::Aside() noexcept : Aside(slot.find()) {}

lastfailure::Aside::Aside(Record* record) noexcept : m_record(record)
{
    if (m_record == nullptr)
        return;
    m_wasInside = std::exchange(m_record->isInside, false);
    m_caught = std::move(m_record->caught);
}

lastfailure::Aside::~Aside()
{
    if (m_record == nullptr)
        return;
    m_record->isInside = m_wasInside;
    m_record->caught = std::move(m_caught);
}

void lastfailure::describe(sysmaint_failure& failure)
{
    Record* const record = slot.find();
    if (record == nullptr || record->code == ERROR_SUCCESS) {
        failure.text = L"";
        return;
    }
    failure.code = record->code;
    failure.function = record->function;
    failure.text = L"";
    if (record->text.empty())
        record->text = record->failed ? record->failed->getText() : systemText(record->code);
    failure.text = record->text.c_str();
}

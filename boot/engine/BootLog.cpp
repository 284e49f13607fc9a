#include "engine/BootLog.h"

#include "engine/BootNames.h"

namespace {
constexpr std::uint64_t kLargest = 1048576; // bytes
constexpr std::uint64_t kReserve = 4096;    // for the last line
constexpr std::size_t kLongestLine = 33000; // characters: a path of any length, and a reason
constexpr wchar_t kByteOrderMark = 0xFEFF;

struct TimeFields
{
    short year, month, day, hour, minute, second, milliseconds, weekday;
};
extern "C" void NTAPI RtlTimeToTimeFields(const LARGE_INTEGER*, TimeFields*); // pure computation
} // namespace

native::Status BootLog::open()
{
    Opening how = {FILE_WRITE_DATA | FILE_READ_ATTRIBUTES, FILE_SHARE_READ, native::kMustBeFile};
    how.disposition = native::kOpenOrCreate;
    native::Status status = m_file.open(&m_folder, bootnames::kLog, how);
    if (status < 0)
        return status;
    ULONG attributes = 0;
    ULONG tag = 0;
    status = m_file.attributes(attributes, tag);
    if (status >= 0 && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        status = native::kNotSupported; // writing here would write elsewhere
    if (status >= 0)
        status = m_file.size(m_end);
    if (status >= 0)
        status = m_text.allocate(kLongestLine * sizeof(wchar_t));
    if (status >= 0 && (m_end > kLargest / 2 || m_end % sizeof(wchar_t) != 0)) {
        status = m_file.cut();
        m_end = 0;
    }
    if (status >= 0 && m_end == 0) {
        status = m_file.write(0, &kByteOrderMark, sizeof kByteOrderMark);
        m_end = sizeof kByteOrderMark;
    }
    m_isUsable = status >= 0;
    return status;
}

void BootLog::add(Text line, bool isLast)
{
    if (!m_isUsable)
        return;
    LARGE_INTEGER now{};
    TimeFields time{};
    m_api.systemTime(&now);
    RtlTimeToTimeFields(&now, &time);
    TextBuilder text(m_text.as<wchar_t>(), kLongestLine - 2);
    const auto number = [&](short value, int digits, wchar_t behind) {
        text.addNumber(static_cast<std::uint64_t>(value), 10, digits).add(behind);
    };
    number(time.year, 4, L'-');
    number(time.month, 2, L'-');
    number(time.day, 2, L' ');
    number(time.hour, 2, L':');
    number(time.minute, 2, L':');
    number(time.second, 2, L' ');
    text.addVisible(line); // no text from the list may begin a new line here
    TextBuilder whole(m_text.as<wchar_t>(), kLongestLine);
    whole.add(text.text()).add(Text(L"\r\n"));
    const std::size_t bytes = whole.text().length * sizeof(wchar_t);
    if (m_end + bytes > kLargest - (isLast ? 0 : kReserve))
        return;
    if (m_file.write(m_end, whole.text().data, bytes) >= 0)
        m_end += bytes;
}

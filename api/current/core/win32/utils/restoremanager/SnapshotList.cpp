#include "core/win32/utils/restoremanager/include/SnapshotList.h"

#include <windows.h>

#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"

namespace {
constexpr wchar_t kFile[] = L"snapshot.qmx";
constexpr DWORD kBlockSize = 1024;
constexpr std::size_t kLongestTime = 64;

/// Parses the list character by character and keeps the record of one name.
class RecordSearch
{
public:
    explicit RecordSearch(std::wstring_view name) noexcept : m_name(name) {}

    void add(wchar_t c)
    {
        if (c == L'\n')
            endRecord();
        else if (m_place == Place::Name)
            addToName(c);
        else if (m_place == Place::Time && m_time.size() <= kLongestTime) // one more: a CR, or too long
            m_time += c;
    }

    [[nodiscard]] const std::wstring& getTime() const
    {
        if (m_found.empty())
            raiseCode(ERROR_NOT_FOUND);
        return m_found;
    }

private:
    enum class Place
    {
        Name,
        Time,
        Other // in a record of another name
    };

    void addToName(wchar_t c) noexcept
    {
        if (c == L'\t')
            m_place = m_matched == m_name.size() ? Place::Time : Place::Other;
        else if (m_matched < m_name.size() && m_name[m_matched] == c)
            ++m_matched;
        else
            m_place = Place::Other;
    }

    void endRecord()
    {
        if (m_place == Place::Time) {
            if (!m_time.empty() && m_time.back() == L'\r')
                m_time.pop_back();
            if (m_time.empty() || m_time.size() > kLongestTime)
                raiseCode(ERROR_INVALID_DATA);
            if (!m_found.empty() && m_found != m_time)
                raiseCode(ERROR_ALREADY_EXISTS);
            m_found = m_time;
        }
        m_time.clear();
        m_matched = 0;
        m_place = Place::Name;
    }

    std::wstring_view m_name;
    std::size_t m_matched = 0; // characters of the name matched so far
    Place m_place = Place::Name;
    std::wstring m_time;
    std::wstring m_found;
};
} // namespace

std::wstring findSnapshotTime(std::wstring_view name)
{
    const Win32Handle file(
        CreateFileW(kFile, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid())
        raiseLastError();
    RecordSearch search(name);
    unsigned char block[kBlockSize];
    DWORD kept = 0; // bytes: half a character from the last block
    bool isFirst = true;
    for (;;) {
        DWORD read = 0;
        if (!ReadFile(file.get(), block + kept, kBlockSize - kept, &read, nullptr))
            raiseLastError();
        if (read == 0)
            return search.getTime();
        const DWORD size = kept + read;
        for (DWORD at = 0; at + 1 < size; at += 2) {
            const auto c = static_cast<wchar_t>(block[at] | (block[at + 1] << 8U));
            if (!isFirst || c != 0xFEFF)
                search.add(c);
            isFirst = false;
        }
        kept = size % 2;
        block[0] = block[size - 1];
    }
}

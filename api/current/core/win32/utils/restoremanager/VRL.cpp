#include "core/win32/utils/restoremanager/include/VRL.h"

#include <windows.h>

#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/objectmanager/include/LibraryCall.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/restoremanager/include/SnapshotList.h"
#include "core/win32/utils/strings/include/CaseFolding.h"

namespace {
constexpr std::size_t kLongestLine = 32766; // characters

void require(bool isGood)
{
    if (!isGood)
        raiseCode(ERROR_INVALID_PARAMETER);
}

void requireText(const wchar_t* text)
{
    require(text != nullptr && *text != L'\0');
}

/// Raises unless the text, between quotes, stays one argument on one line.
void requireQuotable(std::wstring_view text)
{
    constexpr std::wstring_view kNever(L"\"\r\n\0", 4);
    require(text.find_first_of(kNever) == std::wstring_view::npos && (text.empty() || text.back() != L'\\'));
}

/// Raises unless the value stays one argument without quotes.
void requirePlain(const wchar_t* value)
{
    if (value == nullptr)
        return;
    requireText(value);
    for (const wchar_t* c = value; *c != L'\0'; ++c)
        require(*c != L'"' && *c > L' ');
}

/// Its interpreter would parse the command line again.
bool isBatchFile(std::wstring_view tool)
{
    while (!tool.empty() && (tool.back() == L'.' || tool.back() == L' ')) // as Win32 drops them
        tool.remove_suffix(1);
    if (tool.size() < 4)
        return false;
    std::wstring extension(tool.substr(tool.size() - 4));
    for (wchar_t& c : extension)
        c = casefolding::fold(c);
    return extension == L".BAT" || extension == L".CMD";
}

void requireTool(const wchar_t* tool)
{
    requireText(tool);
    require(!isBatchFile(tool) && !isAlteredPath(tool)); // the latter would start another program
}

/// A command line built from parts. It allocates no more memory than it needs and overwrites it when it is
/// destroyed, because it may hold a password.
class CommandLine
{
public:
    void add(std::wstring_view text) noexcept { m_parts[m_count++] = text; }
    void addQuoted(std::wstring_view option, const wchar_t* value) noexcept
    {
        if (value == nullptr)
            return;
        add(option);
        add(L"\"");
        add(value);
        add(L"\"");
    }
    void addPlain(std::wstring_view option, const wchar_t* value) noexcept
    {
        if (value == nullptr)
            return;
        add(option);
        add(value);
    }

    /// Starts the tool and waits until it ends. Raises the bare code.
    void run(const wchar_t* tool);

    CommandLine() = default;
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;
    ~CommandLine()
    {
        if (!m_text.empty())
            SecureZeroMemory(m_text.data(), m_text.size() * sizeof(wchar_t));
    }

private:
    std::array<std::wstring_view, 20> m_parts;
    std::size_t m_count = 0;
    std::wstring m_text;
};

void CommandLine::run(const wchar_t* tool)
{
    std::size_t length = 0;
    for (const std::wstring_view part : m_parts)
        length += part.size();
    require(length <= kLongestLine);
    m_text.reserve(length);
    for (const std::wstring_view part : m_parts)
        m_text += part;

    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(tool, m_text.data(), nullptr, nullptr, TRUE, NORMAL_PRIORITY_CLASS, nullptr, nullptr,
                        &startup, &started)) {
        const DWORD code = GetLastError();
        std::printf("CreateProcess failed (%d).\n", static_cast<int>(code));
        std::fflush(stdout); // the caller's own runtime knows nothing of our buffer
        raiseCode(static_cast<long>(code));
    }
    const Win32Handle process(started.hProcess);
    const Win32Handle thread(started.hThread);
    if (WaitForSingleObject(process.get(), INFINITE) != WAIT_OBJECT_0)
        raiseLastError();
}

/// Runs `body`; turns what it raises into an NT status.
template <class Body>
long snapshotFrame(Body&& body) noexcept
{
    const long code = boundary::statusFrame([&]() -> long {
        body();
        return ERROR_SUCCESS;
    });
    if (code == ERROR_SUCCESS)
        return 0;
    return code == ERROR_NOT_ENOUGH_MEMORY ? kSnapshotNoMemory : kSnapshotFailed;
}
} // namespace

long VRL::createSnapshot(const wchar_t* tool, const wchar_t* name, const wchar_t* comment,
                         const wchar_t* user, const wchar_t* password)
{
    return snapshotFrame([&] {
        requireTool(tool);
        requireText(name);
        for (const wchar_t* value : {name, comment, user, password})
            requireQuotable(value != nullptr ? value : L"");
        CommandLine line;
        line.addQuoted(L"vrlcmd /n /name ", name);
        line.addQuoted(L" /comment ", comment);
        line.addQuoted(L" /user ", user);
        line.addQuoted(L" /pass ", password);
        line.run(tool);
    });
}

long VRL::restoreSnapshot(std::uint32_t mode, const wchar_t* tool, const wchar_t* user,
                          const wchar_t* password, const wchar_t* name, const wchar_t* time)
{
    return snapshotFrame([&] {
        require(mode <= kSnapshotNamed);
        requireTool(tool);
        requirePlain(user);
        requirePlain(password);
        std::wstring found;
        if (mode == kSnapshotNamed) {
            requireText(name);
            found = findSnapshotTime(name);
            requireQuotable(found); // the whole text: it may contain a zero
            time = found.c_str();
        }
        CommandLine line;
        if (mode == kSnapshotCurrent || mode == kSnapshotBaseline) {
            line.add(mode == kSnapshotCurrent ? L"vrlcmd /r /current " : L"vrlcmd /r /baseline ");
        } else {
            requireText(time);
            requireQuotable(time);
            line.addQuoted(L"vrlcmd /r /time ", time);
        }
        line.addPlain(L" /user ", user);
        line.addPlain(L" /pass ", password);
        line.run(tool);
    });
}

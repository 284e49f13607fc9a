#include "WipeRun.h"

#include <algorithm>
#include <utility>

#include "Command.h"
#include "ForceDeleteList.h"
#include "engine/BootNames.h"

#include "core/win32/utils/wiper/api.h"

namespace {
constexpr std::uint64_t kGutmannPasses = 35;

std::wstring volumeOf(const std::wstring& path)
{
    return path.size() >= 2 && path[1] == L':' ? path.substr(0, 2) : L"its volume";
}
} // namespace

WipeRun::WipeRun(const WipeOptions& options)
    : m_options(options), m_wiper(DllGetWiper()),
      m_factor(options.method == kWipeGutmann ? kGutmannPasses : 1)
{
    if (!m_wiper)
        throw static_cast<long>(ERROR_NOT_ENOUGH_MEMORY);
}

void WipeRun::onProgress(WipeProgress* progress)
{
    WipeRun& run = static_cast<Progress*>(progress)->run;
    run.m_lastStep = progress->done - run.m_lastDone;
    run.m_lastDone = progress->done;
    run.m_written += run.m_lastStep * run.m_factor;
    if (run.m_line.isDue())
        run.show();
}

void WipeRun::show()
{
    const ULONGLONG elapsed = std::max<ULONGLONG>(GetTickCount64() - m_begin, 1);
    const std::uint64_t done = (m_doneBefore + m_progress.done) * m_factor;
    const std::uint64_t total = std::max((m_doneBefore + m_progress.total + m_toCome) * m_factor, done);
    const std::uint64_t rate = done * 1000 / elapsed;
    std::wstring text = std::to_wstring(total != 0 ? done * 100 / total : 0) + L" %, " + formatBytes(done) +
                        L" of " + formatBytes(total) + L", " + formatBytes(rate) + L"/s";
    if (rate != 0)
        text += L", " + formatCount((total - done) / rate) + L" s left";
    m_line.show(text);
}

long WipeRun::call(std::uint32_t kind, const std::wstring& path, DirectoryStack* stack, std::uint32_t passes)
{
    if (m_begin == 0)
        m_begin = GetTickCount64();
    const IScanValidator* validator = kind == kWipeFile ? m_options.validator.get() : nullptr;
    const std::uint32_t method = m_options.method | (m_options.cloud ? kWipeCloudFiles : 0U);
    const long code = m_wiper->Wipe(&onProgress, &m_progress, kind, path.c_str(), stack, validator, method,
                                    passes, cancelEvent());
    m_cancelled = m_cancelled || code == ERROR_CANCELLED;
    return code;
}

bool WipeRun::wipeFile(const std::wstring& path)
{
    const bool ofTree = !m_tree.empty();
    const std::wstring literal = literalPath(path);
    const std::uint64_t size = sizeOfFile(literal);
    const std::uint64_t doneBefore = m_progress.done;
    const std::uint64_t totalBefore = m_progress.total;
    const std::size_t slash = path.find_last_of(L'\\');
    DirectoryStack one;
    if (ofTree)
        one.push_back(
            {HeapStringW(path.c_str() + slash + 1), HeapStringW(path.c_str(), slash), false, false});
    m_wiper->setNeedsReboot(0);
    const long code = ofTree ? call(kWipeDirectoryStack, m_tree, &one, m_options.passes)
                             : call(kWipeFile, path, nullptr, m_options.passes);
    if (isGone(literal)) {
        if (code == ERROR_SUCCESS)
            ++m_files;
        else if (code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND) // somebody else deleted it
            fail(path, code);
        else // the total's growth was written to other streams, before the file's own data
            tellLoss(path, size,
                     m_progress.done - doneBefore -
                         std::min(m_progress.done - doneBefore, m_progress.total - totalBefore),
                     code);
        return code == ERROR_SUCCESS;
    }
    if (code == ERROR_CANCELLED)
        leave(path, L"cancelled, it is still there", true);
    else if (code != ERROR_SUCCESS && m_wiper->getNeedsReboot() != 0)
        tellWaiting(path, code);
    else if (code != ERROR_SUCCESS)
        fail(path, code);
    else if (m_options.hasRules)
        leave(path, L"left alone by --filter or --ignore", true);
    else
        fail(path, L"it is still there");
    return false;
}

/// Reports a file that was deleted before all its data was overwritten.
void WipeRun::tellLoss(const std::wstring& path, std::uint64_t size, std::uint64_t overwritten, long code)
{
    m_line.clear();
    std::wstring text = printable(path) + L": ";
    if (code != ERROR_CANCELLED)
        text += formatCode(code) + L"; ";
    text += L"deleted, ";
    if (overwritten < size)
        text += formatBytes(overwritten) + L" of " + formatBytes(size) +
                L" overwritten: wipe the free space of " + volumeOf(path) + L" to reach the rest";
    else
        text += L"overwritten " + formatCount(size != 0 ? overwritten / size : m_options.passes) + L" of " +
                formatCount(m_options.passes) + L" times";
    messages().writeLine(L"wipe: " + text);
    ++m_lost;
}

/// Reports something that the wiper has put on the list for the restart, if it could.
void WipeRun::tellWaiting(const std::wstring& path, long code)
{
    const bool isListed = ForceDeleteIsScheduled(path.c_str()) != 0;
    const auto unread = static_cast<long>(isListed ? ERROR_SUCCESS : GetLastError());
    const bool waits = isListed && !isWindowsFolderPrivate();
    fail(path,
         formatCode(code) + (waits ? L"; it waits for the restart"
                             : unread != ERROR_SUCCESS
                                 ? L"; whether it waits for the restart cannot be read: " + formatCode(unread)
                                 : std::wstring(L"; it does not wait for the restart either")));
    m_waiting += waits ? 1 : 0;
}

bool WipeRun::removeFolder(const std::wstring& path)
{
    DirectoryStack one;
    one.push_back({HeapStringW(path.c_str()), L"", true, false});
    const long code = call(kWipeDirectoryStack, m_tree, &one, m_options.passes);
    if (code != ERROR_SUCCESS && code != ERROR_CANCELLED)
        fail(path, code);
    return code == ERROR_SUCCESS;
}

void WipeRun::wipeFreeSpace(const std::wstring& drive, std::uint64_t bytes)
{
    long code = ERROR_SUCCESS;
    // Each call raises its progress to the end, so each pass is a separate call.
    for (std::uint32_t pass = 1; pass <= m_options.passes && code == ERROR_SUCCESS; ++pass) {
        m_doneBefore += std::exchange(m_progress.done, 0);
        m_lastDone = 0;
        m_progress.total = bytes;
        m_toCome = bytes * (m_options.passes - pass);
        code = call(kWipeFreeSpace, drive, nullptr, 1);
        if (code == ERROR_SUCCESS) // the last step was not written, only counted
            m_written -= std::exchange(m_lastStep, 0) * m_factor;
    }
    if (code == ERROR_SUCCESS && m_options.names)
        code = wipeNames(drive);
    const std::wstring filler = drive + L"FreeSpaceFile.qmx";
    if (!isGone(literalPath(filler)) && m_wiper->getNeedsReboot() != 0)
        tellWaiting(filler, code);
    if (code != ERROR_SUCCESS && code != ERROR_CANCELLED)
        fail(drive, code);
}

/// Wipes what deleted files left in the file table, which is written once with any method.
long WipeRun::wipeNames(const std::wstring& drive)
{
    m_doneBefore = (m_doneBefore + std::exchange(m_progress.done, 0)) * std::exchange(m_factor, 1);
    m_lastDone = m_progress.total = 0;
    const long code = WipeFileTable(drive.c_str(), &onProgress, &m_progress, cancelEvent());
    m_cancelled = m_cancelled || code == ERROR_CANCELLED;
    return code;
}

void WipeRun::wipeVolume(const std::wstring& drive, std::uint64_t bytes)
{
    expect(bytes);
    const long code = call(kWipePartition, drive, nullptr, m_options.passes);
    if (code != ERROR_SUCCESS && code != ERROR_CANCELLED)
        fail(drive, code);
}

void WipeRun::fail(const std::wstring& path, const std::wstring& reason)
{
    m_line.clear();
    messages().writeLine(L"wipe: " + printable(path) + L": " + reason);
    ++m_failed;
}

void WipeRun::leave(const std::wstring& path, const std::wstring& reason, bool asAsked)
{
    m_line.clear();
    messages().writeLine(L"wipe: " + printable(path) + L": " + reason);
    ++m_left;
    m_leftUnasked += asAsked ? 0 : 1;
}

int WipeRun::finish(const std::wstring& subject)
{
    m_line.clear();
    const std::wstring what = subject.empty() ? formatFiles(m_files) : subject;
    std::wstring text = !m_cancelled
                            ? (m_failed != 0 && !subject.empty() ? L"not wiped in full: " : L"wiped ")
                        : subject.empty() ? L"cancelled; wiped so far: "
                                          : L"cancelled; wiped in part: ";
    text += what + L", " + formatBytes(m_written) + L" written, " + formatCount(m_failed) + L" failed, " +
            formatCount(m_waiting) + (m_waiting == 1 ? L" waits" : L" wait") + L" for the restart";
    if (m_lost != 0)
        text += L", " + formatCount(m_lost) + L" deleted but not overwritten in full";
    if (m_left != 0)
        text += L", " + formatCount(m_left) + L" left alone";
    messages().writeLine(text);
    if (m_waiting != 0 && BootExecuteIsScheduled(bootnames::kEntry) == 0)
        messages().writeLine(
            L"Nothing is installed that wipes it at the restart: 'sysmaint boot install' does that, "
            L"'sysmaint boot run' tries once more now.");
    if (m_waiting != 0)
        messages().writeLine(kRestartAdvice);
    if (m_cancelled)
        return kExitCancelled;
    return m_failed + m_lost + m_leftUnasked == 0 ? kExitDone : kExitFailed;
}

std::wstring formatFiles(unsigned long long count)
{
    return formatCount(count) + (count == 1 ? L" file" : L" files");
}

std::uint64_t sizeOfFile(const std::wstring& literal)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    GetFileAttributesExW(literal.c_str(), GetFileExInfoStandard, &data);
    return (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32U) | data.nFileSizeLow;
}

bool isGone(const std::wstring& literal)
{
    if (GetFileAttributesW(literal.c_str()) != INVALID_FILE_ATTRIBUTES)
        return false;
    const DWORD code = GetLastError();
    return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
}

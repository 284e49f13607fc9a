#include "core/win32/utils/wiper/include/Wiper.h"

#include <winioctl.h>

#include <algorithm>
#include <iterator>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/scanengine/include/Directory.h"
#include "core/win32/utils/scanengine/include/File.h"
#include "core/win32/utils/scanengine/include/FilePath.h"
#include "core/win32/utils/wiper/include/FillPattern.h"
#include "core/win32/utils/wiper/include/ForceDelete.h"

#define WIPER_HEADER "core\\win32\\utils\\wiper\\include\\Wiper.h"
#define WIPER_PLACE(function) PLACE(WIPER_HEADER, function, __LINE__)

namespace {
constexpr std::uint32_t kSmallestPiece = 512; // no file system hands out less
constexpr std::uint32_t kRandomCharacters = Wiper::kChunkSize / sizeof(wchar_t);

void seek(HANDLE file, std::uint64_t offset, DWORD origin, const char* place)
{
    LARGE_INTEGER distance;
    distance.QuadPart = static_cast<LONGLONG>(offset);
    if (!SetFilePointerEx(file, distance, nullptr, origin))
        throw Exception(place);
}

std::uint64_t sizeOf(HANDLE file, const char* place)
{
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file, &size))
        throw Exception(place);
    return static_cast<std::uint64_t>(size.QuadPart);
}

/// A file that is open at its beginning is cut to nothing.
void cut(HANDLE file, const char* place)
{
    seek(file, 0, FILE_BEGIN, place);
    if (!SetEndOfFile(file))
        throw Exception(place);
}

/// What is there under a path: its attributes, and whether it only stands for something else. Takes
/// read-only, hidden and system away.
struct Found
{
    explicit Found(const wchar_t* target)
    {
        attributes = GetFileAttributesW(target);
        if (attributes == INVALID_FILE_ATTRIBUTES) {
            code = GetLastError();
            return;
        }
        if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
            WIN32_FIND_DATAW data;
            const FindHandle search(FindFirstFileW(target, &data));
            if (!search.isValid()) {
                code = GetLastError();
                return;
            }
            link = isLink(data);
        }
        // A link is cleared only where its removal needs it. A failure shows in what comes next.
        if (!link || (attributes & FILE_ATTRIBUTE_READONLY) != 0)
            SetFileAttributesW(target, FILE_ATTRIBUTE_NORMAL);
    }

    /// What cannot be told is not touched: were it a link, its target would be destroyed, and were it none,
    /// it would go without being overwritten.
    void requireKnown(const char* place) const
    {
        if (code != ERROR_SUCCESS)
            throw Exception(place, code);
    }

    /// Removes a link, which may stand for a file or for a folder.
    void removeLink(const wchar_t* target, const char* place) const
    {
        const bool folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (!(folder ? RemoveDirectoryW(target) : DeleteFileW(target)))
            throw Exception(place);
    }

    DWORD attributes = 0;
    DWORD code = ERROR_SUCCESS;
    bool link = false;
};

/// The text that the boot-time program finds the file by: absolute and without a prefix.
std::wstring listedPath(const wchar_t* path)
{
    std::wstring text(path);
    if (text.compare(0, 4, L"\\??\\") == 0)
        return text.substr(4);
    const bool network = text.size() >= 2 && text[0] == L'\\' && text[1] == L'\\';
    const bool absolute = network || (text.size() >= 3 && text[1] == L':' && text[2] == L'\\');
    // Nothing resolves slashes and dots at boot.
    const bool resolved = text.find(L'/') == std::wstring::npos && text.find(L"\\.") == std::wstring::npos;
    if (!absolute || (!resolved && text.compare(0, 4, L"\\\\?\\") != 0)) {
        // Not through the system's own resolver, which would drop closing dots and blanks.
        const Win32Path target(path);
        std::wstring full(MAX_PATH, L'\0');
        for (;;) {
            const DWORD length =
                GetFullPathNameW(target, static_cast<DWORD>(full.size()), full.data(), nullptr);
            if (length == 0)
                return text;
            const bool fits = length < full.size();
            full.resize(length);
            if (fits)
                break;
        }
        text = std::move(full);
    }
    if (text.compare(0, 4, L"\\\\?\\") == 0 || text.compare(0, 4, L"\\\\.\\") == 0)
        text.erase(0, 4);
    else if (text.compare(0, 2, L"\\\\") == 0)
        text.replace(0, 2, L"UNC\\");
    return text;
}

/// The streams of a file or folder beside its content. A file system that knows none has none.
HeapStringW nextStream(FindHandle& search, const wchar_t* target, const char* place)
{
    WIN32_FIND_STREAM_DATA data;
    for (;;) {
        bool found = true;
        if (search.isValid()) {
            found = FindNextStreamW(search.get(), &data) != FALSE;
        } else {
            search.reset(FindFirstStreamW(target, FindStreamInfoStandard, &data, 0));
            found = search.isValid();
        }
        if (found && std::wstring_view(data.cStreamName) != L"::$DATA")
            return data.cStreamName;
        if (found)
            continue;
        switch (GetLastError()) {
        case ERROR_HANDLE_EOF:
        case ERROR_INVALID_PARAMETER:
        case ERROR_INVALID_FUNCTION:
        case ERROR_NOT_SUPPORTED:
        case ERROR_CALL_NOT_IMPLEMENTED:
            return {};
        default:
            throw Exception(place);
        }
    }
}
} // namespace

/// The file that takes up a volume's free space. It goes when this goes, in every case.
class Wiper::Filler
{
public:
    Filler(Wiper& wiper, const wchar_t* folder)
        : m_wiper(wiper), m_path(std::wstring(folder) + L"FreeSpaceFile.qmx"), m_target(m_path.c_str())
    {
        // Were a link of that name planted there, the link would be filled and deleted, not what it leads to.
        m_file.reset(CreateFileW(m_target, GENERIC_ALL, 0, nullptr, OPEN_ALWAYS,
                                 FILE_ATTRIBUTE_HIDDEN | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        if (!m_file.isValid())
            throw Exception(WIPER_PLACE("Wiper::WipeFreeSpace"));
        const bool isNew = GetLastError() != ERROR_ALREADY_EXISTS;
        BY_HANDLE_FILE_INFORMATION information{};
        if (!GetFileInformationByHandle(m_file.get(), &information))
            giveUp(GetLastError(), isNew);
        // Were it a second name of somebody's file, that would be cut with it.
        if (information.nNumberOfLinks > 1)
            giveUp(ERROR_ALREADY_EXISTS, false);
        // In a compressed folder zeros would take up no space.
        USHORT format = COMPRESSION_FORMAT_NONE;
        DWORD returned = 0;
        if ((information.dwFileAttributes & FILE_ATTRIBUTE_COMPRESSED) != 0 &&
            !DeviceIoControl(m_file.get(), FSCTL_SET_COMPRESSION, &format, sizeof format, nullptr, 0,
                             &returned, nullptr))
            giveUp(GetLastError(), true);
    }
    Filler(const Filler&) = delete;
    Filler& operator=(const Filler&) = delete;
    ~Filler()
    {
        if (m_file.isValid())
            deleteFillerFile();
    }

    [[nodiscard]] HANDLE get() const noexcept { return m_file.get(); }

    /// Closes and deletes the file. A failure puts it on the boot-time list; returns its code.
    long deleteFillerFile() noexcept
    {
        // While it is open: were it opened by somebody else next, the volume would stay full, without room
        // even for the boot-time list. What fails here is tried again below.
        FILE_END_OF_FILE_INFO end{};
        SetFileInformationByHandle(m_file.get(), FileEndOfFileInfo, &end, sizeof end);
        m_file.reset();
        const long code = boundary::statusFrame([&]() -> long {
            {
                const Win32Handle file(CreateFileW(m_target, GENERIC_ALL, 0, nullptr, OPEN_EXISTING,
                                                   FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT,
                                                   nullptr));
                if (!file.isValid() || !SetEndOfFile(file.get()))
                    throw Exception(WIPER_PLACE("Wiper::deleteFillerFile"));
            }
            if (!DeleteFileW(m_target))
                throw Exception(WIPER_PLACE("Wiper::deleteFillerFile"));
            return ERROR_SUCCESS;
        });
        if (code != ERROR_SUCCESS) {
            m_wiper.schedule(m_path.c_str());
            // Whatever stood in the way of cutting it, the volume is not to stay full if that can be helped.
            DeleteFileW(m_target);
        }
        return code;
    }

private:
    [[noreturn]] void giveUp(DWORD code, bool isOurs)
    {
        if (isOurs)
            deleteFillerFile();
        m_file.reset();
        throw Exception(WIPER_PLACE("Wiper::WipeFreeSpace"), code);
    }

    Wiper& m_wiper;
    std::wstring m_path;
    Win32Path m_target;
    Win32Handle m_file;
};

long Wiper::Wipe(WipeCallback callback, WipeProgress* progress, std::uint32_t kind, const wchar_t* path,
                 DirectoryStack* stack, const IScanValidator* validator, std::uint32_t method,
                 std::uint32_t passes, HANDLE cancelEvent)
{
    return boundary::statusFrame([&]() -> long {
        if (path == nullptr)
            throw Exception(WIPER_PLACE("Wiper::Wipe"), ERROR_INVALID_PARAMETER);
        m_callback = callback;
        m_progress = callback != nullptr ? progress : nullptr;
        m_method = method;
        m_passes = passes;
        m_cancelEvent = cancelEvent;
        m_ntdll = loadSystemModule(L"ntdll.dll");
        if (!m_ntdll.isValid())
            throw Exception(WIPER_PLACE("Wiper::Wipe"));
        m_kind = kind;

        struct BufferScope
        {
            Wiper& wiper;
            ~BufferScope()
            {
                wiper.m_buffer.reset();
                wiper.m_randomText.reset();
            }
        } const buffers{*this};
        return runKind(path, stack, validator);
    });
}

long Wiper::runKind(const wchar_t* path, DirectoryStack* stack, const IScanValidator* validator)
{
    const auto raised = [](long code, const char* place) {
        if (code != ERROR_SUCCESS)
            throw Exception(place, static_cast<unsigned long>(code));
        return code;
    };
    const auto refused = [&] {
        const File item(path, 0);
        return validator != nullptr && !validator->validate(item);
    };
    const bool known = m_kind == kWipeFreeSpace || m_kind == kWipeFile || m_kind == kWipeDirectoryStack ||
                       m_kind == kWipePartition;
    if (known && (m_method < kWipeZeros || m_method > kWipeGutmann))
        throw Exception(WIPER_PLACE("Wiper::Wipe"), ERROR_INVALID_PARAMETER);

    switch (m_kind) {
    case kWipeFreeSpace:
        for (std::uint32_t pass = 0; pass < m_passes && !isCancelled(m_cancelEvent); ++pass)
            raised(WipeFreeSpace(path), WIPER_PLACE("Wiper::Wipe"));
        throwIfCancelled(WIPER_PLACE("Wiper::Wipe"));
        return ERROR_SUCCESS;
    case kWipeFile:
        return refused() ? ERROR_SUCCESS : raised(WipeFile(path), WIPER_PLACE("Wiper::Wipe"));
    case kWipeDirectoryStack: {
        if (stack == nullptr)
            throw Exception(WIPER_PLACE("Wiper::Wipe"), ERROR_INVALID_PARAMETER);
        const Directory item(path, 0);
        return raised(WipeDirectoryStack(*stack), WIPER_PLACE("Wiper::Wipe"));
    }
    case kWipePartition: {
        if (refused())
            return ERROR_SUCCESS;
        const long code = boundary::statusFrame([&]() -> long {
            WipePartition(path);
            return ERROR_SUCCESS;
        });
        if (code == ERROR_CANCELLED)
            return code;
        if (code != ERROR_SUCCESS)
            m_needsReboot = 1;
        return raised(code, WIPER_PLACE("Wiper::Wipe"));
    }
    default:
        return ERROR_SUCCESS;
    }
}

long Wiper::WipeFile(const wchar_t* path)
{
    const long code = boundary::statusFrame([&]() -> long {
        overwriteAndDelete(path);
        return ERROR_SUCCESS;
    });
    if (code != ERROR_SUCCESS && code != ERROR_CANCELLED && m_kind != kWipeDirectoryStack)
        schedule(path);
    return code;
}

void Wiper::overwriteAndDelete(const wchar_t* path)
{
    const Win32Path given(path);
    const Found found(given);
    throwIfCancelled(WIPER_PLACE("Wiper::WipeFile"));
    found.requireKnown(WIPER_PLACE("Wiper::WipeFile"));
    if (found.link) {
        found.removeLink(given, WIPER_PLACE("Wiper::WipeFile"));
        return;
    }

    // Once the file is open it is deleted, whatever happens: so first what may be missing.
    allocateBuffers();
    const std::wstring renamed = renameFile(path);
    const Win32Path target(renamed.c_str());
    // Before the file itself is open: its owner alone could open them then.
    wipeStreams(target);
    const Win32Handle file(CreateFileW(target, GENERIC_ALL, 0, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    if (!file.isValid())
        throw Exception(WIPER_PLACE("Wiper::WipeFile"));
    overwriteRepeatedly(file.get(), sizeOf(file.get(), WIPER_PLACE("Wiper::WipeFile")));
    cut(file.get(), WIPER_PLACE("Wiper::WipeFile"));
}

std::wstring Wiper::renameFile(const wchar_t* path) const
{
    // The file keeps its name; what is looked up here is what a rename by handle would have to close with.
    if (GetProcAddress(m_ntdll.get(), "NtClose") == nullptr)
        throw Exception(WIPER_PLACE("Wiper::renameFile"), ERROR_FUNCTION_FAILED);
    return path;
}

void Wiper::wipeStreams(const wchar_t* path)
{
    // A stream has none of its own. The drive's colon stands second.
    std::wstring owner(path);
    const std::size_t colon = owner.rfind(L':');
    const std::size_t separator = owner.find_last_of(L"\\/");
    if (colon != std::wstring::npos && (separator == std::wstring::npos ? colon > 1 : colon > separator))
        return;
    while (owner.size() > 1 && (owner.back() == L'\\' || owner.back() == L'/'))
        owner.pop_back();
    if (owner.size() == 1)
        owner.insert(0, L".\\"); // a letter before a colon would be a drive
    FindHandle search;
    for (;;) {
        const HeapStringW name = nextStream(search, path, WIPER_PLACE("Wiper::WipeFile"));
        if (name.empty())
            return;
        const std::wstring full = owner + name.c_str();
        const Win32Path target(full.c_str());
        const Win32Handle stream(CreateFileW(target, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                             FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!stream.isValid())
            throw Exception(WIPER_PLACE("Wiper::WipeFile"));
        const std::uint64_t size = sizeOf(stream.get(), WIPER_PLACE("Wiper::WipeFile"));
        if (m_progress != nullptr)
            m_progress->total += size * m_passes;
        overwriteRepeatedly(stream.get(), size);
        cut(stream.get(), WIPER_PLACE("Wiper::WipeFile"));
    }
}

long Wiper::WipeFreeSpace(const wchar_t* path)
{
    return boundary::statusFrame([&]() -> long {
        throwIfCancelled(WIPER_PLACE("Wiper::WipeFreeSpace"));
        allocateBuffers();
        Filler filler(*this, path);
        seek(filler.get(), 0, FILE_END, WIPER_PLACE("Wiper::WipeFreeSpace"));
        std::uint64_t end = sizeOf(filler.get(), WIPER_PLACE("Wiper::WipeFreeSpace"));
        const Win32Path volume(path);
        const auto readFree = [&] {
            ULARGE_INTEGER bytes{};
            if (!GetDiskFreeSpaceExW(volume, nullptr, nullptr, &bytes))
                throw Exception(WIPER_PLACE("Wiper::WipeFreeSpace"));
            return bytes.QuadPart;
        };

        std::uint64_t free = readFree();
        while (free > 0 && !isCancelled(m_cancelEvent)) {
            const auto chunk = static_cast<std::uint32_t>(std::min<std::uint64_t>(free, kChunkSize));
            overwriteChunk(filler.get(), end, chunk);
            end += chunk;
            const std::uint64_t before = free;
            free = readFree();
            if (m_progress != nullptr) {
                // What others took or freed meanwhile is less or more to write.
                const std::uint64_t expected = m_progress->total + free + chunk;
                m_progress->total = expected > before ? expected - before : 0;
            }
            addDone(chunk);
        }
        throwIfCancelled(WIPER_PLACE("Wiper::WipeFreeSpace"));
        if (m_progress != nullptr) {
            m_progress->done = std::max(m_progress->done, m_progress->total);
            const OutsideLibrary outside;
            m_callback(m_progress);
        }
        return filler.deleteFillerFile();
    });
}

void Wiper::WipePartition(const wchar_t* path)
{
    std::wstring volume(path);
    if (volume.size() < 3)
        throw Exception(WIPER_PLACE("Wiper::WipePartition"), static_cast<unsigned long>(E_INVALIDARG));
    ULARGE_INTEGER size{};
    if (!GetDiskFreeSpaceExW(path, nullptr, &size, nullptr))
        throw Exception(WIPER_PLACE("Wiper::WipePartition"));
    volume.resize(2);
    allocateBuffers();
    const std::wstring device = L"\\\\.\\" + volume;
    const Win32Handle file(CreateFileW(device.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.isValid())
        throw Exception(WIPER_PLACE("Wiper::WipePartition"));
    overwriteRepeatedly(file.get(), size.QuadPart);
}

long Wiper::WipeDirectoryStack(DirectoryStack& stack)
{
    long result = ERROR_SUCCESS;
    while (!stack.empty() && !isCancelled(m_cancelEvent)) {
        const DirectoryStackEntry& top = stack.back();
        bool ended = false;
        if (!top.skip && top.isDirectory) {
            ended = !wipeTopDirectory(top);
        } else if (!top.skip) {
            result = WipeFile(joinPath(top.directory, top.path).c_str());
            if (result != ERROR_SUCCESS)
                throw Exception(WIPER_PLACE("Wiper::WipeDirectoryStack"), static_cast<unsigned long>(result));
        }
        stack.pop_back();
        if (ended)
            break;
    }
    throwIfCancelled(WIPER_PLACE("Wiper::WipeDirectoryStack"));
    return result;
}

/// Returns false for the root of a local disk, which ends the walk.
bool Wiper::wipeTopDirectory(const DirectoryStackEntry& entry)
{
    if (entry.path.size() == 3) {
        const std::wstring drive(entry.path, 0, 2);
        wchar_t device[1024];
        const DWORD length = QueryDosDeviceW(drive.c_str(), device, static_cast<DWORD>(std::size(device)));
        if (length != 0 && std::wstring_view(device).find(L"Harddisk") != std::wstring_view::npos)
            return false;
    }
    const Win32Path target(entry.path.c_str());
    const Found found(target);
    found.requireKnown(WIPER_PLACE("Wiper::WipeDirectoryStack"));
    if (!found.link)
        wipeStreams(target);
    if (!RemoveDirectoryW(target))
        throw Exception(WIPER_PLACE("Wiper::WipeDirectoryStack"));
    return true;
}

void Wiper::overwriteRepeatedly(HANDLE file, std::uint64_t size)
{
    for (std::uint32_t pass = 0; pass < m_passes; ++pass) {
        seek(file, 0, FILE_BEGIN, WIPER_PLACE("Wiper::overwriteRepeatedly"));
        for (std::uint64_t done = 0; done < size;) {
            throwIfCancelled(WIPER_PLACE("Wiper::overwriteRepeatedly"));
            const auto chunk = static_cast<std::uint32_t>(std::min<std::uint64_t>(size - done, kChunkSize));
            overwriteChunk(file, done, chunk);
            done += chunk;
            addDone(chunk);
        }
        throwIfCancelled(WIPER_PLACE("Wiper::overwriteRepeatedly"));
    }
}

void Wiper::allocateBuffers()
{
    if (m_method == kWipeRandomText) {
        if (m_randomText == nullptr) {
            m_randomText = std::make_unique<wchar_t[]>(kRandomCharacters + 1);
            fillpattern::fillRandomText(m_randomText.get(), kRandomCharacters);
        }
    } else if (m_buffer == nullptr) {
        m_buffer = std::make_unique<unsigned char[]>(kChunkSize); // zeros
    }
}

/// Overwrites the chunk at `offset`, where the file's pointer stands. The event has just been polled.
void Wiper::overwriteChunk(HANDLE file, std::uint64_t offset, std::uint32_t size)
{
    if (m_method != kWipeGutmann) {
        writeAndFlush(file,
                      m_method == kWipeZeros ? static_cast<const void*>(m_buffer.get()) : m_randomText.get(),
                      size);
        return;
    }
    for (std::uint32_t pass = 0; pass < fillpattern::kGutmannPasses; ++pass) {
        if (pass != 0)
            throwIfCancelled(WIPER_PLACE("Wiper::overwriteChunk"));
        seek(file, offset, FILE_BEGIN, WIPER_PLACE("Wiper::overwriteChunk"));
        GuttmanProcess(pass, m_buffer.get(), size);
        writeAndFlush(file, m_buffer.get(), size);
    }
    throwIfCancelled(WIPER_PLACE("Wiper::overwriteChunk"));
}

void Wiper::writeAndFlush(HANDLE file, const void* data, std::uint32_t size)
{
    const auto* at = static_cast<const unsigned char*>(data);
    DWORD failure = ERROR_SUCCESS;
    for (std::uint32_t left = size, piece = size; left != 0;) {
        DWORD written = 0;
        const BOOL succeeded = WriteFile(file, at, std::min(piece, left), &written, nullptr);
        if (succeeded && written != 0) {
            at += written;
            left -= written;
            failure = ERROR_SUCCESS; // there was room for it in smaller pieces
            continue;
        }
        failure = succeeded ? ERROR_WRITE_FAULT : GetLastError();
        // A full volume may have room for a smaller piece yet: it is used before the failure is told.
        if (failure != ERROR_DISK_FULL || m_kind != kWipeFreeSpace || piece <= kSmallestPiece)
            break;
        piece /= 2;
    }
    if (!FlushFileBuffers(file) && failure == ERROR_SUCCESS)
        failure = GetLastError();
    if (failure != ERROR_SUCCESS)
        throw Exception(WIPER_PLACE("Wiper::writeAndFlush"), failure);
}

void Wiper::addDone(std::uint64_t bytes)
{
    if (m_progress == nullptr)
        return;
    m_progress->done += bytes;
    const OutsideLibrary outside;
    m_callback(m_progress);
}

long Wiper::GuttmanProcess(std::uint32_t pass, unsigned char* buffer, std::size_t length)
{
    if (pass >= fillpattern::kGutmannPasses)
        return ERROR_SUCCESS;
    const fillpattern::Pass& fill = fillpattern::gutmannPass(pass);
    if (fill.period != 0) {
        fillpattern::fillRepeated(buffer, length, fill.bytes, fill.period);
        return ERROR_SUCCESS;
    }
    const std::size_t characters = length / sizeof(wchar_t);
    const std::unique_ptr<wchar_t[]> text(new (std::nothrow) wchar_t[characters + 1]);
    if (text == nullptr)
        throw Exception(WIPER_PLACE("Wiper::GuttmanProcess"), ERROR_NOT_ENOUGH_MEMORY);
    fillpattern::fillRandomText(text.get(), characters);
    CopyMemory(buffer, text.get(), length); // of an odd length the last byte is the terminator's
    return ERROR_SUCCESS;
}

void Wiper::schedule(const wchar_t* path)
{
    m_needsReboot = 1;
    try {
        ScheduleForceDelete(listedPath(path).c_str(), m_method, m_passes);
    } catch (...) {
        ScheduleForceDelete(path, m_method, m_passes);
    }
}

void Wiper::throwIfCancelled(const char* place) const
{
    if (isCancelled(m_cancelEvent))
        throw Exception(place, ERROR_CANCELLED);
}

#include "core/win32/utils/wiper/include/Wiper.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

#include "core/win32/utils/objectmanager/include/Boundary.h"
#include "core/win32/utils/paths/include/OpenedItself.h"
#include "core/win32/utils/paths/include/Patience.h"
#include "core/win32/utils/paths/include/Win32Path.h"
#include "core/win32/utils/scanengine/include/Directory.h"
#include "core/win32/utils/scanengine/include/File.h"
#include "core/win32/utils/wiper/include/AllocatedRanges.h"
#include "core/win32/utils/wiper/include/FillPattern.h"
#include "core/win32/utils/wiper/include/Filler.h"
#include "core/win32/utils/wiper/include/ForceDelete.h"
#include "core/win32/utils/wiper/include/StackPaths.h"
#include "core/win32/utils/wiper/include/VolumeDevice.h"
#include "core/win32/utils/wiper/include/WipeTarget.h"

constexpr char kWiperHeader[] = "core\\win32\\utils\\wiper\\include\\Wiper.h";

namespace {
constexpr std::uint32_t kSmallestPiece = 512; // no file system allocates less
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

/// Truncates a file whose pointer is at its beginning.
void cut(HANDLE file, const char* place)
{
    seek(file, 0, FILE_BEGIN, place);
    if (!SetEndOfFile(file))
        throw Exception(place);
}

/// The next alternate stream of a file or folder. None on a file system without streams.
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

/// The root of a local disk, which is never removed.
bool isDiskRoot(std::wstring_view path)
{
    if (path.size() != 3)
        return false;
    wchar_t device[1024];
    const DWORD length = QueryDosDeviceW(std::wstring(path.substr(0, 2)).c_str(), device,
                                         static_cast<DWORD>(std::size(device)));
    return length != 0 && std::wstring_view(device).find(L"Harddisk") != std::wstring_view::npos;
}

} // namespace

long Wiper::Wipe(WipeCallback callback, WipeProgress* progress, std::uint32_t kind, const wchar_t* path,
                 DirectoryStack* stack, const IScanValidator* validator, std::uint32_t method,
                 std::uint32_t passes, HANDLE cancelEvent)
{
    return boundary::statusFrame([&]() -> long {
        if (path == nullptr)
            throw Exception(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__), ERROR_INVALID_PARAMETER);
        // A call from a callback would overwrite this call's buffer and settings.
        if (m_isRunning)
            throw Exception(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__), ERROR_BUSY);
        m_callback = callback;
        m_progress = callback != nullptr ? progress : nullptr;
        m_method = method & ~std::uint32_t{kWipeCloudFiles};
        m_takesCloudFiles = (method & kWipeCloudFiles) != 0;
        m_passes = passes;
        m_cancelEvent = cancelEvent;
        m_ntdll = loadSystemModule(L"ntdll.dll");
        if (!m_ntdll.isValid())
            throw Exception(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__));
        m_kind = kind;

        struct RunScope
        {
            Wiper& wiper;
            explicit RunScope(Wiper& running) : wiper(running) { wiper.m_isRunning = true; }
            RunScope(const RunScope&) = delete;
            RunScope& operator=(const RunScope&) = delete;
            ~RunScope()
            {
                wiper.m_isRunning = false;
                wiper.m_buffer.reset();
                wiper.m_randomText.reset();
            }
        } const scope(*this);
        return runKind(path, stack, validator);
    });
}

long Wiper::runKind(const wchar_t* path, DirectoryStack* stack, const IScanValidator* validator)
{
    const auto refused = [&] {
        const File item(path, 0);
        const OutsideLibrary outside;
        return validator != nullptr && !validator->validate(item);
    };
    const bool known = m_kind == kWipeFreeSpace || m_kind == kWipeFile || m_kind == kWipeDirectoryStack ||
                       m_kind == kWipePartition;
    if (known && (m_method < kWipeZeros || m_method > kWipeGutmann))
        throw Exception(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__), ERROR_INVALID_PARAMETER);

    // The path is resolved now, so a callback may change the current folder.
    switch (m_kind) {
    case kWipeFreeSpace:
        wipeFreeSpaceRepeatedly(path);
        return ERROR_SUCCESS;
    case kWipeFile: {
        const std::wstring file = isSettled(path) ? path : settledPath(path);
        if (!refused())
            requireSuccess(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__), WipeFile(file));
        return ERROR_SUCCESS;
    }
    case kWipeDirectoryStack: {
        if (stack == nullptr)
            throw Exception(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__), ERROR_INVALID_PARAMETER);
        const Directory item(path, 0);
        requireSuccess(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__),
                       WipeDirectoryStack(settledPath(path), *stack));
        return ERROR_SUCCESS;
    }
    case kWipePartition:
        return refused() ? ERROR_SUCCESS : wipePartitionOrAskForRestart(path);
    default:
        return ERROR_SUCCESS;
    }
}

void Wiper::wipeFreeSpaceRepeatedly(const wchar_t* path)
{
    if (*path == L'\0')
        throw Exception(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__), ERROR_INVALID_PARAMETER);
    const std::wstring folder = settledPath(path);
    const std::wstring filler = settledPath(std::wstring(path) + L"FreeSpaceFile.qmx");
    for (std::uint32_t pass = 0; pass < m_passes; ++pass) {
        throwIfCancelled(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__));
        requireSuccess(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__), WipeFreeSpace(folder, filler));
    }
    throwIfCancelled(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__));
}

long Wiper::wipePartitionOrAskForRestart(const wchar_t* path)
{
    const long code = boundary::statusFrame([&]() -> long {
        WipePartition(path);
        return ERROR_SUCCESS;
    });
    if (code == ERROR_CANCELLED)
        return code;
    if (code != ERROR_SUCCESS)
        m_needsReboot = 1;
    requireSuccess(PLACE(kWiperHeader, "Wiper::Wipe", __LINE__), code);
    return code;
}

long Wiper::WipeFile(const std::wstring& path)
{
    const long code = boundary::statusFrame([&]() -> long {
        overwriteAndDelete(path);
        return ERROR_SUCCESS;
    });
    if (isWorthScheduling(code) && m_kind != kWipeDirectoryStack)
        schedule(path);
    return code;
}

bool Wiper::isWorthScheduling(long code) noexcept
{
    constexpr long kNothingToWaitFor[] = {ERROR_SUCCESS,  ERROR_CANCELLED,      kStoppedOnSymlink,
                                          kAnotherFile,   ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND,
                                          kDeletePending, ERROR_FILE_OFFLINE};
    return std::find(std::begin(kNothingToWaitFor), std::end(kNothingToWaitFor), code) ==
           std::end(kNothingToWaitFor);
}

void Wiper::overwriteAndDelete(const std::wstring& path)
{
    throwIfCancelled(PLACE(kWiperHeader, "Wiper::WipeFile", __LINE__));
    // The root of a drive that stands for a folder or a mounted volume looks like a link.
    const std::wstring_view plain = withoutClosing(plainText(path));
    if (plain.size() == 3 && plain.substr(1) == L":\\")
        throw Exception(PLACE(kWiperHeader, "Wiper::WipeFile", __LINE__), ERROR_ACCESS_DENIED);
    const Win32Path target(path.c_str());
    const WipeTarget found(target, m_cancelEvent);
    if (found.isLink())
        return found.remove();
    if (found.isFolder()) // the open would refuse it, but only after its streams were destroyed
        throw Exception(PLACE(kWiperHeader, "Wiper::WipeFile", __LINE__), ERROR_ACCESS_DENIED);

    if (isFetchedOnAccess(found.attributes()) && !m_takesCloudFiles)
        throw Exception(PLACE(kWiperHeader, "Wiper::WipeFile", __LINE__), ERROR_FILE_OFFLINE);

    // Once the file is open it will be deleted in any case, so do first what may fail.
    allocateBuffers();
    const std::wstring renamed = renameFile(path.c_str());
    // Before the file itself is opened: only its owner could open them then.
    if (wipeStreams(path, target, found))
        found.requireUnchanged();
    Win32Handle file = found.open();
    try {
        overwriteRepeatedly(file.get(), sizeOf(file.get(), PLACE(kWiperHeader, "Wiper::WipeFile", __LINE__)),
                            (found.attributes() & FILE_ATTRIBUTE_SPARSE_FILE) != 0);
        cut(file.get(), PLACE(kWiperHeader, "Wiper::WipeFile", __LINE__));
    } catch (...) {
        found.close(file);
        throw;
    }
    if (!found.close(file))
        found.requireGone();
}

std::wstring Wiper::renameFile(const wchar_t* path) const
{
    // The file keeps its name; a rename by handle would need this function.
    if (GetProcAddress(m_ntdll.get(), "NtClose") == nullptr)
        throw Exception(PLACE(kWiperHeader, "Wiper::renameFile", __LINE__), ERROR_FUNCTION_FAILED);
    return path;
}

/// Overwrites the alternate streams. Returns whether there were any.
bool Wiper::wipeStreams(const std::wstring& path, const wchar_t* target, const WipeTarget& found)
{
    // A stream has no streams. The drive's colon is the second character.
    const std::wstring_view plain = plainText(path);
    const std::size_t colon = plain.rfind(L':');
    const std::size_t separator = plain.find_last_of(L'\\');
    if (colon != std::wstring_view::npos &&
        (separator == std::wstring_view::npos ? colon > 1 : colon > separator))
        return false;
    const std::wstring owner(withoutClosing(path));
    FindHandle search;
    for (bool any = false;; any = true) {
        const HeapStringW name = nextStream(search, target, PLACE(kWiperHeader, "Wiper::WipeFile", __LINE__));
        if (name.empty())
            return any;
        const std::wstring full = owner + name.c_str();
        const Win32Path streamTarget(full.c_str());
        Win32Handle stream;
        for (Patience patience(m_cancelEvent);;) {
            stream.reset(CreateFileW(streamTarget, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
            if (stream.isValid())
                break;
            if (!patience.isWorthAnotherTry(GetLastError()))
                throw Exception(PLACE(kWiperHeader, "Wiper::WipeFile", __LINE__));
        }
        found.requireSame(stream.get()); // a stream has the number of its file
        const std::uint64_t size = sizeOf(stream.get(), PLACE(kWiperHeader, "Wiper::WipeFile", __LINE__));
        if (m_progress != nullptr)
            m_progress->total += size * m_passes;
        overwriteRepeatedly(stream.get(), size, (found.attributes() & FILE_ATTRIBUTE_SPARSE_FILE) != 0);
        cut(stream.get(), PLACE(kWiperHeader, "Wiper::WipeFile", __LINE__));
    }
}

long Wiper::WipeFreeSpace(const std::wstring& folder, const std::wstring& fillerPath)
{
    return boundary::statusFrame([&]() -> long {
        throwIfCancelled(PLACE(kWiperHeader, "Wiper::WipeFreeSpace", __LINE__));
        allocateBuffers();
        Fillers fillers(*this, fillerPath);
        const Win32Path volume(folder.c_str());
        const auto readFree = [&] {
            ULARGE_INTEGER bytes{};
            if (!GetDiskFreeSpaceExW(volume, nullptr, nullptr, &bytes))
                throw Exception(PLACE(kWiperHeader, "Wiper::WipeFreeSpace", __LINE__));
            return bytes.QuadPart;
        };

        std::uint64_t free = readFree();
        while (free > 0 && !isCancelled(m_cancelEvent)) {
            const auto chunk = static_cast<std::uint32_t>(std::min<std::uint64_t>(free, kChunkSize));
            const bool isWritten = fillOn(fillers, chunk);
            const std::uint64_t before = free;
            free = readFree();
            // What others allocated or freed meanwhile changes the total.
            correctTotal(before, free + (isWritten ? chunk : 0));
            if (isWritten) {
                addDone(chunk);
                continue;
            }
            // Either the filler cannot grow, or somebody took the last clusters meanwhile. A filler that took
            // next to nothing shows that there is no room, whatever the volume reports.
            const bool isFull = fillers.end() < kChunkSize || !fillers.beginNext();
            if (isFull && free >= kChunkSize)
                throw Exception(PLACE(kWiperHeader, "Wiper::WipeFreeSpace", __LINE__), ERROR_DISK_FULL);
            if (isFull)
                break;
        }
        throwIfCancelled(PLACE(kWiperHeader, "Wiper::WipeFreeSpace", __LINE__));
        if (m_progress != nullptr) {
            m_progress->done = std::max(m_progress->done, m_progress->total);
            const OutsideLibrary outside;
            m_callback(m_progress);
        }
        return fillers.deleteFillerFiles();
    });
}

/// Appends a chunk. Returns false when the volume is full or the file cannot grow before all of it is
/// written; what there was room for is overwritten in full then.
bool Wiper::fillOn(Fillers& fillers, std::uint32_t size)
{
    try {
        overwriteChunk(fillers.get(), fillers.end(), size);
        fillers.advance(size);
        return true;
    } catch (const Exception& raised) {
        if (raised.getCode() != ERROR_DISK_FULL && raised.getCode() != ERROR_FILE_TOO_LARGE)
            throw;
    }
    const std::uint64_t begin = fillers.end();
    const auto taken = static_cast<std::uint32_t>(fillers.readEnd() - begin);
    if (m_method == kWipeGutmann && taken != 0) // only the first pass is done
        overwriteChunk(fillers.get(), begin, taken);
    return false;
}

void Wiper::WipePartition(const wchar_t* path)
{
    std::wstring volume(path);
    // Without a letter and a colon at its beginning it would name another device.
    if (volume.size() < 3 || volume[1] != L':' || volume[0] >= 0x80 || std::isalpha(volume[0]) == 0)
        throw Exception(PLACE(kWiperHeader, "Wiper::WipePartition", __LINE__),
                        static_cast<unsigned long>(E_INVALIDARG));
    ULARGE_INTEGER size{};
    if (!GetDiskFreeSpaceExW(path, nullptr, &size, nullptr))
        throw Exception(PLACE(kWiperHeader, "Wiper::WipePartition", __LINE__));
    volume.resize(2);
    allocateBuffers();
    const std::wstring device = L"\\\\.\\" + volume;
    const std::uint64_t length = volumedevice::lengthOf(device.c_str(), m_cancelEvent);
    const Win32Handle file = volumedevice::open(device.c_str(), GENERIC_WRITE, 0, m_cancelEvent);
    if (!file.isValid())
        throw Exception(PLACE(kWiperHeader, "Wiper::WipePartition", __LINE__));
    volumedevice::takeOver(file.get(), m_cancelEvent);
    std::uint64_t counted = size.QuadPart;
    if (length > counted) { // a quota's limit may be anywhere
        correctTotal(counted * m_passes, length * m_passes);
        counted -= counted % volumedevice::kLargestSector;
    }
    for (std::uint32_t pass = 0; pass < m_passes; ++pass) {
        overwriteRange(file.get(), 0, counted);
        if (length > counted)
            overwriteRange(file.get(), counted, length);
        throwIfCancelled(PLACE(kWiperHeader, "Wiper::WipePartition", __LINE__));
    }
}

long Wiper::WipeDirectoryStack(const std::wstring& root, DirectoryStack& given)
{
    const TakenStack taken(given);
    DirectoryStack& stack = taken.entries();
    SettledEntries entries(stack);
    HeldWay way(root);
    long result = ERROR_SUCCESS;
    while (!stack.empty()) {
        throwIfCancelled(PLACE(kWiperHeader, "Wiper::WipeDirectoryStack", __LINE__));
        const DirectoryStackEntry& top = stack.back();
        bool ended = false;
        if (!top.skip) {
            const std::wstring path = entries.take(stack);
            ended = top.isDirectory && isDiskRoot(withoutClosing(plainText(path)));
            if (!ended) {
                way.hold(path);
                result = top.isDirectory ? wipeFolder(path) : WipeFile(path);
            }
            if (result != ERROR_SUCCESS)
                throw Exception(PLACE(kWiperHeader, "Wiper::WipeDirectoryStack", __LINE__),
                                static_cast<unsigned long>(result));
        }
        stack.pop_back();
        if (ended)
            break;
    }
    throwIfCancelled(PLACE(kWiperHeader, "Wiper::WipeDirectoryStack", __LINE__));
    return result;
}

long Wiper::wipeFolder(const std::wstring& path)
{
    const Win32Path target(path.c_str());
    const WipeTarget found(target, m_cancelEvent);
    if (!found.isFolder() && !found.isLink())
        throw Exception(PLACE(kWiperHeader, "Wiper::WipeDirectoryStack", __LINE__), ERROR_DIRECTORY);
    if (!found.isLink() && wipeStreams(path, target, found))
        found.requireUnchanged();
    found.remove();
    return ERROR_SUCCESS;
}

void Wiper::overwriteRepeatedly(HANDLE file, std::uint64_t size, bool isSparse)
{
    for (std::uint32_t pass = 0; pass < m_passes; ++pass) {
        AllocatedRanges ranges(file, size, isSparse);
        while (ranges.next()) {
            correctTotal(ranges.takeHole(), 0);
            overwriteRange(file, ranges.begin(), ranges.end());
        }
        correctTotal(ranges.takeHole(), 0);
        throwIfCancelled(PLACE(kWiperHeader, "Wiper::overwriteRepeatedly", __LINE__));
    }
}

void Wiper::overwriteRange(HANDLE file, std::uint64_t begin, std::uint64_t end)
{
    seek(file, begin, FILE_BEGIN, PLACE(kWiperHeader, "Wiper::overwriteRange", __LINE__));
    while (begin < end) {
        throwIfCancelled(PLACE(kWiperHeader, "Wiper::overwriteRange", __LINE__));
        const auto chunk = static_cast<std::uint32_t>(std::min<std::uint64_t>(end - begin, kChunkSize));
        overwriteChunk(file, begin, chunk);
        begin += chunk;
        addDone(chunk);
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
            throwIfCancelled(PLACE(kWiperHeader, "Wiper::overwriteChunk", __LINE__));
        seek(file, offset, FILE_BEGIN, PLACE(kWiperHeader, "Wiper::overwriteChunk", __LINE__));
        GuttmanProcess(pass, m_buffer.get(), size);
        writeAndFlush(file, m_buffer.get(), size);
    }
    throwIfCancelled(PLACE(kWiperHeader, "Wiper::overwriteChunk", __LINE__));
}

void Wiper::writeAndFlush(HANDLE file, const void* data, std::uint32_t size)
{
    const auto* at = static_cast<const unsigned char*>(data);
    DWORD failure = ERROR_SUCCESS;
    for (std::uint32_t left = size, piece = size; left != 0;) {
        DWORD written = 0;
        const BOOL succeeded = WriteFile(file, at, std::min(piece, left), &written, nullptr);
        written = std::min<DWORD>(written, left);
        if (succeeded && written != 0) {
            at += written;
            left -= written;
            failure = ERROR_SUCCESS; // it did fit in smaller pieces
            continue;
        }
        failure = succeeded ? ERROR_WRITE_FAULT : GetLastError();
        // A full volume may still have room for a smaller piece, which is used before the failure is
        // returned.
        const bool isFull = failure == ERROR_DISK_FULL || failure == ERROR_FILE_TOO_LARGE;
        if (!isFull || m_kind != kWipeFreeSpace || piece <= kSmallestPiece)
            break;
        piece /= 2;
    }
    if (!FlushFileBuffers(file) && failure == ERROR_SUCCESS)
        failure = GetLastError();
    if (failure != ERROR_SUCCESS)
        throw Exception(PLACE(kWiperHeader, "Wiper::writeAndFlush", __LINE__), failure);
}

/// The total counted `expected` bytes; `found` is what there is to write.
void Wiper::correctTotal(std::uint64_t expected, std::uint64_t found) noexcept
{
    if (m_progress == nullptr)
        return;
    const std::uint64_t total = m_progress->total + found;
    m_progress->total = total > expected ? total - expected : 0;
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
    const fillpattern::Pass& fill = fillpattern::kPasses[pass];
    if (fill.period != 0) {
        fillpattern::fillRepeated(buffer, length, fill.bytes, fill.period);
        return ERROR_SUCCESS;
    }
    const std::size_t characters = length / sizeof(wchar_t);
    const std::unique_ptr<wchar_t[]> text(new (std::nothrow) wchar_t[characters + 1]);
    if (text == nullptr)
        throw Exception(PLACE(kWiperHeader, "Wiper::GuttmanProcess", __LINE__), ERROR_NOT_ENOUGH_MEMORY);
    fillpattern::fillRandomText(text.get(), characters);
    CopyMemory(buffer, text.get(), length); // with an odd length the last byte comes from the terminator
    return ERROR_SUCCESS;
}

void Wiper::schedule(const std::wstring& path)
{
    const std::uint32_t before = std::exchange(m_needsReboot, 1U);
    boundary::statusFrame([&]() -> long {
        const std::wstring listed = forcedelete::listedPath(path);
        if (listed.empty()) {
            m_needsReboot = before; // nothing waits for a restart
            return ERROR_SUCCESS;
        }
        return forcedelete::append(listed, m_method, m_passes);
    });
}

void Wiper::throwIfCancelled(const char* place) const
{
    if (isCancelled(m_cancelEvent))
        throw Exception(place, ERROR_CANCELLED);
}

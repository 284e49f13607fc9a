#include "engine/BootList.h"

#include "engine/BootNames.h"

namespace {
constexpr std::uint64_t kLargest = 0x40000000; // bytes
constexpr int kMostAttempts = 5;
constexpr ULONG kShareReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;

constexpr Opening kToRead = {FILE_READ_DATA | FILE_READ_ATTRIBUTES, native::kShareAll, native::kMustBeFile};
constexpr Opening kAlone = {FILE_READ_DATA | FILE_WRITE_DATA | FILE_READ_ATTRIBUTES | DELETE, FILE_SHARE_READ,
                            native::kMustBeFile};

/// Marks a line that was written only in part, so it does not pass for a whole one later.
constexpr Text kMissingEnd = L"?\r\n";

std::size_t copy(wchar_t* target, Text text)
{
    for (std::size_t i = 0; i < text.length; ++i)
        target[i] = text[i];
    return text.length;
}

/// The bytes that a list needs when it is rewritten: a header, and an end for each line that lacks one. All
/// such lines but the last are followed by a whole tag.
std::size_t roomFor(std::size_t bytes)
{
    return bytes + bytes / 4 + 64;
}

/// Copies a line to the new list.
std::size_t copyLine(wchar_t* target, const ListLine& line)
{
    const std::size_t length = copy(target, line.text);
    return length + copy(target + length, line.isWhole ? kMissingEnd.from(1) : kMissingEnd);
}
} // namespace

native::Status BootList::open()
{
    native::Status status = recover();
    if (status < 0)
        return status;
    NativeFile unfinished(m_api); // everything in it is also in the list
    if (unfinished.open(&m_folder, bootnames::kNewList, {DELETE, FILE_SHARE_READ, native::kMustBeFile}) >= 0)
        unfinished.remove();
    unfinished.close();
    bool isAligned = false;
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
        status = openToDrop(isAligned);
        if (status < 0 || isAligned)
            return status;
        status = align();
        if (status < 0)
            return status;
    }
    return native::kSharingViolation; // somebody spoils the list again and again
}

native::Status BootList::openToDrop(bool& isAligned)
{
    native::Status status =
        m_list.openPatiently(&m_folder, bootnames::kList,
                             {FILE_WRITE_DATA | FILE_READ_ATTRIBUTES, kShareReadWrite, native::kMustBeFile});
    if (status < 0)
        return status;
    NativeFile reader(m_api); // only for a moment, because it blocks programs that append
    status = reader.openPatiently(&m_folder, bootnames::kList, kToRead);
    return status < 0 ? status : read(reader, isAligned);
}

/// Replaces the list with one whose lines begin at even bytes.
native::Status BootList::align()
{
    m_list.close();
    NativeFile list(m_api);
    bool isAligned = false;
    native::Status status = list.openPatiently(&m_folder, bootnames::kList, kAlone);
    if (status >= 0)
        status = read(list, isAligned);
    return status >= 0 && !isAligned ? exchange(list, m_text.as<void>(), m_bytes) : status;
}

/// Reads a list into memory, where it is aligned. `isAligned`: it was so in the file.
native::Status BootList::read(const NativeFile& file, bool& isAligned)
{
    std::uint64_t size = 0;
    native::Status status = file.size(size);
    m_bytes = 0;
    isAligned = true;
    if (status >= 0 && size > kLargest)
        status = native::kFileTooLarge;
    const auto bytes = static_cast<std::size_t>(size);
    if (status >= 0)
        status = m_text.allocate(bytes + sizeof(wchar_t));
    if (status >= 0)
        status = file.read(0, m_text.as<void>(), bytes);
    if (status < 0)
        return status;
    isAligned = isListAligned(m_text.as<void>(), bytes);
    m_bytes = bytes;
    if (isAligned && bytes % sizeof(wchar_t) == 0)
        return status;
    PageBlock text(m_api);
    status = text.allocate(alignedRoom(bytes));
    m_bytes = status < 0 ? 0 : alignList(m_text.as<void>(), bytes, text.as<void>());
    m_text.swap(text);
    return status;
}

native::Status BootList::drop(const ListLine& line, bool isLasting)
{
    constexpr std::size_t kMostTogether = 32768; // characters
    const std::size_t end = line.offset + line.text.length;
    native::Status status = native::kSuccess;
    // Only the first line's end separates adjacent lines.
    if (line.offset != m_dashedTo + 2 || end - m_dashedFrom > kMostTogether)
        status = settle();
    auto* text = m_text.as<wchar_t>() + line.offset; // no longer needed
    for (std::size_t i = 0; i < line.text.length; ++i)
        text[i] = bootnames::kDone;
    if (line.isGlued) // the other line stays
        copy(text, kMissingEnd);
    if (m_dashedTo == 0)
        m_dashedFrom = line.offset;
    m_dashedTo = end;
    if (status < 0 || !isLasting)
        return status;
    status = settle();
    return status < 0 ? status : m_list.flush();
}

/// Writes pending dashes to the file.
native::Status BootList::settle()
{
    if (m_dashedTo == 0)
        return native::kSuccess;
    const native::Status status =
        m_list.write(m_dashedFrom * sizeof(wchar_t), m_text.as<wchar_t>() + m_dashedFrom,
                     (m_dashedTo - m_dashedFrom) * sizeof(wchar_t));
    m_dashedTo = 0; // lines whose dashes could not be written stay on the list
    return status;
}

/// Writes a header and the remaining lines to a buffer of `roomFor` the list. Returns 0 when none remain.
std::size_t BootList::compose(wchar_t* target, bool& isChanged)
{
    std::size_t length = copy(target, bootnames::kHeader);
    ListLine line;
    ListLine last;
    std::size_t kept = 0;
    for (ListLines all = lines(); all.next(line); ++kept) {
        if (line.offset == m_postponed)
            last = line;
        else
            length += copyLine(target + length, line);
    }
    if (!last.text.isEmpty())
        length += copyLine(target + length, last);
    const std::size_t had = m_bytes / sizeof(wchar_t);
    isChanged = had != length || !last.text.isEmpty();
    return kept == 0 ? 0 : length;
}

native::Status BootList::close(bool& isEmpty)
{
    const native::Status settled = settle();
    const native::Status status = rewrite(isEmpty);
    return status < 0 ? status : settled;
}

native::Status BootList::rewrite(bool& isEmpty)
{
    isEmpty = false;
    m_list.close();
    NativeFile list(m_api);
    PageBlock text(m_api);
    bool isAligned = true;
    native::Status status = list.openPatiently(&m_folder, bootnames::kList, kAlone);
    isEmpty = status == native::kObjectNameNotFound;
    if (status >= 0)
        status = read(list, isAligned);
    if (status >= 0)
        status = text.allocate(roomFor(m_bytes));
    if (status < 0)
        return status;
    bool isChanged = false;
    const std::size_t length = compose(text.as<wchar_t>(), isChanged);
    if (length == 0) {
        status = list.remove();
        isEmpty = status >= 0;
        return status;
    }
    return isChanged || !isAligned ? exchange(list, text.as<void>(), length * sizeof(wchar_t))
                                   : native::kSuccess;
}

/// Replaces the list, which is open exclusively, with a new one.
native::Status BootList::exchange(NativeFile& list, const void* text, std::size_t bytes)
{
    NativeFile made(m_api);
    Opening create = kAlone;
    create.disposition = native::kOpenOrCreate;
    native::Status status = made.open(&m_folder, bootnames::kNewList, create);
    if (status >= 0)
        status = made.cut();
    if (status >= 0)
        status = made.write(0, text, bytes);
    if (status >= 0)
        status = made.flush();
    if (status >= 0)
        status = list.rename(m_folder, bootnames::kOldList);
    if (status >= 0)
        status = made.rename(m_folder, bootnames::kList);
    if (status < 0) { // somebody has created a list meanwhile
        if (made.isOpen())
            made.remove();
        made.close();
        list.close();
        const native::Status recovered = recover();
        return status == native::kObjectNameCollision ? recovered : status;
    }
    return list.remove();
}

/// Restores what an interrupted run has moved away.
native::Status BootList::recover()
{
    NativeFile old(m_api);
    native::Status status = old.openPatiently(&m_folder, bootnames::kOldList, kAlone);
    if (status == native::kObjectNameNotFound)
        return native::kSuccess;
    if (status >= 0)
        status = old.rename(m_folder, bootnames::kList);
    if (status != native::kObjectNameCollision)
        return status;
    status = appendOld(old);
    return status < 0 ? status : old.remove();
}

/// Adds the lines of an old list to the one created since. Lines in both are handled once.
native::Status BootList::appendOld(const NativeFile& old)
{
    PageBlock text(m_api);
    bool isAligned = true;
    native::Status status = read(old, isAligned);
    if (status >= 0)
        status = text.allocate(roomFor(m_bytes));
    NativeFile list(m_api);
    if (status >= 0)
        status = list.openPatiently(
            &m_folder, bootnames::kList,
            {FILE_WRITE_DATA | FILE_READ_ATTRIBUTES, FILE_SHARE_READ, native::kMustBeFile});
    std::uint64_t size = 0;
    if (status >= 0)
        status = list.size(size);
    if (status < 0)
        return status;
    bool isChanged = false;
    auto* target = text.as<wchar_t>();
    std::size_t length = compose(target, isChanged);
    // A list with content gets no second header, but an end for its last line if that lacks one.
    if (size != 0 && length != 0) {
        target[2] = L'\r';
        target[0] = target[1] = bootnames::kDone;
    }
    const std::uint64_t end = size + size % sizeof(wchar_t);
    if (length != 0)
        status = list.write(end, target, length * sizeof(wchar_t));
    return status < 0 ? status : list.flush();
}

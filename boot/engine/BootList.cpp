#include "engine/BootList.h"

#include "engine/BootNames.h"

namespace {
constexpr wchar_t kHeader[] = {L'\0', L'\0', L'\r', L'\n'};
constexpr std::size_t kHeaderLength = 4;
constexpr wchar_t kDone = L'-';
constexpr std::uint64_t kLargest = 0x40000000; // bytes
constexpr ULONG kShareReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;

constexpr Opening kToRead = {FILE_READ_DATA | FILE_READ_ATTRIBUTES, native::kShareAll, native::kMustBeFile};
constexpr Opening kAlone = {FILE_READ_DATA | FILE_WRITE_DATA | FILE_READ_ATTRIBUTES | DELETE, FILE_SHARE_READ,
                            native::kMustBeFile};

bool isDone(Text line)
{
    for (std::size_t i = 0; i < line.length; ++i)
        if (line[i] != kDone)
            return false;
    return true;
}

std::size_t copy(wchar_t* target, Text text)
{
    for (std::size_t i = 0; i < text.length; ++i)
        target[i] = text[i];
    return text.length;
}

/// A line as it is kept. One without its end must not be taken for a whole one later.
std::size_t copyLine(wchar_t* target, const ListLine& line)
{
    std::size_t length = copy(target, line.text);
    if (!line.isWhole)
        target[length++] = L'?';
    return length + copy(target + length, L"\r\n");
}
} // namespace

native::Status BootList::open()
{
    native::Status status = recover();
    if (status < 0)
        return status;
    NativeFile unfinished(m_api); // nothing is in it that is not in the list
    if (unfinished.open(&m_folder, bootnames::kNewList, {DELETE, FILE_SHARE_READ, native::kMustBeFile}) >= 0)
        unfinished.remove();
    unfinished.close();
    status =
        m_list.openPatiently(&m_folder, bootnames::kList,
                             {FILE_WRITE_DATA | FILE_READ_ATTRIBUTES, kShareReadWrite, native::kMustBeFile});
    if (status < 0)
        return status;
    NativeFile reader(m_api); // which keeps those who append waiting, so only for a moment
    status = reader.openPatiently(&m_folder, bootnames::kList, kToRead);
    return status < 0 ? status : read(reader, m_text, m_bytes);
}

native::Status BootList::read(const NativeFile& file, PageBlock& text, std::size_t& bytes) const
{
    std::uint64_t size = 0;
    native::Status status = file.size(size);
    bytes = 0;
    if (status >= 0 && size > kLargest)
        status = native::kFileTooLarge;
    if (status >= 0)
        status = text.allocate(static_cast<std::size_t>(size) + sizeof(wchar_t));
    if (status >= 0)
        status = file.read(0, text.as<void>(), static_cast<std::size_t>(size));
    if (status >= 0)
        bytes = static_cast<std::size_t>(size);
    return status;
}

bool BootList::next(ListLine& line)
{
    const Text all(m_text.as<wchar_t>(), m_bytes / sizeof(wchar_t));
    if (m_next == 0 && all.startsWith(Text(kHeader, kHeaderLength)))
        m_next = kHeaderLength;
    while (m_next < all.length) {
        const Text rest = all.from(m_next);
        std::size_t end = rest.find(L'\r');
        while (end != Text::kNone && (end + 1 >= rest.length || rest[end + 1] != L'\n')) {
            const std::size_t more = rest.from(end + 1).find(L'\r');
            end = more == Text::kNone ? more : end + 1 + more;
        }
        line.text = rest.first(end);
        line.offset = m_next;
        line.isWhole = end != Text::kNone;
        m_next += line.text.length + (line.isWhole ? 2 : 0);
        if (!isDone(line.text)) // an empty line is, too
            return true;
    }
    return false;
}

native::Status BootList::drop(const ListLine& line)
{
    // The text is not needed any more.
    auto* text = m_text.as<wchar_t>() + line.offset;
    for (std::size_t i = 0; i < line.text.length; ++i)
        text[i] = kDone;
    const native::Status status =
        m_list.write(line.offset * sizeof(wchar_t), text, line.text.length * sizeof(wchar_t));
    return status < 0 ? status : m_list.flush();
}

/// What is left, behind a header, in a buffer that has room for two more lines than the list. 0 when nothing
/// is.
std::size_t BootList::compose(wchar_t* target, bool& isChanged)
{
    std::size_t length = copy(target, Text(kHeader, kHeaderLength));
    ListLine line;
    ListLine last;
    std::size_t kept = 0;
    for (rewind(); next(line); ++kept) {
        if (line.offset == m_postponed)
            last = line;
        else
            length += copyLine(target + length, line);
    }
    if (!last.text.isEmpty())
        length += copyLine(target + length, last);
    const std::size_t had = m_bytes / sizeof(wchar_t);
    isChanged = m_bytes % sizeof(wchar_t) != 0 || had != length || !last.text.isEmpty();
    return kept == 0 ? 0 : length;
}

native::Status BootList::close(bool& isEmpty)
{
    isEmpty = false;
    m_list.close();
    NativeFile list(m_api);
    PageBlock text(m_api);
    native::Status status = list.openPatiently(&m_folder, bootnames::kList, kAlone);
    isEmpty = status == native::kObjectNameNotFound;
    if (status >= 0)
        status = read(list, m_text, m_bytes);
    if (status >= 0)
        status = text.allocate(m_bytes + 64);
    if (status < 0)
        return status;
    bool isChanged = false;
    const std::size_t length = compose(text.as<wchar_t>(), isChanged);
    if (length == 0) {
        status = list.remove();
        isEmpty = status >= 0;
        return status;
    }
    return isChanged ? exchange(list, text.as<wchar_t>(), length) : native::kSuccess;
}

/// Puts a new list in the place of the one that is open alone.
native::Status BootList::exchange(NativeFile& list, const wchar_t* text, std::size_t length)
{
    NativeFile made(m_api);
    Opening create = kAlone;
    create.disposition = native::kOpenOrCreate;
    native::Status status = made.open(&m_folder, bootnames::kNewList, create);
    if (status >= 0)
        status = made.cut();
    if (status >= 0)
        status = made.write(0, text, length * sizeof(wchar_t));
    if (status >= 0)
        status = made.flush();
    if (status >= 0)
        status = list.rename(m_folder, bootnames::kOldList);
    if (status >= 0)
        status = made.rename(m_folder, bootnames::kList);
    if (status < 0) { // somebody has begun a list meanwhile
        if (made.isOpen())
            made.remove();
        made.close();
        list.close();
        const native::Status recovered = recover();
        return status == native::kObjectNameCollision ? recovered : status;
    }
    return list.remove();
}

/// Puts back what a run took away that was cut short, or did not come to an end.
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

/// Adds the lines of an old list to the one that has come since. Those that stand in both are done once.
native::Status BootList::appendOld(const NativeFile& old)
{
    PageBlock text(m_api);
    native::Status status = read(old, m_text, m_bytes);
    if (status >= 0)
        status = text.allocate(m_bytes + 64);
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
    // Behind a list that has something there is no header, but the end of a line that may lack its own.
    if (size != 0 && length != 0) {
        target[2] = L'\r';
        target[0] = target[1] = kDone;
    }
    const std::uint64_t end = size + size % sizeof(wchar_t);
    if (length != 0)
        status = list.write(end, target, length * sizeof(wchar_t));
    return status < 0 ? status : list.flush();
}

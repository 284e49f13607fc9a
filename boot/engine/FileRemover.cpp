#include "engine/FileRemover.h"

#include <winioctl.h>

#include "engine/SystemFiles.h"

namespace {
constexpr ULONG kRemoteDevice = 0x10; // FILE_REMOTE_DEVICE
constexpr Result kFine = {};

bool isMissing(native::Status status)
{
    return status == native::kObjectNameNotFound || status == native::kObjectPathNotFound ||
           status == native::kNoSuchFile || status == native::kDeletePending;
}

Result resultOf(native::Status status)
{
    if (status == Overwriter::kTimeout)
        return {Outcome::kNotDone, status};
    return status < 0 ? Result{Outcome::kFailed, status} : kFine;
}

/// Whether a tag is that of a link, or unknown.
bool isLinkTag(ULONG tag)
{
    return tag == 0 || IsReparseTagNameSurrogate(tag);
}

bool knowsNoStreams(native::Status status)
{
    return status == native::kNotImplemented || status == native::kInvalidParameter ||
           status == native::kInvalidDeviceRequest || status == native::kInvalidInfoClass ||
           status == native::kNotSupported || status == native::kEndOfFile;
}
} // namespace

FileRemover::FileRemover(const native::Api& api, const WindowsFolder& windows, Overwriter& overwriter,
                         const RunEvents& events)
    : m_api(api), m_windows(windows), m_root(api), m_folder(api), m_way(api), m_overwriter(overwriter),
      m_events(events), m_scratch(api)
{
}

native::Status FileRemover::prepare()
{
    const native::Status status = m_way.allocate(kLongestWay * sizeof(wchar_t));
    return status < 0 ? status : m_scratch.allocate(kScratch);
}

Result FileRemover::remove(const ListedFile& listed, std::uint32_t line, std::uint32_t lines)
{
    m_line = line;
    m_lines = lines;
    Result result = openRoot(listed.root);
    Text name;
    if (result.outcome == Outcome::kDone)
        result = descend(listed, name);
    const NativeFile& folder = m_folder.isOpen() ? m_folder : m_root;
    Found found;
    if (result.outcome == Outcome::kDone)
        result = look(folder, name, listed.upTo(name), found);
    if (result.outcome != Outcome::kDone)
        return result;
    if ((found.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        return removeLink(folder, name);
    return wipe(folder, name, found, listed);
}

/// Opens the root of a disk of this machine. A drive that stands for a folder is not a root.
Result FileRemover::openRoot(Text root)
{
    if (m_rootLength != 0 && Text(m_rootText, m_rootLength).isName(root))
        return kFine;
    m_rootLength = m_wayLength = 0;
    const native::Status status = m_root.open(
        nullptr, root, {FILE_TRAVERSE | FILE_READ_ATTRIBUTES, native::kShareAll, native::kMustBeFolder});
    if (status < 0)
        return {Outcome::kNoVolume, status};
    const Result result = lookAtRoot();
    if (result.outcome == Outcome::kDone)
        m_rootLength = TextBuilder(m_rootText, kLongestRoot).add(root).text().length;
    return result;
}

Result FileRemover::lookAtRoot()
{
    struct
    {
        ULONG length;
        wchar_t name[2];
    } name = {};
    native::DeviceInformation device{};
    native::Status status = m_root.queryVolume(native::kDeviceInformation, &device, sizeof device);
    if (status >= 0)
        status = m_root.query(native::kNameInformation, &name, sizeof name);
    const bool isDisk = device.type == FILE_DEVICE_DISK || device.type == FILE_DEVICE_DISK_FILE_SYSTEM ||
                        device.type == FILE_DEVICE_VIRTUAL_DISK;
    const bool isRoot = name.length == sizeof(wchar_t) && name.name[0] == L'\\';
    if (status < 0 || !isDisk || (device.characteristics & kRemoteDevice) != 0 || !isRoot)
        return {Outcome::kNoVolume, status};
    // A folder can be mapped to a letter in a way that makes it look like a root.
    FileNumber number;
    status = m_root.number(number);
    if (status < 0)
        return resultOf(status);
    const Result result = placeOf(m_root, number, m_rootPlace);
    if (result.outcome != Outcome::kDone || m_rootPlace != Place::kElsewhere)
        return result;
    bool isSystem = false;
    status = isSystemFolder(m_api, m_root, isSystem);
    m_rootPlace = isSystem ? Place::kSystem : Place::kElsewhere;
    return resultOf(status);
}

/// The role of a folder for the system.
Result FileRemover::placeOf(const NativeFile& folder, const FileNumber& number, Place& place) const
{
    bool isWindows = number == m_windows.number();
    const native::Status status = isWindows ? native::kSuccess : isInstallation(m_api, folder, isWindows);
    place = isWindows ? Place::kWindows : Place::kElsewhere;
    return resultOf(status);
}

/// Opens the file's folder, from the root down, unless the last file was in the same folder. `name` becomes
/// the file's name.
Result FileRemover::descend(const ListedFile& listed, Text& name)
{
    const Text whole = listed.whole();
    const Text way(m_way.as<wchar_t>(), m_wayLength);
    const bool isKnown =
        !way.isEmpty() && whole.startsWith(way) && whole.from(way.length).find(L'\\') == Text::kNone;
    Text path = isKnown ? whole.from(way.length) : listed.path;
    if (!isKnown) {
        m_folder.close();
        m_place = m_rootPlace;
        m_isInRoot = true;
        m_wayLength = 0;
    }
    for (;;) {
        const Text rest = path;
        name = takeName(path);
        if (m_place == Place::kSystem || (m_isInRoot && systemfiles::isOfRoot(name)) ||
            (path.isEmpty() && systemfiles::isHive(name)) ||
            (m_place == Place::kWindows && systemfiles::isOfWindows(rest)))
            return {Outcome::kSystemFile, native::kSuccess};
        if (path.isEmpty())
            break;
        NativeFile next(m_api);
        FileNumber number;
        const NativeFile& folder = m_folder.isOpen() ? m_folder : m_root;
        Result result = openFolder(folder, name, listed.upTo(name), next, number);
        // Below the Windows folder the whole rest of the path is checked once; if it is not in use, nothing
        // further is checked.
        if (result.outcome == Outcome::kDone)
            result = placeOf(next, number, m_place);
        if (result.outcome != Outcome::kDone)
            return result;
        m_isInRoot = number == m_windows.parent();
        m_folder.swap(next);
    }
    const Text known = whole.first(whole.length - name.length);
    m_wayLength = TextBuilder(m_way.as<wchar_t>(), kLongestWay).add(known).text().length;
    return kFine;
}

Result FileRemover::openFolder(const NativeFile& folder, Text name, Text whole, NativeFile& next,
                               FileNumber& number) const
{
    ULONG ofName = 0;
    ULONG ofHandle = 0;
    ULONG tag = 0;
    native::Status status = next.open(&folder, name,
                                      {FILE_LIST_DIRECTORY | FILE_TRAVERSE | FILE_READ_ATTRIBUTES,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE, native::kMustBeFolder});
    if (isMissing(status))
        return {Outcome::kGone, status};
    if (status >= 0)
        status = NativeFile::attributesOf(m_api, whole, ofName);
    if (status >= 0)
        status = next.attributes(ofHandle, tag);
    if (status >= 0)
        status = next.number(number);
    if (status < 0)
        return resultOf(status);
    // The name shows a link that the system has followed nevertheless.
    const bool isReparse = ((ofName | ofHandle) & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    return isReparse && isLinkTag(tag) ? Result{Outcome::kLinkOnTheWay, native::kSuccess} : kFine;
}

/// Examines what the name refers to. Its attributes show a reparse point only when the link itself is open.
Result FileRemover::look(const NativeFile& folder, Text name, Text whole, Found& found) const
{
    ULONG ofName = 0;
    ULONG tag = 0;
    NativeFile file(m_api);
    native::Status status = file.open(&folder, name, {});
    if (isMissing(status))
        return {Outcome::kGone, status};
    if (status >= 0)
        status = NativeFile::attributesOf(m_api, whole, ofName);
    if (status >= 0)
        status = file.attributes(found.attributes, tag);
    if (status >= 0)
        status = file.number(found.number);
    if (status < 0)
        return resultOf(status);
    if ((found.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        return tag != 0 && isLinkTag(tag) ? kFine : Result{Outcome::kForeign, native::kSuccess};
    if ((ofName & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
        return {Outcome::kFollowed, native::kSuccess};
    if (((ofName | found.attributes) & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return {Outcome::kFolder, native::kSuccess};
    if (const Sharing sharing = m_windows.sharingOf(m_root, file, found.number); sharing != Sharing::kNone)
        return {sharing == Sharing::kShared ? Outcome::kSystemFile : Outcome::kOtherNames, native::kSuccess};
    for (const FileNumber& kept : m_protected)
        if (kept.index != 0 && kept == found.number)
            return {Outcome::kSystemFile, native::kSuccess};
    return kFine;
}

Result FileRemover::removeLink(const NativeFile& folder, Text name) const
{
    NativeFile link(m_api);
    ULONG attributes = 0;
    ULONG tag = 0;
    native::Status status = link.open(
        &folder, name, {DELETE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES, native::kShareAll, 0});
    if (status >= 0)
        status = link.attributes(attributes, tag);
    if (status >= 0 && ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0 || !IsReparseTagNameSurrogate(tag)))
        return {Outcome::kExchange, native::kSuccess};
    if (status >= 0 && (attributes & FILE_ATTRIBUTE_READONLY) != 0)
        status = link.setAttributes(FILE_ATTRIBUTE_NORMAL);
    if (status >= 0)
        status = link.remove();
    return status < 0 ? resultOf(status) : Result{Outcome::kLinkRemoved, status};
}

Result FileRemover::wipe(const NativeFile& folder, Text name, const Found& found, const ListedFile& listed)
{
    const bool isReadOnly = (found.attributes & FILE_ATTRIBUTE_READONLY) != 0;
    NativeFile guard(m_api);
    FileNumber number;
    native::Status status = native::kSuccess;
    if (isReadOnly) {
        status =
            guard.open(&folder, name, {FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES, native::kShareAll, 0});
        if (status >= 0)
            status = guard.number(number);
        if (status >= 0 && number != found.number)
            return {Outcome::kExchange, native::kSuccess};
        if (status >= 0)
            status = guard.setAttributes(FILE_ATTRIBUTE_NORMAL);
        guard.close(); // an open file is not deleted
    }
    if (status < 0)
        return resultOf(status);
    Result result = wipeStreams(folder, name, found, listed);
    if (result.outcome == Outcome::kDone)
        result = wipeData(folder, name, found, listed);
    // What stays keeps its attributes.
    if (isReadOnly && result.outcome != Outcome::kDone &&
        guard.open(&folder, name, {FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES, native::kShareAll, 0}) >=
            0 &&
        guard.number(number) >= 0 && number == found.number)
        guard.setAttributes(found.attributes);
    return result;
}

Result FileRemover::wipeStreams(const NativeFile& folder, Text name, const Found& found,
                                const ListedFile& listed)
{
    constexpr ULONG kHalf = kScratch / 2;
    auto* answer = m_scratch.as<unsigned char>();
    {
        NativeFile file(m_api);
        native::Status status = file.open(&folder, name, {});
        if (status >= 0)
            status = file.query(native::kStreamInformation, answer, kHalf);
        if (knowsNoStreams(status))
            return kFine;
        if (status < 0)
            return resultOf(status);
    }
    for (bool more = true; more;) {
        const auto& stream = *reinterpret_cast<const native::StreamInformation*>(answer);
        const Text streamName(stream.name, stream.nameLength / sizeof(wchar_t));
        if (!streamName.isEmpty() && !streamName.is(L"::$DATA")) {
            TextBuilder full(reinterpret_cast<wchar_t*>(m_scratch.as<unsigned char>() + kHalf),
                             kHalf / sizeof(wchar_t));
            full.add(name).add(streamName);
            NativeFile file(m_api);
            const native::Status status = file.open(
                &folder, full.text(), {FILE_READ_ATTRIBUTES | FILE_WRITE_DATA, 0, native::kMustBeFile});
            const Result result = status < 0 ? resultOf(status) : overwrite(file, found, listed);
            if (result.outcome != Outcome::kDone)
                return result;
        }
        more = stream.nextOffset != 0;
        answer += stream.nextOffset;
    }
    return kFine;
}

Result FileRemover::wipeData(const NativeFile& folder, Text name, const Found& found,
                             const ListedFile& listed)
{
    NativeFile file(m_api);
    native::Status status =
        file.open(&folder, name, {FILE_READ_ATTRIBUTES | FILE_WRITE_DATA | DELETE, 0, native::kMustBeFile});
    if (status < 0)
        return resultOf(status);
    Result result = overwrite(file, found, listed);
    if (result.outcome == Outcome::kDone)
        result = resultOf(file.remove());
    return result;
}

/// Overwrites and truncates the open file or stream, if it belongs to the file that was examined.
Result FileRemover::overwrite(const NativeFile& file, const Found& found, const ListedFile& listed)
{
    FileNumber number;
    ULONG attributes = 0;
    ULONG tag = 0;
    std::uint64_t size = 0;
    native::Status status = file.number(number);
    if (status >= 0)
        status = file.attributes(attributes, tag);
    if (status >= 0)
        status = file.size(size);
    if (status >= 0 && (number != found.number || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0))
        return {Outcome::kExchange, native::kSuccess};
    if (status >= 0)
        status = m_overwriter.overwrite(file, size, listed.method, listed.passes, m_events, m_line, m_lines);
    if (status == native::kSuccess)
        status = file.cut();
    return resultOf(status);
}

#include "engine/WindowsFolder.h"

#include "engine/ListedFile.h"
#include "engine/SystemFiles.h"

namespace {
constexpr std::size_t kPart = 131072; // bytes: a path of any length, and a name after it

/// The path of an open file below its volume's root, in the caller's memory.
native::Status pathOf(const NativeFile& file, unsigned char* room, Text& path)
{
    const native::Status status = file.query(native::kNameInformation, room, kPart / 2);
    path = Text(reinterpret_cast<const wchar_t*>(room + sizeof(ULONG)),
                status < 0 ? 0 : *reinterpret_cast<const ULONG*>(room) / sizeof(wchar_t));
    return status;
}
/// Whether a path below a folder exists. Links on the way are followed.
native::Status find(const native::Api& api, const NativeFile& folder, Text path, bool& isThere)
{
    NativeFile file(api);
    const native::Status status = file.open(&folder, path, {});
    isThere = status >= 0;
    const bool isMissing = status == native::kObjectNameNotFound || status == native::kObjectPathNotFound ||
                           status == native::kNoSuchFile || status == native::kNotAFolder;
    return isMissing ? native::kSuccess : status;
}

/// Whether a path is in use because of its place in a volume, or its name.
bool isOfUseAnywhere(Text path)
{
    Text name;
    for (Text rest = path; !rest.isEmpty();)
        name = takeName(rest);
    Text rest = path;
    return systemfiles::isOfRoot(takeName(rest)) || systemfiles::isHive(name);
}
} // namespace

native::Status isInstallation(const native::Api& api, const NativeFile& folder, bool& isOne)
{
    return find(api, folder, L"System32\\config\\SYSTEM", isOne);
}

native::Status isSystemFolder(const native::Api& api, const NativeFile& folder, bool& isOne)
{
    return find(api, folder, L"config\\SYSTEM", isOne);
}

native::Status WindowsFolder::open(Text path)
{
    Opening how = {FILE_LIST_DIRECTORY | FILE_TRAVERSE | FILE_READ_ATTRIBUTES, native::kShareAll,
                   native::kMustBeFolder};
    how.followsLinks = true;
    native::Status status = m_folder.open(nullptr, path, how);
    if (status >= 0)
        status = m_folder.number(m_number);
    NativeFile parent(m_api);
    std::size_t parentLength = path.length;
    while (parentLength != 0 && path[parentLength - 1] != L'\\')
        --parentLength;
    // The system's own name for the folder has no such parent; the parent is found from its root then.
    if (status >= 0 && path.startsWith(LR"(\??\)") &&
        parent.open(nullptr, path.first(parentLength), how) >= 0)
        status = parent.number(m_parent);
    if (status >= 0)
        status = m_scratch.allocate(3 * kPart);
    if (status >= 0)
        status = pathOf(m_folder, m_scratch.as<unsigned char>(), m_path);
    return status;
}

Sharing WindowsFolder::sharingOf(const NativeFile& root, const NativeFile& file,
                                 const FileNumber& number) const
{
    native::StandardInformation standard{};
    if (file.query(native::kStandardInformation, &standard, sizeof standard) < 0)
        return Sharing::kNotTold;
    if (standard.links <= 1)
        return Sharing::kNone;
    const bool isHere = number.volume == m_number.volume;
    auto* answer = m_scratch.as<unsigned char>() + kPart;
    if (file.query(native::kHardLinkInformation, answer, kPart) < 0)
        return isHere ? Sharing::kNotTold : Sharing::kNone;
    const auto& links = *reinterpret_cast<const native::LinksInformation*>(answer);
    answer += offsetof(native::LinksInformation, first);
    for (ULONG i = 0; i < links.count; ++i) {
        const auto& link = *reinterpret_cast<const native::LinkInformation*>(answer);
        if (isOfUse(root, isHere, link.folder, Text(link.name, link.nameLength)))
            return Sharing::kShared;
        answer += link.nextOffset;
    }
    return Sharing::kNone;
}

/// For a name in the folder of this number.
bool WindowsFolder::isOfUse(const NativeFile& root, bool isHere, std::uint64_t folder, Text name) const
{
    NativeFile parent(m_api);
    const Text id(reinterpret_cast<const wchar_t*>(&folder), sizeof folder / sizeof(wchar_t));
    Text path;
    auto* room = m_scratch.as<unsigned char>() + 2 * kPart;
    if (parent.open(&root, id, {FILE_READ_ATTRIBUTES, native::kShareAll, native::kById}) < 0 ||
        pathOf(parent, room, path) < 0)
        return true;
    TextBuilder whole(reinterpret_cast<wchar_t*>(room + sizeof(ULONG)) + path.length, 512);
    if (path.length != 1) // the root is only a backslash
        whole.add(L'\\');
    whole.add(name);
    path.length += whole.text().length;
    if (isHere && path.startsWithName(m_path) && path.from(m_path.length).startsWith(L"\\"))
        return systemfiles::isOfWindows(path.from(m_path.length + 1));
    path = path.from(1);
    if (isOfUseAnywhere(path))
        return true;
    for (std::size_t end = 1; end < path.length; ++end) {
        if (path[end] != L'\\')
            continue;
        NativeFile above(m_api);
        bool isOne = false;
        native::Status status = above.open(&root, path.first(end), {});
        if (status >= 0)
            status = isInstallation(m_api, above, isOne);
        if (status < 0 || isOne)
            return status < 0 || systemfiles::isOfWindows(path.from(end + 1));
    }
    return false;
}

#include "engine/WindowsFolder.h"

#include "engine/SystemFiles.h"

namespace {
constexpr std::size_t kPart = 131072; // bytes: a path of any length, and a name behind it

/// The path of what is open below its volume's root, in memory of the caller's.
native::Status pathOf(const NativeFile& file, unsigned char* room, Text& path)
{
    const native::Status status = file.query(native::kNameInformation, room, kPart / 2);
    path = Text(reinterpret_cast<const wchar_t*>(room + sizeof(ULONG)),
                status < 0 ? 0 : *reinterpret_cast<const ULONG*>(room) / sizeof(wchar_t));
    return status;
}
} // namespace

native::Status WindowsFolder::open(Text path)
{
    Opening how = {FILE_LIST_DIRECTORY | FILE_TRAVERSE | FILE_READ_ATTRIBUTES, native::kShareAll,
                   native::kMustBeFolder};
    how.followsLinks = true;
    native::Status status = m_folder.open(nullptr, path, how);
    if (status >= 0)
        status = m_folder.number(m_number);
    if (status >= 0)
        status = m_scratch.allocate(3 * kPart);
    if (status >= 0)
        status = pathOf(m_folder, m_scratch.as<unsigned char>(), m_path);
    return status;
}

bool WindowsFolder::shares(const NativeFile& file, const FileNumber& number) const
{
    native::StandardInformation standard{};
    if (file.query(native::kStandardInformation, &standard, sizeof standard) < 0)
        return true;
    if (standard.links <= 1 || number.volume != m_number.volume)
        return false;
    auto* answer = m_scratch.as<unsigned char>() + kPart;
    if (file.query(native::kHardLinkInformation, answer, kPart) < 0)
        return true;
    const auto& links = *reinterpret_cast<const native::LinksInformation*>(answer);
    answer += offsetof(native::LinksInformation, first);
    for (ULONG i = 0; i < links.count; ++i) {
        const auto& link = *reinterpret_cast<const native::LinkInformation*>(answer);
        if (isOfUse(link.folder, Text(link.name, link.nameLength)))
            return true;
        answer += link.nextOffset;
    }
    return false;
}

/// Of a name in the folder of this number.
bool WindowsFolder::isOfUse(std::uint64_t folder, Text name) const
{
    NativeFile parent(m_api);
    const Text id(reinterpret_cast<const wchar_t*>(&folder), sizeof folder / sizeof(wchar_t));
    Text path;
    auto* room = m_scratch.as<unsigned char>() + 2 * kPart;
    if (parent.open(&m_folder, id, {FILE_READ_ATTRIBUTES, native::kShareAll, native::kById}) < 0 ||
        pathOf(parent, room, path) < 0)
        return true;
    if (!path.startsWithName(m_path))
        return false;
    TextBuilder whole(reinterpret_cast<wchar_t*>(room + sizeof(ULONG)) + path.length, 512);
    whole.add(L'\\').add(name);
    const Text rest = Text(path.data, path.length + whole.text().length).from(m_path.length);
    return rest.startsWith(L"\\") && systemfiles::isOfWindows(rest.from(1));
}

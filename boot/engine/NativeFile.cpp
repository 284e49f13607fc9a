#include "engine/NativeFile.h"

namespace {
constexpr ULONG kPiece = 1U << 30U; // bytes in one call
constexpr ULONG kPatience = 500;    // times 10 ms

/// A name of less than 32,767 characters in the system's form, with the attributes for opening it.
struct NamedObject
{
    NamedObject(Text text, HANDLE folder)
        : name{static_cast<USHORT>(text.length * sizeof(wchar_t)),
               static_cast<USHORT>(text.length * sizeof(wchar_t)), text.data},
          object{sizeof object, folder, &name, 0x40, nullptr, nullptr} // OBJ_CASE_INSENSITIVE
    {
    }
    native::UnicodeString name;
    native::ObjectAttributes object;
};

LARGE_INTEGER offsetOf(std::uint64_t bytes)
{
    LARGE_INTEGER offset;
    offset.QuadPart = static_cast<LONGLONG>(bytes);
    return offset;
}
} // namespace

native::Status NativeFile::open(const NativeFile* folder, Text name, const Opening& how)
{
    close();
    NamedObject named(name, folder != nullptr ? folder->m_handle : nullptr);
    native::IoStatus io{};
    const ULONG options =
        how.options | native::kSynchronous | native::kForBackup | (how.followsLinks ? 0 : native::kAsItself);
    const native::Status status =
        m_api.createFile(&m_handle, how.access | SYNCHRONIZE, &named.object, &io, nullptr,
                         FILE_ATTRIBUTE_NORMAL, how.share, how.disposition, options, nullptr, 0);
    if (status < 0)
        m_handle = nullptr;
    return status;
}

native::Status NativeFile::openPatiently(const NativeFile* folder, Text name, const Opening& how)
{
    const LARGE_INTEGER pause = offsetOf(static_cast<std::uint64_t>(-100000LL)); // relative, in 100 ns
    native::Status status = open(folder, name, how);
    for (ULONG i = 0; i < kPatience && status == native::kSharingViolation; ++i) {
        m_api.delay(FALSE, &pause);
        status = open(folder, name, how);
    }
    return status;
}

void NativeFile::close()
{
    if (m_handle != nullptr)
        m_api.close(m_handle);
    m_handle = nullptr;
}

void NativeFile::swap(NativeFile& other)
{
    HANDLE mine = m_handle;
    m_handle = other.m_handle;
    other.m_handle = mine;
}

native::Status NativeFile::attributesOf(const native::Api& api, Text path, ULONG& attributes)
{
    NamedObject named(path, nullptr);
    native::BasicInformation basic{};
    const native::Status status = api.queryAttributes(&named.object, &basic);
    attributes = basic.attributes;
    return status;
}

native::Status NativeFile::attributes(ULONG& attributes, ULONG& tag) const
{
    ULONG both[2] = {};
    native::Status status = query(native::kAttributeTagInformation, both, sizeof both);
    if (status == native::kInvalidParameter || status == native::kNotImplemented ||
        status == native::kInvalidInfoClass || status == native::kInvalidDeviceRequest ||
        status == native::kNotSupported) {
        native::BasicInformation basic{};
        status = query(native::kBasicInformation, &basic, sizeof basic);
        both[0] = basic.attributes;
    }
    attributes = both[0];
    tag = both[1];
    return status;
}

native::Status NativeFile::number(FileNumber& number) const
{
    native::VolumeInformation volume{};
    const native::Status status = query(native::kInternalInformation, &number.index, sizeof number.index);
    if (status < 0)
        return status;
    const native::Status ofVolume = queryVolume(native::kVolumeInformation, &volume, sizeof volume);
    number.volume = volume.serial;
    return ofVolume;
}

native::Status NativeFile::size(std::uint64_t& bytes) const
{
    native::StandardInformation standard{};
    const native::Status status = query(native::kStandardInformation, &standard, sizeof standard);
    bytes = static_cast<std::uint64_t>(standard.endOfFile.QuadPart);
    return status;
}

native::Status NativeFile::query(ULONG question, void* answer, ULONG length) const
{
    native::IoStatus io{};
    return m_api.queryFile(m_handle, &io, answer, length, question);
}

native::Status NativeFile::queryVolume(ULONG question, void* answer, ULONG length) const
{
    native::IoStatus io{};
    const native::Status status = m_api.queryVolume(m_handle, &io, answer, length, question);
    return status == native::status(0x80000005) ? native::kSuccess : status; // a longer label
}

/// Reads or writes in pieces until all is done. `call` is the native function for it.
template <class Call, class Byte>
native::Status NativeFile::transfer(Call&& call, std::uint64_t offset, Byte* at, std::size_t length) const
{
    while (length != 0) {
        native::IoStatus io{};
        LARGE_INTEGER place = offsetOf(offset);
        const ULONG piece = length < kPiece ? static_cast<ULONG>(length) : kPiece;
        const native::Status status =
            call(m_handle, nullptr, nullptr, nullptr, &io, at, piece, &place, nullptr);
        if (status < 0)
            return status;
        if (io.information == 0)
            return native::kEndOfFile;
        at += io.information;
        offset += io.information;
        length -= io.information;
    }
    return native::kSuccess;
}

native::Status NativeFile::read(std::uint64_t offset, void* data, std::size_t length) const
{
    return transfer(m_api.readFile, offset, static_cast<unsigned char*>(data), length);
}

native::Status NativeFile::write(std::uint64_t offset, const void* data, std::size_t length) const
{
    return transfer(m_api.writeFile, offset, static_cast<const unsigned char*>(data), length);
}

native::Status NativeFile::flush() const
{
    native::IoStatus io{};
    return m_api.flushFile(m_handle, &io);
}

native::Status NativeFile::cut() const
{
    native::IoStatus io{};
    const LARGE_INTEGER end = offsetOf(0);
    return m_api.setFile(m_handle, &io, &end, sizeof end, native::kEndOfFileInformation);
}

native::Status NativeFile::setAttributes(ULONG attributes) const
{
    native::IoStatus io{};
    native::BasicInformation basic{};
    basic.attributes = attributes;
    return m_api.setFile(m_handle, &io, &basic, sizeof basic, native::kBasicInformation);
}

native::Status NativeFile::remove() const
{
    native::IoStatus io{};
    const BOOLEAN goes = TRUE;
    return m_api.setFile(m_handle, &io, &goes, sizeof goes, native::kDispositionInformation);
}

native::Status NativeFile::rename(const NativeFile& folder, Text name) const
{
    struct
    {
        BOOLEAN replaces;
        HANDLE folder;
        ULONG length; // in bytes
        wchar_t name[64];
    } data = {FALSE, folder.m_handle, static_cast<ULONG>(name.length * sizeof(wchar_t)), {}};
    if (name.length > 64)
        return native::kInvalidParameter;
    for (std::size_t i = 0; i < name.length; ++i)
        data.name[i] = name[i];
    native::IoStatus io{};
    return m_api.setFile(m_handle, &io, &data, sizeof data, native::kRenameInformation);
}

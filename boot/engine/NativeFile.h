#pragma once

#include "engine/NativeApi.h"
#include "engine/Text.h"

/// How a file is opened.
struct Opening
{
    ACCESS_MASK access = FILE_READ_ATTRIBUTES;
    ULONG share = native::kShareAll;
    ULONG options = 0;
    ULONG disposition = native::kOpenExisting;
    bool followsLinks = false;
};

/// What tells a file or folder from every other.
struct FileNumber
{
    ULONG volume = 0;
    std::uint64_t index = 0;

    friend bool operator==(const FileNumber& a, const FileNumber& b)
    {
        return a.volume == b.volume && a.index == b.index;
    }
    friend bool operator!=(const FileNumber& a, const FileNumber& b) { return !(a == b); }
};

/// A file, folder or stream that is open, for synchronous calls. Every failure is the system's status.
class NativeFile
{
public:
    explicit NativeFile(const native::Api& api) : m_api(api) {}
    NativeFile(const NativeFile&) = delete;
    NativeFile& operator=(const NativeFile&) = delete;
    ~NativeFile() { close(); }

    /// Opens `name` in a folder, or a whole native path without one: as itself, also when it is a link.
    native::Status open(const NativeFile* folder, Text name, const Opening& how);
    /// The same, for up to five seconds as long as somebody else's sharing does not allow it.
    native::Status openPatiently(const NativeFile* folder, Text name, const Opening& how);
    void close();
    void swap(NativeFile& other);
    [[nodiscard]] bool isOpen() const { return m_handle != nullptr; }

    /// The attributes of what stands under a whole path, as itself. Not every system answers for a name in a
    /// folder that is open.
    static native::Status attributesOf(const native::Api& api, Text path, ULONG& attributes);
    /// Attributes and reparse tag of what is open. File systems that know no tags give 0.
    native::Status attributes(ULONG& attributes, ULONG& tag) const;
    native::Status number(FileNumber& number) const;
    native::Status size(std::uint64_t& bytes) const;
    native::Status query(ULONG question, void* answer, ULONG length) const;
    native::Status queryVolume(ULONG question, void* answer, ULONG length) const;

    /// All of `length` bytes; fewer are kEndOfFile.
    native::Status read(std::uint64_t offset, void* data, std::size_t length) const;
    native::Status write(std::uint64_t offset, const void* data, std::size_t length) const;
    native::Status flush() const;
    native::Status cut() const; // to nothing
    native::Status setAttributes(ULONG attributes) const;
    /// Lets the file go when it is closed, and under no name from then on.
    native::Status remove() const;
    /// Within its folder, which is given. An existing name is kObjectNameCollision.
    native::Status rename(const NativeFile& folder, Text name) const;

private:
    template <class Call, class Byte>
    native::Status transfer(Call&& call, std::uint64_t offset, Byte* at, std::size_t length) const;

    const native::Api& m_api;
    HANDLE m_handle = nullptr;
};

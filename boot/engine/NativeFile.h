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

/// Identifies a file or folder.
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

/// An open file, folder or stream for synchronous calls. Every failure is the system's status.
class NativeFile
{
public:
    explicit NativeFile(const native::Api& api) : m_api(api) {}
    NativeFile(const NativeFile&) = delete;
    NativeFile& operator=(const NativeFile&) = delete;
    ~NativeFile() { close(); }

    /// Opens `name` in a folder, or a whole native path without one. A link itself is opened.
    native::Status open(const NativeFile* folder, Text name, const Opening& how);
    /// The same, but retries for up to five seconds while somebody else's sharing prevents it.
    native::Status openPatiently(const NativeFile* folder, Text name, const Opening& how);
    void close();
    void swap(NativeFile& other);
    [[nodiscard]] bool isOpen() const { return m_handle != nullptr; }

    /// The attributes of what a whole path names, without following a link. Not every system supports names
    /// relative to an open folder here.
    static native::Status attributesOf(const native::Api& api, Text path, ULONG& attributes);
    /// The attributes and the reparse tag. File systems without tags give 0.
    native::Status attributes(ULONG& attributes, ULONG& tag) const;
    native::Status number(FileNumber& number) const;
    native::Status size(std::uint64_t& bytes) const;
    native::Status query(ULONG question, void* answer, ULONG length) const;
    native::Status queryVolume(ULONG question, void* answer, ULONG length) const;

    /// Reads exactly `length` bytes; kEndOfFile when there are fewer.
    native::Status read(std::uint64_t offset, void* data, std::size_t length) const;
    native::Status write(std::uint64_t offset, const void* data, std::size_t length) const;
    native::Status flush() const;
    native::Status cut() const; // to nothing
    native::Status setAttributes(ULONG attributes) const;
    /// Deletes the file when it is closed; its name is free at once.
    native::Status remove() const;
    /// Renames it within `folder`, in which it is. kObjectNameCollision for an existing name.
    native::Status rename(const NativeFile& folder, Text name) const;

private:
    template <class Call, class Byte>
    native::Status transfer(Call&& call, std::uint64_t offset, Byte* at, std::size_t length) const;

    const native::Api& m_api;
    HANDLE m_handle = nullptr;
};

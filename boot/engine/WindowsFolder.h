#pragma once

#include "engine/NativeFile.h"
#include "engine/PageBlock.h"

/// Whether a folder is the Windows folder of an installation, which any volume may have. It is recognised by
/// the part of the registry that the system starts with.
native::Status isInstallation(const native::Api& api, const NativeFile& folder, bool& isOne);
/// Whether it is the system folder of such an installation.
native::Status isSystemFolder(const native::Api& api, const NativeFile& folder, bool& isOne);

/// Whether the system uses a file too.
enum class Sharing
{
    kNone,
    kShared,
    kNotTold
};

/// The Windows folder: where the list is, and what the system uses.
class WindowsFolder
{
public:
    explicit WindowsFolder(const native::Api& api) : m_api(api), m_folder(api), m_scratch(api) {}

    /// Opens it by its native path, following the system's own name for it.
    native::Status open(Text path);
    [[nodiscard]] const NativeFile& folder() const { return m_folder; }
    [[nodiscard]] const FileNumber& number() const { return m_number; }
    /// Its parent folder, usually the volume's root.
    [[nodiscard]] const FileNumber& parent() const { return m_parent; }
    /// Whether one of the names of an open file is in use, here or in the Windows folder of another
    /// installation on its volume, whose root is given: all names share the data. kNotTold when a file of
    /// this volume has several names and the system does not tell which.
    [[nodiscard]] Sharing sharingOf(const NativeFile& root, const NativeFile& file,
                                    const FileNumber& number) const;

private:
    bool isOfUse(const NativeFile& root, bool isHere, std::uint64_t folder, Text name) const;

    const native::Api& m_api;
    NativeFile m_folder;
    FileNumber m_number;
    FileNumber m_parent;
    PageBlock m_scratch;
    Text m_path; // below the volume's root
};

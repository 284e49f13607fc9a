#pragma once

#include "engine/NativeFile.h"
#include "engine/PageBlock.h"

/// The Windows folder: where the list is, and what is of use to the system.
class WindowsFolder
{
public:
    explicit WindowsFolder(const native::Api& api) : m_api(api), m_folder(api), m_scratch(api) {}

    /// By its native path, wherever the system's own name for it leads.
    native::Status open(Text path);
    [[nodiscard]] const NativeFile& folder() const { return m_folder; }
    [[nodiscard]] const FileNumber& number() const { return m_number; }
    /// Whether an open file has one of its names in this folder, as something of use: all names share the
    /// data. Also when a file of this volume has several names and the system does not tell them.
    [[nodiscard]] bool shares(const NativeFile& file, const FileNumber& number) const;

private:
    bool isOfUse(std::uint64_t folder, Text name) const;

    const native::Api& m_api;
    NativeFile m_folder;
    FileNumber m_number;
    PageBlock m_scratch;
    Text m_path; // below the volume's root
};

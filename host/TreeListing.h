#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "win32/scanengine/include/IScanValidator.h"
#include "win32/wiper/include/IWiper.h"

#include "WipeTarget.h"

/// Something that failed, and why.
struct Failure
{
    std::wstring path;
    long code;
};

/// Tells a file or folder from another one under the same name.
struct FileIdentity
{
    std::uint64_t index = 0;
    DWORD volume = 0;
    bool isKnown = false;
};

/// The content of a tree in the order of the scan: a folder comes before its content.
struct TreeListing
{
    DirectoryStack entries;
    std::vector<FileIdentity> identities; // of each entry; unknown for what stays
    unsigned long long files = 0;
    unsigned long long bytes = 0;
    std::vector<std::wstring> linked; // files that also have other names
    std::vector<Failure> failures;    // what could not be listed, or whose names could not be counted
};

/// What a path names; links are not followed.
struct FoundFile
{
    DWORD names = 0; ///< the number of hard links, at least 1; 0 when unknown
    long code = 0;   ///< why it is unknown
    FileIdentity identity;

    [[nodiscard]] bool isSame(const FileIdentity& other) const
    {
        return names != 0 && other.isKnown && identity.volume == other.volume &&
               identity.index == other.index;
    }
};
FoundFile findFile(const std::wstring& literal);

/// The full path of an entry.
std::wstring pathOf(const DirectoryStackEntry& entry);

/// Lists a tree: the files that the validator accepts, and the folders on the way, which all stay when
/// `filesOnly`. Files with other names stay unless `withLinked`. Returns the scan's code.
long listTree(const std::wstring& root, const SharedPtr<IScanValidator>& validator, bool filesOnly,
              bool withLinked, TreeListing& listing);

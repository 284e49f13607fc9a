#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "win32/scanengine/include/IScanValidator.h"
#include "win32/wiper/include/IWiper.h"

#include "WipeTarget.h"

/// Something that cannot be had, and why.
struct Failure
{
    std::wstring path;
    long code;
};

/// What a tree holds, in the order of the scan: a folder comes before its content.
struct TreeListing
{
    DirectoryStack entries;
    unsigned long long files = 0;
    unsigned long long bytes = 0;
    std::vector<std::wstring> linked; // files that have other names, too
    std::vector<Failure> failures;    // what could not be listed, or of which the names could not be counted
};

/// What stands under a path, links not followed.
struct FoundFile
{
    DWORD names = 0; ///< of a file with several hard links all of them, else 1; 0 when it cannot be told
    long code = 0;   ///< why
    DWORD volume = 0;
    std::uint64_t index = 0;

    [[nodiscard]] bool isSame(const FoundFile& other) const
    {
        return names != 0 && other.names != 0 && volume == other.volume && index == other.index;
    }
};
FoundFile findFile(const std::wstring& literal);

/// The full path of an entry.
std::wstring pathOf(const DirectoryStackEntry& entry);

/// Lists a tree: the files that the validator lets through, and the folders on the way, all of which are to
/// stay when `filesOnly`. Files with other names are to stay unless `withLinked`. Returns the scan's code.
long listTree(const std::wstring& root, const SharedPtr<IScanValidator>& validator, bool filesOnly,
              bool withLinked, TreeListing& listing);

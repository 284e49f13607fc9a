#pragma once

#include "engine/ListedFile.h"
#include "engine/Overwriter.h"
#include "engine/WindowsFolder.h"

/// Overwrites and deletes one listed file after the other.
///
/// Everything is opened relative to its parent folder and without following links, from the volume's root
/// down: nobody can replace a folder once it has been examined. What is overwritten is compared by its number
/// with what was examined. As elsewhere in the library, a file with several names is overwritten under all of
/// them and loses the listed one; its streams are overwritten before it.
///
/// A file that was overwritten only in part, because a call failed or the time ran out, stays.
class FileRemover
{
public:
    /// Files in use in the Windows folder are left alone.
    FileRemover(const native::Api& api, const WindowsFolder& windows, Overwriter& overwriter,
                const RunEvents& events);

    native::Status prepare();
    /// Never touches this file, under any name.
    void protect(const FileNumber& file) { m_protected[m_protectedCount++ % kMostProtected] = file; }

    /// `line` of `lines` is reported with the progress.
    Result remove(const ListedFile& listed, std::uint32_t line, std::uint32_t lines);

private:
    static constexpr std::size_t kScratch = 131072;
    static constexpr std::size_t kMostProtected = 4;

    struct Found
    {
        FileNumber number;
        ULONG attributes = 0;
    };
    Result openRoot(Text root);
    Result lookAtRoot();
    Result descend(const ListedFile& listed, Text& name);
    Result openFolder(const NativeFile& folder, Text name, Text whole, NativeFile& next,
                      FileNumber& number) const;
    Result look(const NativeFile& folder, Text name, Text whole, Found& found) const;
    Result removeLink(const NativeFile& folder, Text name) const;
    Result wipe(const NativeFile& folder, Text name, const Found& found, const ListedFile& listed);
    Result wipeStreams(const NativeFile& folder, Text name, const Found& found, const ListedFile& listed);
    Result wipeData(const NativeFile& folder, Text name, const Found& found, const ListedFile& listed);
    Result overwrite(const NativeFile& file, const Found& found, const ListedFile& listed);

    enum class Place
    {
        kElsewhere,
        kWindows, // the Windows folder of this installation or another
        kSystem   // needed as a whole
    };
    Result placeOf(const NativeFile& folder, const FileNumber& number, Place& place) const;

    static constexpr std::size_t kLongestRoot = 64;
    const native::Api& m_api;
    const WindowsFolder& m_windows;
    static constexpr std::size_t kLongestWay = 32768;
    // The root and the folder of the last file stay open: most lists have many files of one folder. Nobody
    // can replace an open folder.
    NativeFile m_root;
    wchar_t m_rootText[kLongestRoot]{};
    std::size_t m_rootLength = 0;
    Place m_rootPlace = Place::kElsewhere;
    NativeFile m_folder; // closed for the root
    PageBlock m_way;     // its path, with a backslash at the end
    std::size_t m_wayLength = 0;
    Place m_place = Place::kElsewhere;
    bool m_isInRoot = true;
    Overwriter& m_overwriter;
    const RunEvents& m_events;
    PageBlock m_scratch;
    FileNumber m_protected[kMostProtected];
    std::size_t m_protectedCount = 0;
    std::uint32_t m_line = 0;
    std::uint32_t m_lines = 0;
};

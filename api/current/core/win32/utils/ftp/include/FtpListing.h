#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// One entry of a folder on an FTP server.
struct FtpEntry
{
    enum class Kind
    {
        File,
        Folder,
        Link
    };

    std::string bytes; ///< the name as the server sent it
    std::wstring name;
    Kind kind = Kind::File;
    std::optional<unsigned long long> size;
    std::string unique; ///< what MLSD calls the file or folder that it is, whatever its name; empty: nothing
};

/// A folder's listing, taken apart. What the server sends is not trusted: a name that is no plain name (with
/// a separator or a control character) is left out, and so are "." and "..".
struct FtpListing
{
    enum class Form
    {
        Machine, ///< MLSD, RFC 3659
        Plain    ///< LIST, as Unix and DOS write it
    };

    std::vector<FtpEntry> entries; ///< each name once
    long failure = 0;              ///< why lines were left out: 123 a name, 13 another form; 0: none were
    bool isEmpty = true;           ///< not even "." and ".." are there
    bool hasItself = false;        ///< "." as a folder is there
    bool hasParent = false;        ///< ".." likewise
    std::string unique;            ///< the listed folder's, if its line tells

    /// Raises std::bad_alloc.
    static FtpListing parse(std::string_view text, Form form);
};

/// The fact "unique" in the reply to MLST; empty if there is none.
[[nodiscard]] std::string uniqueOfReply(std::string_view text);

/// Of the facts that the server offers ("TYPE*;SIZE*;MODIFY*;UNIQUE;", a star on those that it sends unasked)
/// those that a listing needs. Empty when it sends just these, or has nothing to ask for.
[[nodiscard]] std::string wantedFacts(std::string_view offered);

/// The text of a name or a path: as UTF-8, or, when it is none, in the Western code page 1252. Raises 1113.
[[nodiscard]] std::wstring ftpText(std::string_view bytes);

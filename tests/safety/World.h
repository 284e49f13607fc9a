#pragma once

#include <map>
#include <set>
#include <string>

/// What stands under one name: 'f' a file, 'd' a folder, 'l' a link; in the registry 'k' a key, 'v' a value,
/// 'L' a link. The content is a file's permissions and a hash of its bytes, where a link leads, a value's
/// data.
struct Thing
{
    char kind = 0;
    std::string content;
    bool operator==(const Thing&) const = default;
};
/// By path below the world's folder; "registry/" begins what is below the scratch key, ":" a value's name.
using Picture = std::map<std::string, Thing>;

/// A small tree with a twin beside every odd name, and copies of it wherever a path taken wrongly could lead:
/// beside the root, behind its links, below another current folder. Made and looked at past Win32, which
/// hides what counts.
///
///     root  root.  vault  other/root     the tree; links lead to vault
///     aside/sub                          the link to vault/sub that takes the place of root/sub
///     registry/root  root.  vault        the same in keys and values
class World
{
public:
    /// Below an existing folder given as a Unix path; what is left of an earlier world goes.
    explicit World(std::string folder);

    [[nodiscard]] const Picture& original() const { return m_original; }
    /// Everything as it is now.
    [[nodiscard]] Picture look() const;
    /// Makes everything original again, given how it is now.
    void restore(const Picture& now) const;
    /// The Windows path of a thing, and its text for the kernel.
    [[nodiscard]] std::wstring windowsPath(const std::string& path) const;
    [[nodiscard]] std::string unixPath(const std::string& path) const { return m_folder + "/" + path; }

private:
    void lookInto(const std::string& path, Picture& picture) const;
    void make(const std::string& path, const Thing& thing) const;

    std::string m_folder;
    Picture m_original;
};

inline constexpr const wchar_t* kScratchKey = L"Software\\sysmaint-safety"; // of HKEY_LOCAL_MACHINE
/// Puts a link to registry/vault under the scratch key.
void makeKeyLink(const std::wstring& path);

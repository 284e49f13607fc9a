#pragma once

#include "support/Links.h"

extern "C" LONG NTAPI NtDeleteKey(HANDLE key);

/// What one name stands for: 'f' a file, 'd' a folder, 'l' a link; in the registry 'k' a key, 'v' a value,
/// 'L' a link.
struct Thing
{
    char kind = 0;
    std::string content;                            ///< a file's bytes, where a link leads, a value's data
    std::uint32_t mode = 0;                         ///< a file's permissions
    auto operator<=>(const Thing&) const = default; // NOLINT(modernize-use-nullptr): there is no pointer
};
/// By path below the world's folder; "registry/" begins what is below the scratch key, ":" a value's name.
using Picture = std::map<std::string, Thing>;

/// What differs between the first picture and the second.
inline std::vector<Picture::value_type> difference(const Picture& one, const Picture& other)
{
    std::vector<Picture::value_type> result;
    std::set_difference(one.begin(), one.end(), other.begin(), other.end(), std::back_inserter(result));
    return result;
}

inline std::wstring wide(const std::string& text)
{
    std::wstring result(text.begin(), text.end()); // all names of the world are ASCII
    std::replace(result.begin(), result.end(), L'/', L'\\');
    return result;
}

/// The path of a thing's key, below HKEY_LOCAL_MACHINE, and a value's name.
inline std::wstring keyPath(const std::string& path)
{
    return L"Software\\sysmaint-safety" + wide(path.substr(8, path.find(':') - 8));
}
inline std::wstring valueName(const std::string& path)
{
    return wide(path.substr(path.find(':') + 1));
}

inline HKEY openKey(const std::string& path, REGSAM access)
{
    HKEY key = nullptr;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath(path).c_str(), REG_OPTION_OPEN_LINK, access, &key);
    return key;
}

/// Makes a link to registry/vault.
inline void makeKeyLink(const std::string& path)
{
    HKEY link = nullptr;
    const std::wstring target = L"\\Registry\\Machine\\" + keyPath("registry/vault");
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath(path).c_str(), 0, nullptr, REG_OPTION_CREATE_LINK,
                    KEY_ALL_ACCESS | KEY_CREATE_LINK, nullptr, &link, nullptr);
    RegSetValueExW(link, L"SymbolicLinkValue", 0, REG_LINK, reinterpret_cast<const BYTE*>(target.data()),
                   static_cast<DWORD>(target.size() * sizeof(wchar_t)));
    RegCloseKey(link);
}

/// A small tree with a twin beside every odd name, and copies of it wherever a misread path could lead:
/// beside the root, behind its links, below another current folder. Created and inspected without Win32,
/// which hides what matters.
///
///     root  root.  vault  other/root     the tree; links lead to vault
///     aside/sub                          the link to vault/sub that takes the place of root/sub
///     registry/root  root.  vault        the same in keys and values
struct World
{
    std::string folder;
    Picture original;

    /// Below an existing folder given as a Unix path; what is left of an earlier world goes.
    explicit World(const char* unixFolder) : folder(unixFolder)
    {
        for (const char* name : {"root", "root.", "vault", "other/root"})
            plan(name);
        original["aside/sub"] = {'l', unixPath("vault/sub")};
        for (const char* name : {"aside", "other"})
            original[name] = {'d', ""};
        for (const char* name : {"vault/behind", "vault/sub/behind"}) // only behind links
            original[name] = {'f', name, 0644};
        original["registry/vault:behind"] = {'v', "behind"};
        original["registry/root/out"] = {'L', ""};
        original["vault/hard"].content = "root/hard"; // two names of the same data
        for (const char* name : {"registry", "registry/other"})
            original[name] = {'k', ""};
        unixCall(/*umask*/ 95, unixArgument(022));
        restore(look());
        if (look() != original)
            throw std::runtime_error("the world could not be made");
    }

    /// The Windows path of a thing, and its text for the kernel.
    [[nodiscard]] std::wstring windowsPath(const std::string& path) const
    {
        return L"Z:" + wide(unixPath(path));
    }
    [[nodiscard]] std::string unixPath(const std::string& path) const { return folder + "/" + path; }

    /// The current state of everything.
    [[nodiscard]] Picture look() const
    {
        Picture picture;
        lookInto("", picture);
        lookIntoKey("registry", picture);
        return picture;
    }
    /// Restores everything, given its current state. What cannot be restored shows as missing later.
    void restore(const Picture& now) const
    {
        const auto added = difference(now, original);
        for (auto entry = added.rbegin(); entry != added.rend(); ++entry)
            remove(entry->first, entry->second.kind);
        for (const auto& [path, thing] : difference(original, now))
            make(path, thing);
    }

    /// Adds one of the trees, and one of keys beside it.
    void plan(const std::string& at)
    {
        std::string deep = "/";
        original[at] = {'d', ""};
        for (int level = 0; level < 3; ++level, deep += '/')
            original[at + (deep += std::string(98, 'd'))] = {'d', ""};
        for (const char* name : {"/sub", "/sub.", "/sub/deep", "/sub/empty", "/empty", "/empty."})
            original[at + name] = {'d', ""};
        for (const std::string name :
             {"/report", "/report.", "/report ", "/nul", "/Data.tmp", "/DATA.TMP", "/%temp%", "/a", "/a:b",
              "/fixed", "/fixed.", "/hard", "/sub/f", "/sub/f.", "/sub/deep/f", "/sub./f"})
            original[at + name] = {'f', at + name, name == "/fixed" ? 0444U : 0644U};
        for (const std::string& name : {"/" + std::string(255, 'n'), deep + "f", deep + "f."})
            original[at + name] = {'f', at + name, 0644};
        original[at + "/out"] = {'l', unixPath("vault")};
        original[at + "/up"] = {'l', unixPath(".")};
        const std::string key = "registry/" + at;
        for (const char* name : {"", "/a", "/sub", "/sub/deep", "/sub.", "/report", "/report."})
            original[key + name] = {'k', ""};
        for (const char* name : {":", ":a", ":a.", ":report", "/sub:", "/sub:f", "/sub/deep:f", "/sub.:f"})
            original[key + name] = {'v', key + name};
    }

    /// The bytes of a file or the entries of a folder.
    [[nodiscard]] std::string contents(const std::string& path, bool isFolder) const
    {
        constexpr long long kFolderFlag = 0x10000;
        std::array<char, 32768> bytes{};
        std::string result;
        const void* file = unixArgument(
            unixCall(/*open*/ 2, unixPath(path).c_str(), unixArgument(isFolder ? kFolderFlag : 0)));
        for (long long size = 0; (size = unixCall(isFolder ? /*getdents*/ 217 : /*read*/ 0, file,
                                                  bytes.data(), unixArgument(bytes.size()))) > 0;)
            result.append(bytes.data(), static_cast<std::size_t>(size));
        unixCall(/*close*/ 3, file);
        return result;
    }

    void lookInto(const std::string& path, Picture& picture) const
    {
        const std::string entries = contents(path, true);
        for (std::size_t at = 0; at < entries.size();) {
            const char* entry =
                &entries[at]; // the inode, the offset, this entry's length, the type, the name
            at += static_cast<std::uint8_t>(entry[16]) + 256U * static_cast<std::uint8_t>(entry[17]);
            const std::string name = entry + 19;
            if (name == "." || name == "..")
                continue;
            std::string child = path.empty() ? "" : path + "/";
            child += name;
            Thing& thing = picture[child];
            std::array<char, 1024> target{};
            std::array<std::uint32_t, 36> status{};
            if (entry[18] == 4) {
                thing.kind = 'd';
                lookInto(child, picture);
            } else if (entry[18] == 8) {
                unixCall(/*stat*/ 4, unixPath(child).c_str(), status.data());
                thing = {'f', contents(child, false), status[6] & 0777U};
            } else {
                unixCall(/*readlink*/ 89, unixPath(child).c_str(), target.data(), unixArgument(1023));
                thing = {'l', target.data()};
            }
        }
    }

    void lookIntoKey(const std::string& path, Picture& picture) const
    {
        const HKEY key = openKey(path, KEY_READ);
        if (key == nullptr)
            return;
        const bool link =
            RegQueryValueExW(key, L"SymbolicLinkValue", nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
        picture[path].kind = link ? 'L' : 'k';
        std::array<wchar_t, 1024> text{};
        std::array<char, 1024> data{};
        for (DWORD index = 0, length = 1024, size = 1024;
             !link && RegEnumValueW(key, index, text.data(), &length, nullptr, nullptr,
                                    reinterpret_cast<BYTE*>(data.data()), &size) == ERROR_SUCCESS;
             ++index, length = 1024, size = 1024)
            picture[path + ":" + utf8(text.data())] = {'v', std::string(data.data(), size)};
        for (DWORD index = 0; RegEnumKeyW(key, index, text.data(), 1024) == ERROR_SUCCESS; ++index)
            lookIntoKey(path + "/" + utf8(text.data()), picture);
        RegCloseKey(key);
    }

    void remove(const std::string& path, char kind) const
    {
        const HKEY key = kind == 'k' || kind == 'L' ? openKey(path, DELETE) : nullptr;
        if (key != nullptr)
            NtDeleteKey(key);
        RegCloseKey(key);
        if (kind == 'v')
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, keyPath(path).c_str(), valueName(path).c_str());
        unixCall(kind == 'd' ? /*rmdir*/ 84 : /*unlink*/ 87, unixPath(path).c_str());
    }

    void make(const std::string& path, const Thing& thing) const
    {
        constexpr long long kCreateFlags = 0xC1; // to write, only if it is new
        const std::string name = unixPath(path);
        const char* twin = path == "root/hard"    ? "vault/hard"
                           : path == "vault/hard" ? "root/hard"
                                                  : "missing";
        const auto size = static_cast<DWORD>(thing.content.size());
        HKEY key = nullptr;
        if (thing.kind == 'k')
            RegCreateKeyW(HKEY_LOCAL_MACHINE, keyPath(path).c_str(), &key);
        else if (thing.kind == 'v')
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, keyPath(path).c_str(), valueName(path).c_str(), REG_BINARY,
                            thing.content.data(), size);
        else if (thing.kind == 'L')
            makeKeyLink(path);
        else if (thing.kind == 'd')
            unixCall(/*mkdir*/ 83, name.c_str(), unixArgument(0755));
        else if (thing.kind == 'l')
            unixCall(/*symlink*/ 88, thing.content.c_str(), name.c_str());
        else if (unixCall(/*link*/ 86, unixPath(twin).c_str(), name.c_str()) != 0) {
            const void* file = unixArgument(
                unixCall(/*open*/ 2, name.c_str(), unixArgument(kCreateFlags), unixArgument(thing.mode)));
            unixCall(/*write*/ 1, file, thing.content.data(), unixArgument(size));
            unixCall(/*close*/ 3, file);
        }
        RegCloseKey(key);
    }
};

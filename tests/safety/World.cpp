#include "safety/World.h"

#include <cstdint>
#include <vector>

#include "support/FolderExchange.h"
#include "support/Wipe.h"

extern "C" LONG NTAPI NtDeleteKey(HANDLE key);

namespace {
enum SystemCall : std::uint8_t
{
    kRead = 0,
    kWrite = 1,
    kOpen = 2,
    kClose = 3,
    kFileStatus = 5,
    kMakeFolder = 83,
    kRemoveFolder = 84,
    kMakeNextName = 86,
    kRemoveName = 87,
    kMakeLink = 88,
    kReadLink = 89,
    kListFolder = 217
};
constexpr long long kFolderFlag = 0x10000;
constexpr long long kCreateFlags = 0xC1; // to write, only if it is new

/// An open file of the kernel's.
class UnixFile
{
public:
    explicit UnixFile(const std::string& path, long long flags = 0, long long mode = 0)
        : m_file(unixCall(kOpen, path.c_str(), unixArgument(flags), unixArgument(mode)))
    {
    }
    UnixFile(const UnixFile&) = delete;
    UnixFile& operator=(const UnixFile&) = delete;
    ~UnixFile() { call(kClose); }
    long long call(SystemCall number, const void* data = nullptr, long long size = 0) const
    {
        return unixCall(number, unixArgument(m_file), data, unixArgument(size));
    }

private:
    long long m_file;
};

std::string fileContent(const std::string& path)
{
    const UnixFile file(path);
    std::array<std::uint32_t, 36> status{};
    std::array<char, 1024> bytes{};
    file.call(kFileStatus, status.data());
    const long long size = file.call(kRead, bytes.data(), bytes.size());
    const std::string_view text(bytes.data(), static_cast<std::size_t>(std::max(size, 0LL)));
    return std::to_string(status[6] & 0777U) + " " + std::to_string(std::hash<std::string_view>{}(text));
}

/// The tree that stands in several places.
void addTree(Picture& picture, const std::string& at)
{
    picture[at] = {'d', ""};
    for (const char* name : {"sub", "sub.", "sub/deep", "sub/empty", "empty", "empty."})
        picture[at + "/" + name] = {'d', ""};
    std::string folder = at;
    for (int level = 0; level < 3; ++level)
        picture[folder += "/" + std::string(98, 'd')] = {'d', ""};
    for (const char* name :
         {"/report", "/report.", "/report ", "/nul", "/Data.tmp", "/DATA.TMP", "/%temp%", "/a", "/a:b",
          "/fixed", "/fixed.", "/hard", "/sub/f", "/sub/f.", "/sub/deep/f", "/sub./f"})
        picture[at + name] = {'f', ""};
    picture[at + "/" + std::string(255, 'n')] = {'f', ""};
    picture[folder + "/f"] = {'f', ""};
    picture[folder + "/f."] = {'f', ""};
    picture[at + "/out"] = {'l', "vault"};
    picture[at + "/up"] = {'l', "."};
}

void addKeys(Picture& picture, const std::string& at)
{
    for (const char* name : {"", "/a", "/sub", "/sub/deep", "/sub.", "/report", "/report."})
        picture[at + name] = {'k', ""};
    for (const char* name : {":", ":a", ":a.", ":report", "/sub:", "/sub:f", "/sub/deep:f", "/sub.:f"})
        picture[at + name] = {'v', at + name};
}

std::wstring wide(const std::string& text)
{
    std::wstring result(text.begin(), text.end()); // all names of the world are ASCII
    std::replace(result.begin(), result.end(), L'/', L'\\');
    return result;
}

bool inRegistry(const std::string& path)
{
    return path.compare(0, 8, "registry") == 0;
}

void lookIntoKey(const std::wstring& path, const std::string& name, Picture& picture)
{
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), REG_OPTION_OPEN_LINK, KEY_READ, &key) !=
        ERROR_SUCCESS)
        return;
    const bool link =
        RegQueryValueExW(key, L"SymbolicLinkValue", nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
    picture[name] = {link ? 'L' : 'k', ""};
    std::array<wchar_t, 1024> text{};
    std::array<char, 1024> data{};
    for (DWORD index = 0, length = 1024, size = 1024;
         !link && RegEnumValueW(key, index, text.data(), &length, nullptr, nullptr,
                                reinterpret_cast<BYTE*>(data.data()), &size) == ERROR_SUCCESS;
         ++index, length = 1024, size = 1024)
        picture[name + ":" + utf8({text.data(), length})] = {'v', std::string(data.data(), size)};
    for (DWORD index = 0; RegEnumKeyW(key, index, text.data(), 1024) == ERROR_SUCCESS; ++index)
        lookIntoKey(path + L"\\" + text.data(), name + "/" + utf8(text.data()), picture);
    RegCloseKey(key);
}

std::wstring keyPath(const std::string& path)
{
    return kScratchKey + wide(path.substr(8, path.find(':') - 8));
}

void makeKeysAgain(const Picture& now, const Picture& original)
{
    for (auto entry = now.rbegin(); entry != now.rend(); ++entry) {
        HKEY key = nullptr;
        if (inRegistry(entry->first) && entry->second.kind != 'v' &&
            RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath(entry->first).c_str(), REG_OPTION_OPEN_LINK, DELETE,
                          &key) == ERROR_SUCCESS)
            NtDeleteKey(key);
        RegCloseKey(key);
    }
    makeKeyLink(std::wstring(kScratchKey) + L"\\root\\out");
    for (const auto& [path, thing] : original) {
        HKEY made = nullptr;
        if (!inRegistry(path) || thing.kind == 'L' ||
            RegCreateKeyW(HKEY_LOCAL_MACHINE, keyPath(path).c_str(), &made) != ERROR_SUCCESS)
            continue; // what could not be made shows as missing
        if (thing.kind == 'v')
            RegSetValueExW(made, wide(path.substr(path.find(':') + 1)).c_str(), 0, REG_BINARY,
                           reinterpret_cast<const BYTE*>(thing.content.data()),
                           static_cast<DWORD>(thing.content.size()));
        RegCloseKey(made);
    }
}
} // namespace

void makeKeyLink(const std::wstring& path)
{
    HKEY link = nullptr;
    const std::wstring target = std::wstring(L"\\Registry\\Machine\\") + kScratchKey + L"\\vault";
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_CREATE_LINK,
                        KEY_ALL_ACCESS | KEY_CREATE_LINK, nullptr, &link, nullptr) == ERROR_SUCCESS)
        RegSetValueExW(link, L"SymbolicLinkValue", 0, REG_LINK, reinterpret_cast<const BYTE*>(target.data()),
                       static_cast<DWORD>(target.size() * sizeof(wchar_t)));
    RegCloseKey(link);
}

World::World(std::string folder) : m_folder(std::move(folder))
{
    for (const char* name : {"aside", "other"})
        m_original[name] = {'d', ""};
    for (const char* name : {"root", "root.", "vault", "other/root"})
        addTree(m_original, name);
    for (const char* name : {"vault/behind", "vault/sub/behind"}) // a walk that finds these followed a link
        m_original[name] = {'f', ""};
    m_original["aside/sub"] = {'l', "vault/sub"};
    m_original["registry"] = {'k', ""};
    for (const char* name : {"registry/root", "registry/root.", "registry/vault"})
        addKeys(m_original, name);
    m_original["registry/vault:behind"] = {'v', "behind"};
    restore(look());
    m_original = look();
    if (m_original.size() < 150)
        throw std::runtime_error("the world could not be made");
}

std::wstring World::windowsPath(const std::string& path) const
{
    return L"Z:" + wide(unixPath(path));
}

Picture World::look() const
{
    Picture picture;
    lookInto("", picture);
    lookIntoKey(kScratchKey, "registry", picture);
    return picture;
}

void World::lookInto(const std::string& path, Picture& picture) const
{
    const UnixFile folder(unixPath(path), kFolderFlag);
    std::vector<char> entries(32768);
    for (long long size = 0; (size = folder.call(kListFolder, entries.data(), 32768)) > 0;) {
        for (const char* entry = entries.data(); entry < entries.data() + size;) {
            const char type = entry[18]; // after the inode, the offset and this entry's length
            const std::string name = entry + 19;
            entry += *reinterpret_cast<const std::uint16_t*>(entry + 16);
            if (name == "." || name == "..")
                continue;
            std::string child = path.empty() ? "" : path + "/";
            child += name;
            std::array<char, 1024> target{};
            if (type == 4) {
                picture[child] = {'d', ""};
                lookInto(child, picture);
            } else if (type == 8) {
                picture[child] = {'f', fileContent(unixPath(child))};
            } else {
                unixCall(kReadLink, unixPath(child).c_str(), target.data(), unixArgument(1023));
                picture[child] = {'l', target.data()};
            }
        }
    }
}

void World::make(const std::string& path, const Thing& thing) const
{
    const std::string at = unixPath(path);
    if (thing.kind == 'd') {
        unixCall(kMakeFolder, at.c_str(), unixArgument(0755));
    } else if (thing.kind == 'l') {
        const bool relative = thing.content.compare(0, 1, "/") != 0;
        unixCall(kMakeLink, (relative ? unixPath(thing.content) : thing.content).c_str(), at.c_str());
    } else {
        const std::string twin = path == "root/hard" ? "vault/hard" : path == "vault/hard" ? "root/hard" : "";
        if (!twin.empty() && unixCall(kMakeNextName, unixPath(twin).c_str(), at.c_str()) == 0)
            return;
        const std::string content = path.find("/hard") != std::string::npos ? "hard" : path;
        const bool fixed = path.size() > 6 && path.compare(path.size() - 6, 6, "/fixed") == 0;
        const UnixFile file(at, kCreateFlags, fixed ? 0444 : 0644);
        file.call(kWrite, content.data(), static_cast<long long>(content.size()));
    }
}

void World::restore(const Picture& now) const
{
    bool keys = false;
    const auto isAsItWas = [](const Picture& one, const Picture& other, const std::string& path) {
        const auto found = other.find(path);
        return found != other.end() && found->second == one.at(path);
    };
    for (auto entry = now.rbegin(); entry != now.rend(); ++entry) {
        const auto& [path, thing] = *entry;
        if (isAsItWas(now, m_original, path))
            continue;
        keys = keys || inRegistry(path);
        if (thing.kind == 'd')
            unixCall(kRemoveFolder, unixPath(path).c_str());
        else
            unixCall(kRemoveName, unixPath(path).c_str());
    }
    for (const auto& [path, thing] : m_original) {
        if (isAsItWas(m_original, now, path))
            continue;
        if (inRegistry(path))
            keys = true;
        else
            make(path, thing);
    }
    if (keys)
        makeKeysAgain(now, m_original);
}

// Stands for the system's offreg.dll, which the platform has not. Its functions do their work on hives that
// are really read and written.

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "core/win32/registry/offline/include/HiveFile.h"

namespace {
using offline::Hive;

/// A hive that is open.
struct OpenHive
{
    Hive hive;
};

template <class Body>
DWORD guarded(Body&& body)
{
    try {
        body();
        return ERROR_SUCCESS;
    } catch (const long code) {
        return static_cast<DWORD>(code);
    } catch (const std::exception&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}
} // namespace

extern "C" {
__declspec(dllexport) DWORD WINAPI OROpenHive(PCWSTR path, void** hive)
{
    return guarded([&] {
        std::ifstream file(std::filesystem::path(path), std::ios::binary);
        if (!file)
            throw long{ERROR_FILE_NOT_FOUND};
        const std::vector<char> text((std::istreambuf_iterator<char>(file)), {});
        const auto bytes = std::as_bytes(std::span(text));
        *hive = new OpenHive{Hive::parse(std::vector<std::byte>(bytes.begin(), bytes.end()))};
    });
}

__declspec(dllexport) DWORD WINAPI ORSaveHive(void* hive, PCWSTR path, DWORD major, DWORD minor)
{
    if (major != 6 || minor != 1)
        return ERROR_INVALID_PARAMETER;
    if (std::filesystem::exists(path))
        return ERROR_ALREADY_EXISTS;
    return guarded([&] {
        const std::vector<std::byte> bytes = static_cast<OpenHive*>(hive)->hive.compact();
        std::ofstream(std::filesystem::path(path), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    });
}

__declspec(dllexport) DWORD WINAPI ORCloseHive(void* hive)
{
    delete static_cast<OpenHive*>(hive);
    return ERROR_SUCCESS;
}
}

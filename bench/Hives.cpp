#include <windows.h>

#include <winioctl.h>

#include <memory>
#include <string>
#include <vector>

#include "Bench.h"
#include "core/win32/registry/defragmenter/include/HiveCopy.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "support/ImportReplacement.h"

namespace {
constexpr DWORD kCluster = 4096;

std::wstring volumeFile()
{
    return temporaryFolder() + L"sysmaint-bench-hive";
}
std::wstring copyFile()
{
    return temporaryFolder() + L"sysmaint-bench-copy";
}

Win32Handle opened(const std::wstring& path, DWORD access, DWORD disposition)
{
    Win32Handle file(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                 disposition, FILE_ATTRIBUTE_NORMAL, nullptr));
    require(file.isValid(), "a file cannot be opened");
    return file;
}

/// The hive's file stands for the volume that it is on, whole from its first cluster on.
class PretendedVolume
{
public:
    PretendedVolume() : m_opens(GetModuleHandleW(nullptr)), m_controls(GetModuleHandleW(nullptr))
    {
        m_opens.setHook([](auto original, LPCWSTR name, auto... rest) {
            const bool isVolume = std::wstring_view(name).starts_with(LR"(\\.\)");
            return original(isVolume ? volumeFile().c_str() : name, rest...);
        });
        m_controls.setHook(
            [](auto, HANDLE file, DWORD, LPVOID, DWORD, LPVOID answer, DWORD, LPDWORD returned, auto) {
                LARGE_INTEGER size{};
                GetFileSizeEx(file, &size);
                auto& extents = *static_cast<RETRIEVAL_POINTERS_BUFFER*>(answer);
                extents.ExtentCount = 1;
                extents.Extents[0].NextVcn.QuadPart = size.QuadPart / kCluster;
                *returned = sizeof extents;
                return TRUE;
            });
    }

private:
    CountedImport<"CreateFileW",
                  HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)>
        m_opens;
    CountedImport<"DeviceIoControl", decltype(&DeviceIoControl)> m_controls;
};

/// The calls of the copy with nothing between them.
void copyBarely(long clusters, HANDLE event)
{
    const Win32Handle from = opened(volumeFile(), GENERIC_READ, OPEN_EXISTING);
    const Win32Handle to = opened(copyFile(), GENERIC_WRITE, CREATE_ALWAYS);
    LARGE_INTEGER offset;
    offset.QuadPart = LONGLONG{clusters} * kCluster;
    SetFilePointerEx(to.get(), offset, nullptr, FILE_BEGIN);
    SetEndOfFile(to.get());
    std::vector<unsigned char> buffer(kCluster);
    for (long i = 0; i < clusters; ++i) {
        DWORD done = 0;
        offset.QuadPart = LONGLONG{i} * kCluster;
        require(WaitForSingleObject(event, 0) == WAIT_TIMEOUT &&
                    SetFilePointerEx(from.get(), offset, nullptr, FILE_BEGIN) &&
                    ReadFile(from.get(), buffer.data(), kCluster, &done, nullptr) &&
                    SetFilePointerEx(to.get(), offset, nullptr, FILE_BEGIN) &&
                    WriteFile(to.get(), buffer.data(), kCluster, &done, nullptr),
                "a call failed");
    }
}
} // namespace

BenchRows hiveRows(BenchScale scale)
{
    const long clusters = scale(7325); // 30,003,200 bytes
    const auto event = std::make_shared<Win32Handle>(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    BenchRows rows;
    rows.timed = {
        {"copy a hive of 30 MB from the volume (op: 4 KiB)", "bare loop of the same calls", 1 / 1.2,
         static_cast<double>(clusters),
         [=] {
             const PretendedVolume volume;
             HiveCopy(volumeFile().c_str(), copyFile().c_str(), event->get());
         },
         [=] { copyBarely(clusters, event->get()); },
         [=] {
             const Win32Handle file = opened(volumeFile(), GENERIC_WRITE, CREATE_ALWAYS);
             const std::vector<unsigned char> bytes(static_cast<std::size_t>(clusters) * kCluster, 1);
             DWORD done = 0;
             require(WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr),
                     "the hive cannot be made");
         },
         [] {
             DeleteFileW(volumeFile().c_str());
             DeleteFileW(copyFile().c_str());
         }}};
    return rows;
}

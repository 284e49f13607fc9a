#include <windows.h>

#include <memory>
#include <string>

#include "Bench.h"
#include "core/win32/utils/wiper/api.h"

namespace {
constexpr DWORD kChunk = 1048576;

HANDLE openFile(const std::wstring& path, DWORD disposition)
{
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, disposition, 0, nullptr);
    require(file != INVALID_HANDLE_VALUE, "the file cannot be opened");
    return file;
}

/// The passes over each chunk in turn, as the wiper makes them.
void overwrite(HANDLE file, long chunks, int passes)
{
    const auto buffer = std::make_unique<unsigned char[]>(kChunk);
    for (long chunk = 0; chunk < chunks; ++chunk)
        for (int pass = 0; pass < passes; ++pass) {
            LARGE_INTEGER offset;
            offset.QuadPart = static_cast<LONGLONG>(chunk) * kChunk;
            DWORD written = 0;
            require(SetFilePointerEx(file, offset, nullptr, FILE_BEGIN) &&
                        WriteFile(file, buffer.get(), kChunk, &written, nullptr) && FlushFileBuffers(file),
                    "a write failed");
        }
}

BenchRow wipeRow(const char* name, const char* peer, long chunks, std::uint32_t method, int passes,
                 bool deletes)
{
    const std::wstring path = temporaryFolder() + L"sysmaint-bench-wipe";
    return {name,
            peer,
            deletes ? 0.0 : 0.95,
            static_cast<double>(chunks),
            [=] {
                const std::unique_ptr<IWiper> wiper(DllGetWiper());
                require(wiper->Wipe(nullptr, nullptr, kWipeFile, path.c_str(), nullptr, nullptr, method, 1,
                                    nullptr) == ERROR_SUCCESS,
                        "the wipe failed");
            },
            [=] {
                const HANDLE file = openFile(path, OPEN_EXISTING);
                overwrite(file, chunks, passes);
                CloseHandle(file);
                if (deletes)
                    DeleteFileW(path.c_str());
            },
            [=] {
                const HANDLE file = openFile(path, CREATE_ALWAYS);
                overwrite(file, chunks, 1);
                CloseHandle(file);
            },
            [=] { DeleteFileW(path.c_str()); }};
}
} // namespace

std::vector<BenchRow> wipeRows(BenchScale scale)
{
    const long large = scale(256);
    const long small = scale(16);
    return {wipeRow("wipe a file of 256 MiB by zeros (per MiB)", "bare write and flush", large, kWipeZeros, 1,
                    false),
            wipeRow("wipe a file of 256 MiB by zeros (per MiB)", "the same, then DeleteFileW", large,
                    kWipeZeros, 1, true),
            wipeRow("wipe a file of 16 MiB, 35 passes (per MiB)", "bare write and flush, 35 times", small,
                    kWipeGutmann, 35, false)};
}

#include <windows.h>

#include <memory>
#include <string>

#include "Bench.h"
#include "core/win32/utils/wiper/api.h"
#include "core/win32/utils/wiper/include/FillPattern.h"

namespace {
constexpr DWORD kChunk = 1048576;

std::wstring wipedFile()
{
    return temporaryFolder() + L"sysmaint-bench-wipe";
}

/// Fills the buffer directly with one of the 35 passes.
void fill(int pass, unsigned char* buffer)
{
    const fillpattern::Pass& bytes = fillpattern::kPasses[pass];
    if (bytes.period != 0)
        fillpattern::fillRepeated(buffer, kChunk, bytes.bytes, bytes.period);
    else
        fillpattern::fillRandomText(reinterpret_cast<wchar_t*>(buffer), kChunk / sizeof(wchar_t));
}

enum class Fill
{
    Zeros,
    AsOurs
};

/// Overwrites the file chunk by chunk, each chunk `passes` times, and flushes every write.
void overwrite(DWORD disposition, long chunks, int passes, Fill filling)
{
    const HANDLE file =
        CreateFileW(wipedFile().c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, disposition, 0, nullptr);
    require(file != INVALID_HANDLE_VALUE, "the file cannot be opened");
    const auto buffer = std::make_unique<unsigned char[]>(kChunk + sizeof(wchar_t)); // a text has its end
    for (long chunk = 0; chunk < chunks; ++chunk) {
        for (int pass = 0; pass < passes; ++pass) {
            LARGE_INTEGER offset;
            offset.QuadPart = static_cast<LONGLONG>(chunk) * kChunk;
            if (filling == Fill::AsOurs)
                fill(pass, buffer.get());
            DWORD written = 0;
            require((passes == 1 || SetFilePointerEx(file, offset, nullptr, FILE_BEGIN)) &&
                        WriteFile(file, buffer.get(), kChunk, &written, nullptr) && written == kChunk &&
                        FlushFileBuffers(file),
                    "a write failed");
        }
    }
    CloseHandle(file);
}

enum class Afterwards
{
    Keep,
    Delete
};

/// Ours also truncates and deletes the file; the peer does that only where stated. Every turn begins with a
/// new file of that size, completely on the disk.
BenchRow wipeRow(const char* name, const char* peer, double goal, long chunks, WipeMethod method, int passes,
                 Fill filling, Afterwards afterwards)
{
    return {name,
            peer,
            goal,
            static_cast<double>(chunks * passes),
            [=] {
                const std::unique_ptr<IWiper> wiper(DllGetWiper());
                require(wiper->Wipe(nullptr, nullptr, kWipeFile, wipedFile().c_str(), nullptr, nullptr,
                                    method, 1, nullptr) == ERROR_SUCCESS,
                        "the wipe failed");
                require(GetFileAttributesW(wipedFile().c_str()) == INVALID_FILE_ATTRIBUTES,
                        "the file is still there");
            },
            [=] {
                overwrite(OPEN_EXISTING, chunks, passes, filling);
                if (afterwards == Afterwards::Delete)
                    require(DeleteFileW(wipedFile().c_str()), "the file cannot be deleted");
            },
            [=] { overwrite(CREATE_ALWAYS, chunks, 1, Fill::Zeros); },
            [] { DeleteFileW(wipedFile().c_str()); }};
}
} // namespace

BenchRows wipeRows(BenchScale scale)
{
    const long large = scale(256);
    const long small = scale(16);
    const char* zeros = "wipe 256 MiB with zeros (op: 1 MiB)";
    const char* passes = "wipe 16 MiB in 35 passes (op: 1 MiB once)";
    BenchRows rows;
    rows.timed = {wipeRow(zeros, "bare write and flush loop", 0.95, large, kWipeZeros, 1, Fill::Zeros,
                          Afterwards::Keep),
                  wipeRow(zeros, "the loop, then DeleteFileW", 0, large, kWipeZeros, 1, Fill::Zeros,
                          Afterwards::Delete),
                  wipeRow(passes, "bare write and flush loop, zeros alone", 0.95, small, kWipeGutmann, 35,
                          Fill::Zeros, Afterwards::Keep),
                  wipeRow(passes, "the loop with our fills, then DeleteFileW", 0, small, kWipeGutmann, 35,
                          Fill::AsOurs, Afterwards::Delete)};
    return rows;
}

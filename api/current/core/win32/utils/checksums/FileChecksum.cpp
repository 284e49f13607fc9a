#include "core/win32/utils/checksums/include/FileChecksum.h"

#include <memory>

#include "core/win32/utils/objectmanager/include/LibraryCall.h"
#include "core/win32/utils/objectmanager/include/Raise.h"
#include "core/win32/utils/objectmanager/include/Win32Handle.h"
#include "core/win32/utils/paths/include/Win32Path.h"

void filechecksum::read(const FileReading& reading,
                        const std::function<void(const void* data, std::size_t size)>& take)
{
    constexpr DWORD kPiece = 1U << 20U;
    requireEvent(reading.cancelEvent);
    const Win32Handle file(CreateFileW(Win32Path(reading.path), GENERIC_READ,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                       OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    LARGE_INTEGER size{};
    if (!file.isValid() || (reading.progress != nullptr && !GetFileSizeEx(file.get(), &size)))
        raiseLastError();
    const std::unique_ptr<unsigned char[]> piece(new unsigned char[kPiece]);
    unsigned long long done = 0;
    for (;;) {
        if (isCancelled(reading.cancelEvent))
            raiseCode(codeOfCancelled(reading.cancelEvent));
        DWORD length = 0;
        if (!ReadFile(file.get(), piece.get(), kPiece, &length, nullptr))
            raiseLastError();
        if (length == 0)
            return;
        take(piece.get(), length);
        done += length;
        if (reading.progress != nullptr) {
            const OutsideLibrary outside;
            reading.progress(done, static_cast<unsigned long long>(size.QuadPart), reading.context);
        }
    }
}

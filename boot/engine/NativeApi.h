#pragma once

#include <windows.h>

#include <cstdint>

// The system's native calls, the only ones that a program may make this early. The types have the layout of
// the system's; not every toolchain has a header that declares them all.

namespace native {
using Status = long; // an NTSTATUS: negative means that the call failed

constexpr Status status(unsigned long value)
{
    return static_cast<Status>(value);
}
constexpr Status kSuccess = 0;
constexpr Status kEndOfFile = status(0xC0000011);
constexpr Status kNotImplemented = status(0xC0000002);
constexpr Status kInvalidInfoClass = status(0xC0000003);
constexpr Status kInvalidParameter = status(0xC000000D);
constexpr Status kNoSuchFile = status(0xC000000F);
constexpr Status kInvalidDeviceRequest = status(0xC0000010);
constexpr Status kNoMemory = status(0xC0000017);
constexpr Status kObjectNameNotFound = status(0xC0000034);
constexpr Status kObjectNameCollision = status(0xC0000035);
constexpr Status kObjectPathNotFound = status(0xC000003A);
constexpr Status kSharingViolation = status(0xC0000043);
constexpr Status kDeletePending = status(0xC0000056);
constexpr Status kNotSupported = status(0xC00000BB);
constexpr Status kNotAFolder = status(0xC0000103);
constexpr Status kFileTooLarge = status(0xC0000904);

// Rights, sharing, dispositions and options of NtCreateFile are named in windows.h or here.
constexpr ULONG kOpenExisting = 1;    // FILE_OPEN
constexpr ULONG kCreateNew = 2;       // FILE_CREATE
constexpr ULONG kOpenOrCreate = 3;    // FILE_OPEN_IF
constexpr ULONG kMustBeFolder = 0x1;  // FILE_DIRECTORY_FILE
constexpr ULONG kSynchronous = 0x20;  // FILE_SYNCHRONOUS_IO_NONALERT
constexpr ULONG kMustBeFile = 0x40;   // FILE_NON_DIRECTORY_FILE
constexpr ULONG kById = 0x2000;       // FILE_OPEN_BY_FILE_ID
constexpr ULONG kForBackup = 0x4000;  // FILE_OPEN_FOR_BACKUP_INTENT
constexpr ULONG kAsItself = 0x200000; // FILE_OPEN_REPARSE_POINT
constexpr ULONG kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Information classes of files.
constexpr ULONG kBasicInformation = 4;
constexpr ULONG kStandardInformation = 5;
constexpr ULONG kInternalInformation = 6;
constexpr ULONG kNameInformation = 9;
constexpr ULONG kRenameInformation = 10;
constexpr ULONG kDispositionInformation = 13;
constexpr ULONG kEndOfFileInformation = 20;
constexpr ULONG kStreamInformation = 22;
constexpr ULONG kAttributeTagInformation = 35;
constexpr ULONG kHardLinkInformation = 46;
constexpr ULONG kVolumeInformation = 1;
constexpr ULONG kDeviceInformation = 4;

struct UnicodeString
{
    USHORT length; // in bytes
    USHORT maximumLength;
    const wchar_t* buffer;
};

struct ObjectAttributes
{
    ULONG length;
    HANDLE root;
    const UnicodeString* name;
    ULONG attributes;
    void* security;
    void* quality;
};

struct IoStatus
{
    union
    {
        Status status;
        void* pointer;
    };
    ULONG_PTR information;
};

struct BasicInformation
{
    LARGE_INTEGER times[4]; // 0 leaves a time unchanged
    ULONG attributes;
};

struct StandardInformation
{
    LARGE_INTEGER allocationSize;
    LARGE_INTEGER endOfFile;
    ULONG links;
    BOOLEAN deletePending;
    BOOLEAN isFolder;
};

struct StreamInformation
{
    ULONG nextOffset;
    ULONG nameLength; // in bytes
    LARGE_INTEGER size;
    LARGE_INTEGER allocationSize;
    wchar_t name[1]; // ":name:$DATA"
};

struct LinkInformation
{
    ULONG nextOffset;
    std::uint64_t folder; // its number
    ULONG nameLength;     // in characters
    wchar_t name[1];
};

struct LinksInformation
{
    ULONG bytesNeeded;
    ULONG count;
    LinkInformation first;
};

struct VolumeInformation
{
    LARGE_INTEGER created;
    ULONG serial;
    ULONG labelLength;
    BOOLEAN supportsObjects;
    wchar_t label[64];
};

struct DeviceInformation
{
    ULONG type;
    ULONG characteristics;
};

/// The calls that the engine makes. It makes no others, so a test can fail or count each, or end the process
/// after it.
struct Api
{
    Status(NTAPI* createFile)(HANDLE* handle, ACCESS_MASK access, ObjectAttributes* object, IoStatus* io,
                              LARGE_INTEGER* size, ULONG attributes, ULONG share, ULONG disposition,
                              ULONG options, void* extended, ULONG extendedLength);
    Status(NTAPI* readFile)(HANDLE file, HANDLE event, void* routine, void* context, IoStatus* io,
                            void* buffer, ULONG length, LARGE_INTEGER* offset, ULONG* key);
    Status(NTAPI* writeFile)(HANDLE file, HANDLE event, void* routine, void* context, IoStatus* io,
                             const void* buffer, ULONG length, LARGE_INTEGER* offset, ULONG* key);
    Status(NTAPI* flushFile)(HANDLE file, IoStatus* io);
    Status(NTAPI* queryFile)(HANDLE file, IoStatus* io, void* answer, ULONG length, ULONG question);
    Status(NTAPI* setFile)(HANDLE file, IoStatus* io, const void* data, ULONG length, ULONG what);
    Status(NTAPI* queryVolume)(HANDLE file, IoStatus* io, void* answer, ULONG length, ULONG question);
    Status(NTAPI* queryAttributes)(ObjectAttributes* object, BasicInformation* answer);
    Status(NTAPI* close)(HANDLE handle);
    Status(NTAPI* allocate)(HANDLE process, void** address, ULONG_PTR zeroBits, SIZE_T* size, ULONG kind,
                            ULONG protection);
    Status(NTAPI* release)(HANDLE process, void** address, SIZE_T* size, ULONG kind);
    Status(NTAPI* delay)(BOOLEAN alertable, const LARGE_INTEGER* interval);
    Status(NTAPI* systemTime)(LARGE_INTEGER* time); // 100 ns since 1601, UTC
};

/// The system's calls.
[[nodiscard]] const Api& systemApi();
} // namespace native

#include "engine/NativeApi.h"

using native::BasicInformation;
using native::IoStatus;
using native::ObjectAttributes;
using native::Status;

extern "C" {
Status NTAPI NtCreateFile(HANDLE*, ACCESS_MASK, ObjectAttributes*, IoStatus*, LARGE_INTEGER*, ULONG, ULONG,
                          ULONG, ULONG, void*, ULONG);
Status NTAPI NtReadFile(HANDLE, HANDLE, void*, void*, IoStatus*, void*, ULONG, LARGE_INTEGER*, ULONG*);
Status NTAPI NtWriteFile(HANDLE, HANDLE, void*, void*, IoStatus*, const void*, ULONG, LARGE_INTEGER*, ULONG*);
Status NTAPI NtFlushBuffersFile(HANDLE, IoStatus*);
Status NTAPI NtQueryInformationFile(HANDLE, IoStatus*, void*, ULONG, ULONG);
Status NTAPI NtSetInformationFile(HANDLE, IoStatus*, const void*, ULONG, ULONG);
Status NTAPI NtQueryVolumeInformationFile(HANDLE, IoStatus*, void*, ULONG, ULONG);
Status NTAPI NtQueryAttributesFile(ObjectAttributes*, BasicInformation*);
Status NTAPI NtClose(HANDLE);
Status NTAPI NtAllocateVirtualMemory(HANDLE, void**, ULONG_PTR, SIZE_T*, ULONG, ULONG);
Status NTAPI NtFreeVirtualMemory(HANDLE, void**, SIZE_T*, ULONG);
Status NTAPI NtDelayExecution(BOOLEAN, const LARGE_INTEGER*);
Status NTAPI NtQuerySystemTime(LARGE_INTEGER*);
}

const native::Api& native::systemApi()
{
    static constexpr Api api = {&NtCreateFile,
                                &NtReadFile,
                                &NtWriteFile,
                                &NtFlushBuffersFile,
                                &NtQueryInformationFile,
                                &NtSetInformationFile,
                                &NtQueryVolumeInformationFile,
                                &NtQueryAttributesFile,
                                &NtClose,
                                &NtAllocateVirtualMemory,
                                &NtFreeVirtualMemory,
                                &NtDelayExecution,
                                &NtQuerySystemTime};
    return api;
}

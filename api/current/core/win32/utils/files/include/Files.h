#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <tuple>
#include <vector>

/// What the exported functions of files and folders do; see api.h. They raise bare codes. Times are FILETIMEs
/// as numbers.
namespace files {
/// Logical and allocated bytes.
[[nodiscard]] std::tuple<unsigned long long, unsigned long long> sizes(const wchar_t* path);
/// Created, accessed, written.
[[nodiscard]] std::tuple<unsigned long long, unsigned long long, unsigned long long>
times(const wchar_t* path);
void setTimes(const wchar_t* path, const unsigned long long* created, const unsigned long long* accessed,
              const unsigned long long* written);
/// Volume serial number, file id, number of links.
[[nodiscard]] std::tuple<unsigned long, unsigned long long, unsigned long> identity(const wchar_t* path);
[[nodiscard]] std::vector<unsigned char> readAll(const wchar_t* path, unsigned long long limit);
void writeAtomically(const wchar_t* path, std::basic_string_view<unsigned char> bytes);
/// The attributes before.
unsigned long clearReadOnly(const wchar_t* path);
/// Whether the file waits for the restart.
[[nodiscard]] bool deleteForced(const wchar_t* path);
[[nodiscard]] bool isInUse(const wchar_t* path);
[[nodiscard]] std::vector<unsigned long> lockers(const wchar_t* path);
void moveToRecycleBin(const wchar_t* path);
} // namespace files

namespace folders {
void createTree(const wchar_t* path);
void deleteTree(const wchar_t* path, HANDLE cancelEvent);
/// Bytes, files, folders.
[[nodiscard]] std::tuple<unsigned long long, unsigned long long, unsigned long long> size(const wchar_t* path,
                                                                                          HANDLE cancelEvent);
[[nodiscard]] bool isEmpty(const wchar_t* path);
} // namespace folders

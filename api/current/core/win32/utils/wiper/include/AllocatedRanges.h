#pragma once

#include <windows.h>

#include <winioctl.h>

#include <algorithm>
#include <cstdint>
#include <utility>

/// The allocated parts of a file, one after the other: in a sparse file those between its holes; otherwise,
/// and where the system does not tell, the whole file. Allocates no memory.
class AllocatedRanges
{
public:
    AllocatedRanges(HANDLE file, std::uint64_t size, bool isSparse) noexcept
        : m_file(file), m_size(size), m_isSparse(isSparse)
    {
    }

    /// Goes to the next part. False when there is none.
    [[nodiscard]] bool next() noexcept
    {
        m_begin = m_end;
        if (m_begin >= m_size)
            return false;
        FILE_ALLOCATED_RANGE_BUFFER rest{};
        rest.FileOffset.QuadPart = static_cast<LONGLONG>(m_begin);
        rest.Length.QuadPart = static_cast<LONGLONG>(m_size - m_begin);
        FILE_ALLOCATED_RANGE_BUFFER found{};
        DWORD returned = 0;
        m_end = m_size;
        if (!m_isSparse || (!DeviceIoControl(m_file, FSCTL_QUERY_ALLOCATED_RANGES, &rest, sizeof rest, &found,
                                             sizeof found, &returned, nullptr) &&
                            GetLastError() != ERROR_MORE_DATA)) // more follow
            return true;
        if (returned == 0) {
            m_hole = m_size - m_begin;
            return false;
        }
        const auto begin = static_cast<std::uint64_t>(found.FileOffset.QuadPart);
        const std::uint64_t end = begin + static_cast<std::uint64_t>(found.Length.QuadPart);
        m_hole = begin > m_begin ? begin - m_begin : 0;
        m_begin += m_hole;
        m_end = end > m_begin ? std::min(m_size, end) : m_size;
        return true;
    }
    [[nodiscard]] std::uint64_t begin() const noexcept { return m_begin; }
    [[nodiscard]] std::uint64_t end() const noexcept { return m_end; }
    /// The bytes that the last call of `next` skipped; valid once.
    [[nodiscard]] std::uint64_t takeHole() noexcept { return std::exchange(m_hole, 0); }

private:
    HANDLE m_file;
    std::uint64_t m_size;
    bool m_isSparse;
    std::uint64_t m_begin = 0;
    std::uint64_t m_end = 0;
    std::uint64_t m_hole = 0;
};

#pragma once

#include <cstdint>

/// How a scan proceeds. Only bit 0 of a flag counts.
struct ScanOptions
{
    std::uint16_t depth = 1;        ///< folder levels to list; 1 lists only the roots
    std::uint8_t depthGiven = 0;    ///< when clear, the depth is 1
    std::uint8_t reportFiles = 0;   ///< also keep accepted leaves in the path's results
    std::uint8_t reportFolders = 0; ///< also keep accepted containers in the path's results
};

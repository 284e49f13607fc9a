#pragma once

#include <stddef.h>

/// One service. Its texts are in the same buffer.
struct ServiceRecord
{
    const wchar_t* name;
    const wchar_t* displayName;
    unsigned long type;      ///< SERVICE_WIN32_OWN_PROCESS and the like
    unsigned long state;     ///< SERVICE_RUNNING and the like
    unsigned long processId; ///< 0 when it is not running
};

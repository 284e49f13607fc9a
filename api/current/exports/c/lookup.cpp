// The C interface: the lookup client.

#include "core/win32/utils/lookup/api.h"

#include "exports/c/CFrames.h"

std::int32_t sysmaint_lookup_add(void* hvk, const wchar_t* path, std::int32_t priority)
{
    return cframes::status(__func__, [&] { return HVKAddPath(hvk, path, priority); });
}

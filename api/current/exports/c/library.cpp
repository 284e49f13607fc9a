// The C interface: the library's version and the last failure of a thread.

#include "exports/c/CFrames.h"

std::uint32_t sysmaint_version()
{
    return SYSMAINT_VERSION_MAJOR * 1000000U + SYSMAINT_VERSION_MINOR * 1000U + SYSMAINT_VERSION_PATCH;
}

const wchar_t* sysmaint_version_text()
{
    return SYSMAINT_VERSION_TEXT;
}

// Its own failures do not replace what it is asked for.
std::int32_t sysmaint_last_failure(sysmaint_failure* failure)
{
    return boundary::statusFrame([&]() -> long {
        sysmaint_failure found = cframes::given(failure);
        found.code = ERROR_SUCCESS;
        found.function = nullptr;
        const long code = boundary::statusOf([&]() -> long {
            lastfailure::describe(found);
            return ERROR_SUCCESS;
        });
        cframes::store(failure, found);
        return code;
    });
}

// The C interface: folder macros in paths.

#include "core/win32/utils/paths/include/PathValidatorW.h"

#include "core/win32/utils/strings/include/Unicode.h"
#include "exports/c/CFrames.h"

using cframes::requireArguments;
using cframes::status;

namespace {
/// The path with its macros expanded. Raises 1168 when there are none.
std::wstring expand(std::wstring_view path)
{
    std::wstring expanded;
    if (!PathValidatorW::expand(path, expanded))
        raiseCode(ERROR_NOT_FOUND);
    return expanded;
}
} // namespace

std::int32_t sysmaint_path_expand(const wchar_t* path, wchar_t** expanded)
{
    return status(__func__, [&] {
        requireArguments(path != nullptr && expanded != nullptr);
        *expanded = cframes::copyText(expand(path).c_str());
    });
}

std::int32_t sysmaint_path_expand_utf8(const char* path, char** expanded)
{
    return status(__func__, [&] {
        requireArguments(path != nullptr && expanded != nullptr);
        *expanded = cframes::copyText(unicode::utf8FromWide(expand(unicode::wideFromUtf8(path))).c_str());
    });
}

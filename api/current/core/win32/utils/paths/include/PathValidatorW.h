#pragma once

#include <string>
#include <string_view>

#include "win32/paths/include/IPathValidatorW.h"

/// The one expander of the process. Stateless: the value of a macro may change at run time.
class PathValidatorW final : public IPathValidatorW
{
public:
    static PathValidatorW& getInstance() noexcept;

    long validate(wchar_t* path, unsigned long capacity, unsigned long* needed) override;

    /// Replaces every known macro; returns false when there was none. Raises the system's code.
    static bool expand(std::wstring_view path, std::wstring& expanded);

private:
    PathValidatorW() noexcept = default;
};

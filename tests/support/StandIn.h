#pragma once

#include "support/Process.h"

/// A library of the system's for a scope: a stand-in for it from beside the tests, or none.
struct StandIn
{
    StandIn(const wchar_t* library, const wchar_t* file, bool isThere = true) : exists(isThere)
    {
        m_loads.setHook([=, this](auto load, LPCWSTR name, HANDLE reserved, DWORD flags) -> HMODULE {
            EXPECT_EQ(flags, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32}) << name;
            if (std::wstring_view(name) != library)
                return load(name, reserved, flags);
            SetLastError(ERROR_MOD_NOT_FOUND);
            return exists ? LoadLibraryW(besideTests(file).c_str()) : nullptr;
        });
    }

    bool exists;

private:
    Replaced<"LoadLibraryExW", decltype(&LoadLibraryExW)> m_loads;
};

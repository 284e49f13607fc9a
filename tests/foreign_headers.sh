#!/usr/bin/env bash
# The public headers as other compilers read them: the C header as C and C++ of all versions, also for the Visual Studio
# ABI, with Microsoft's rules and without any library; the C++ headers without what only GNU compilers take. tests/foreign_headers.sh
# Visual Studio's rules cannot be applied to the C++ headers: they need its own standard library.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
strict=(-fsyntax-only -Wall -Wextra -pedantic -Werror -Iapi/current)
for language in 'c -std=c99' 'c -std=c17' 'c++ -std=c++98' 'c++ -std=c++11' 'c++ -std=c++20'; do
    echo '#include <c/sysmaint.h>' |
        clang --target=x86_64-pc-windows-msvc -fms-compatibility -fms-extensions "${strict[@]}" -x $language -
    echo '#include <c/sysmaint.h>' | x86_64-w64-mingw32-gcc "${strict[@]}" -x $language -
done
compiler=$(dirname "$(x86_64-w64-mingw32-g++-posix -print-libgcc-file-name)")
{ find api/current/core -name api.h && find api/current/win32 -name '*.h'; } | sed 's,^api/current/\(.*\),#include "\1",' |
    clang++ --target=x86_64-w64-mingw32 -femulated-tls "${strict[@]}" -Wgnu -std=c++20 -isystem "$compiler/include/c++" \
        -isystem "$compiler/include/c++/x86_64-w64-mingw32" -x c++ -

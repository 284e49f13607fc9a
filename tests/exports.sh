#!/usr/bin/env bash
# The library exports what the lists in tests/exports name, one for each file in exports/ and
# exports/c/, and nothing else:
#   tests/exports.sh SYSMAINT.DLL [--renew]
# With --renew the lists are rewritten from what the objects beside the library define.
set -euo pipefail
lists=$(dirname "${BASH_SOURCE[0]}")/exports
exports() {
    x86_64-w64-mingw32-objdump -p "$1" | sed -n '/Ordinal.Name Pointer. Table/,/^$/s/^\s*\[ *[0-9]*\] \(+base\[ *[0-9]*\] *[0-9a-f]* *\)\?//p' |
        x86_64-w64-mingw32-c++filt | LC_ALL=C sort
}
if [ "${2:-}" = --renew ]; then
    rm -f "$lists"/*.txt
    objects=$(dirname "$1")/../CMakeFiles/sysmaint_core.dir/api/current/exports
    for object in "$objects"/*.cpp.obj "$objects"/c/*.cpp.obj; do
        module=$(realpath --relative-to="$objects" "$object")
        module=${module%.cpp.obj}
        module=${module/\//-} # those of the C interface are c-...
        x86_64-w64-mingw32-nm -C --defined-only --extern-only "$object" | sed 's/^[0-9a-f]* T //;t;d' |
            LC_ALL=C sort | LC_ALL=C comm -12 - <(exports "$1") >"$lists/$module.txt"
        [ -s "$lists/$module.txt" ] || rm "$lists/$module.txt"
    done
fi
diff <(cat "$lists"/*.txt | LC_ALL=C sort) <(exports "$1") || {
    echo "If that is meant: tests/exports.sh $1 --renew"
    exit 1
}

#!/usr/bin/env bash
# The library exports what the lists in tests/exports name, one for each file in exports/ and
# exports/c/, and nothing else:
#   tests/exports.sh SYSMAINT.DLL [--renew]
# The import libraries offer the same: libsysmaint.dll.a all of it, sysmaint.def and sysmaint.lib the C names. They are in
# the folder lib beside the DLL's. With --renew the lists are rewritten from what the objects beside the library define.
set -euo pipefail
lists=$(dirname "${BASH_SOURCE[0]}")/exports
decorated() {
    x86_64-w64-mingw32-objdump -p "$1" | sed -n '/Ordinal.Name Pointer. Table/,/^$/s/^\s*\[ *[0-9]*\] \(+base\[ *[0-9]*\] *[0-9a-f]* *\)\?//p' | LC_ALL=C sort
}
exports() { decorated "$1" | x86_64-w64-mingw32-c++filt | LC_ALL=C sort; }
offered() { x86_64-w64-mingw32-nm "$1" | sed -n 's/^[0-9a-f]* T \([^.]\)/\1/p' | LC_ALL=C sort; }
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
libraries=$(dirname "$1")/../lib
c_names=$(decorated "$1" | grep -v '^_Z')
[ "$(wc -l <<<"$c_names")" -gt 100 ] || { echo 'hardly any C names'; exit 1; }
diff <(decorated "$1") <(offered "$libraries/libsysmaint.dll.a")
diff <(echo "$c_names") <(sed -n 's/^    //p' "$libraries/sysmaint.def" | LC_ALL=C sort)
diff <(echo "$c_names") <(offered "$libraries/sysmaint.lib")

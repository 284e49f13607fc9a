#!/usr/bin/env bash
# The library exports what tests/exports.txt lists, and nothing else: tests/exports.sh SYSMAINT.DLL [--renew]
set -euo pipefail
list=$(dirname "${BASH_SOURCE[0]}")/exports.txt
exports() {
    x86_64-w64-mingw32-objdump -p "$1" | sed -n '/Ordinal.Name Pointer. Table/,/^$/s/^\s*\[ *[0-9]*\] \(+base\[ *[0-9]*\] *[0-9a-f]* *\)\?//p' |
        x86_64-w64-mingw32-c++filt | LC_ALL=C sort
}
if [ "${2:-}" = --renew ]; then
    exports "$1" >"$list"
else
    diff "$list" <(exports "$1") || { echo "If that is meant: tests/exports.sh $1 --renew"; exit 1; }
fi

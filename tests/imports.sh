#!/usr/bin/env bash
# The products need libraries of the system only: tests/imports.sh FILE...
set -euo pipefail
system='^(kernel32|advapi32|msvcrt|ntdll)\.dll$' # and none that brings a user interface along
failed=0
for file in "$@"; do
    mapfile -t libraries < <(x86_64-w64-mingw32-objdump -p "$file" | sed -n 's/.*DLL Name: //p' | tr 'A-Z' 'a-z')
    [ "${#libraries[@]}" -gt 0 ] || { echo "$file: no imports at all?"; failed=1; }
    for library in "${libraries[@]}"; do
        if ! [[ $library =~ $system ]] && ! [[ $file == *.exe && $library == sysmaint.dll ]]; then
            echo "$file needs $library"
            failed=1
        fi
    done
done
exit "$failed"

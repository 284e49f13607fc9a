#!/usr/bin/env bash
# The products need only the system's libraries, and programs have the right marks: tests/imports.sh FILE...
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
    [[ $file == *.exe ]] || continue
    # A program declares which systems, paths and servers it supports.
    x86_64-w64-mingw32-objdump -p "$file" | grep TERMINAL_SERVICE_AWARE >/dev/null || { echo "$file is not for terminal servers"; failed=1; }
    for mark in asInvoker 8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a '>true</longPathAware>'; do
        grep -qa -- "$mark" "$file" || { echo "$file has no manifest with $mark"; failed=1; }
    done
done
exit "$failed"

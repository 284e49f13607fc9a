#!/usr/bin/env bash
# Checks that the system can start the boot-time program before anything else:
#   tests/boot_image.sh SYSMAINT-BOOT.EXE
set -uo pipefail
image=$(x86_64-w64-mingw32-objdump -p "$1")
failed=0
expect() { grep -qE "$1" <<<"$image" || { echo "$2"; failed=1; }; }
expect '^Subsystem\s+0*1\s' 'its subsystem is not native'
expect 'Thread Storage Directory' 'its directories cannot be read'
expect '^Entry 9 0+ 0+ Thread Storage Directory' 'it has thread-local storage'
[ "$(grep -o 'DLL Name: .*' <<<"$image" | tr -d '\r' | sort -u)" = 'DLL Name: ntdll.dll' ] || { echo 'it needs more than ntdll.dll'; failed=1; }
# Only what the oldest supported system has: nothing of the runtime that ntdll.dll has on some systems.
wrong=$(sed -n '/DLL Name: ntdll/,/^$/p' <<<"$image" | grep -oE '[A-Za-z_]\w+\s*$' | grep -vE '^(dll|To|Nt[A-Z]\w+|Rtl[A-Z]\w+)\s*$')
[ -z "$wrong" ] || { echo "it imports $wrong"; failed=1; }
exit "$failed"

#!/usr/bin/env bash
# A program for the Visual Studio ABI, linked by lld-link with sysmaint.lib, uses the library:
#   tests/msvc_abi.sh SYSMAINT.DLL RUNNER FOLDER
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
rm -rf "$3"
mkdir -p "$3/files"
cd "$3"
touch files/a.tmp files/b.tmp files/c.log
IFS=. read -r major minor patch < <(sed -n 's/^project(sysmaint VERSION \([0-9.]*\).*/\1/p' "$here/../CMakeLists.txt")
clang --target=x86_64-pc-windows-msvc -ffreestanding -O1 -Wall -Wextra -Werror \
    "-DVERSION=$((major * 1000000 + minor * 1000 + patch))" -c "$here/msvc_abi/main.c" -o main.obj
# What it needs of the system, as Visual Studio's own library would have it.
printf 'LIBRARY kernel32.dll\nEXPORTS\n    CreateEventW\n    SetEvent\n    ExitProcess\n' >kernel32.def
llvm-dlltool -m i386:x86-64 -d kernel32.def -l kernel32.lib
lld-link /nologo /nodefaultlib /subsystem:console /entry:start /out:files/msvc_abi.exe main.obj kernel32.lib \
    "$(dirname "$1")/../lib/sysmaint.lib"
mv files/msvc_abi.exe . && cp "$1" .
cd files
"$2" ../msvc_abi.exe || { echo "$here/msvc_abi/main.c:$?: the first expectation that failed"; exit 1; }

#!/usr/bin/env bash
# The library inside other projects, each configured, built and run: unpacked from the zip, found by CMake and by
# pkg-config, from C++ and C; and from its sources, by add_subdirectory and by FetchContent.
#   tests/consumer.sh BUILD TOOLCHAIN RUNNER FOLDER
# BUILD is a build of the library. FOLDER lies beside it, where ccache has what the products compiled, and has a blank
# in its name, as folders of users do.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$1 toolchain=$2 runner=$3 work=$4
version=$(sed -n 's/^project(sysmaint VERSION \([0-9.]*\).*/\1/p' "$here/../CMakeLists.txt")
zip=sysmaint-$version-win64
prefix=$work/elsewhere/$zip
rm -rf "$work" "$work"-*
mkdir -p "$work/elsewhere"
if [ -z "${CMAKE_CXX_COMPILER_LAUNCHER:-}" ] && command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=locale,time_macros
    CCACHE_BASEDIR=$(cd "$here/.." && pwd)
    export CCACHE_BASEDIR
fi
# configure NAME SOURCE ARGUMENT...
configure() {
    local name=$1 source=$2
    shift 2
    cmake -G Ninja -S "$source" -B "$work-$name" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
        -DVERSION="$version" -DSYSMAINT="$here/.." --no-warn-unused-cli "$@" >"$work-$name.log"
}
project() {
    configure "$@"
    cmake --build "$work-$1" -j 2 >>"$work-$1.log" || { cat "$work-$1.log"; return 1; }
}
run() { (cd "$(dirname "$1")" && WINEPATH="Z:${prefix//\//\\}\\bin" "$runner" "$1") || { echo "$1: $?"; return 1; }; }

# What is installed, and the zip, which has the same files. From here on only what the zip had is used, elsewhere.
cmake --install "$build" --prefix "$work/prefix" >/dev/null
(cd "$work" && cpack --config "$build/CPackConfig.cmake" >/dev/null)
(cd "$work/elsewhere" && cmake -E tar xf "$work/$zip.zip")
diff -r "$work/prefix" "$prefix"
rm -r "$work/prefix"
for file in bin/sysmaint.{dll,exe} bin/sysmaint-boot.exe lib/libsysmaint.dll.a lib/sysmaint.{lib,def} \
    include/sysmaint/c/sysmaint.h share/doc/sysmaint/{README.md,LICENSE,docs/guide/README.md}; do
    [ -s "$prefix/$file" ] || { echo "$file is not installed"; exit 1; }
done
find "$prefix/include" -name '*.cpp' | grep . && { echo 'sources are installed'; exit 1; }
"$runner" "$prefix/bin/sysmaint.exe" --version | grep -F "sysmaint $version" >/dev/null

project package "$here/consumer" -DWAY=package -DCMAKE_PREFIX_PATH="$prefix"
run "$work-package/consumer.exe"
run "$work-package/old_consumer.exe"
project c "$here/consumer/c" -DCMAKE_PREFIX_PATH="$prefix"
run "$work-c/c_consumer.exe"
configure msvc "$here/consumer/msvc" -DCMAKE_PREFIX_PATH="$prefix"
readarray -t flags < <(PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig pkg-config --cflags --libs sysmaint | xargs -n 1)
mkdir -p "$work-pkgconfig"
x86_64-w64-mingw32-gcc -std=c99 -pedantic -Wall -Wextra -Werror "-DVERSION=L\"$version\"" "$here/consumer/c/main.c" \
    -o "$work-pkgconfig/consumer.exe" "${flags[@]}"
run "$work-pkgconfig/consumer.exe"

# From the sources, with the flags of the products, so that ccache has the library; without being asked for, no warning
# of the library's stops a build.
configure subdirectory "$here/consumer" -DWAY=subdirectory -DSYSMAINT_TESTS=ON
grep -e -Werror "$work-subdirectory/compile_commands.json" && { echo 'warnings stop the build of users'; exit 1; }
for way in subdirectory fetch; do
    project $way "$here/consumer" -DWAY=$way -DSYSMAINT_WARNINGS_AS_ERRORS=ON
    run "$work-$way/consumer.exe"
    run "$work-$way/old_consumer.exe"
done
compiled=$(grep '"command".* CMakeFiles/consumer.dir/' "$work-subdirectory/compile_commands.json")
sed 's, -DNDEBUG,,' <<<"$compiled" | grep -e ' -W' -e ' -D' && { echo 'flags leak'; exit 1; }
exit 0

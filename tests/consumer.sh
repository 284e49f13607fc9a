#!/usr/bin/env bash
# Another project includes the library with add_subdirectory: tests/consumer.sh TOOLCHAIN FOLDER Its own
# source is compiled as far as that goes without the library's.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cmake --fresh -G Ninja -S "$here/consumer" -B "$2" -DSYSMAINT="$here/.." -DSYSMAINT_TESTS=ON \
    -DCMAKE_TOOLCHAIN_FILE="$1" >/dev/null
ninja -C "$2" CMakeFiles/consumer.dir/main.cpp.obj

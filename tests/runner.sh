#!/usr/bin/env bash
# The runner of the tests takes no program for one that has passed but those that have: tests/runner.sh RUNNER ENDINGS.EXE
set -uo pipefail
run() { "$1" "$2" --gtest_filter="Endings.$3" "${@:4}" >/dev/null 2>&1 </dev/null; }
run "$1" "$2" Passes || { echo 'a test that passes is refused'; exit 1; }
failed=0
for ending in Fails IsSkipped Crashes Throws Aborts Exits CrashesAfterThem; do
    run "$1" "$2" "Passes:Endings.$ending" && { echo "$ending: taken for passed"; failed=1; }
done
run "$1" "$2" Passes end-early && { echo 'an end before the report: taken for passed'; failed=1; }
run "$1" "$2" NoSuchTest && { echo 'no test at all: taken for passed'; failed=1; }
exit "$failed"

#!/usr/bin/env bash
# The test runner only accepts programs that have really passed: tests/runner.sh RUNNER ENDINGS.EXE
set -uo pipefail
run() { "$@" >/dev/null 2>&1 </dev/null; }
run "$1" "$2" Passes || { echo 'a test that passes is refused'; exit 1; }
failed=0
for ending in Fails IsSkipped Crashes Throws Aborts Exits ExitsBeforeTheReport CrashesAfterIt Hangs; do
    run "$1" "$2" "$ending" && { echo "$ending: taken for passed"; failed=1; }
done
run "$1" "$2" Passes --gtest_filter=NoSuchTest && { echo 'no test at all: taken for passed'; failed=1; }
where=$("$1" "$2" Hangs 2>/dev/null | tr -d '\n')
[[ $where == *HUNG*Endings.IsTheOneAskedFor*thread*kernelbase*program+* ]] || { echo 'a hang does not say where'; failed=1; }
outside=/usr/sysmaint-outside
run "$1" cmd /c "echo x > Z:${outside//\//\\}"
[ ! -e "$outside" ] || { echo "a program wrote $outside"; rm "$outside"; failed=1; }
run "$1" cmd /c "echo x > Z:\\tmp\\sysmaint-inside" && rm /tmp/sysmaint-inside || { echo 'no program can write'; failed=1; }
exit "$failed"

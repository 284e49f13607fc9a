#!/usr/bin/env bash
# The console program as a user meets it: tests/host.sh SYSMAINT.EXE RUNNER
set -uo pipefail
host=$1
runner=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() { printf 'FAILED %s\n' "$*"; failures=$((failures + 1)); }
# run CODE ARGUMENT...: runs the host, leaves its output in $work/out and $work/err
run() {
    local expected=$1 actual=0
    shift
    "$runner" "$host" "$@" >"$work/out" 2>"$work/err" </dev/null || actual=$?
    [ "$actual" -eq "$expected" ] || fail "exit code $actual, not $expected: $*: $(cat "$work/err")"
}
says() { grep -qF -- "$2" "$work/$1" || fail "$1 lacks '$2': $(head -c 500 "$work/$1")"; }
windows_path() { printf 'Z:%s' "${1//\//\\}"; }

tree=$work/tree
mkdir -p "$tree/inner/deep"
printf 12345 >"$tree/a.tmp"
printf 123 >"$tree/inner/b.log"
printf 1 >"$tree/inner/deep/größe €.tmp"
printf x >"$tree/keep.tmp"
folder=$(windows_path "$tree")

# Wrong arguments: 2, with a hint, and nothing on standard output.
run 2
run 2 frobnicate && says err 'unknown command frobnicate'
run 2 scan && says err 'which folder or key?'
run 2 scan "$folder" --depth && says err '--depth needs a value'
for depth in 0 65536 3x '' -1 99999999999; do run 2 scan "$folder" --depth "$depth" && says err 'number from 1 to 65535'; done
run 2 scan "$folder" --filter 'x:01' && says err 'three digits'
run 2 scan "$folder" --json --json && says err 'given twice'
[ -s "$work/out" ] && fail 'usage errors write to standard output'
run 0 --help && says out 'scan'
run 0 scan --help && says out 'example:'

# What is there is listed, folders before their content, with the counts at the end.
run 0 scan "$folder"
says err 'found 4 files, 2 folders, 10 bytes'
says out "$folder\\inner\\deep\\größe €.tmp"
[ "$(wc -l <"$work/out")" -eq 6 ] || fail "not 6 lines: $(cat "$work/out")"
run 0 scan "$folder" --depth 1 && says err 'found 2 files, 1 folders'
[ "$(wc -l <"$work/out")" -eq 3 ] || fail "depth 1: $(cat "$work/out")"
run 0 scan "$folder" --filter '*.tmp' --ignore 'keep:111' && says err 'found 2 files, 2 folders, 6 bytes'
run 0 scan "$folder" --json
python3 - "$work/out" "$folder" <<'PYTHON' || fail 'the JSON is not what it should be'
import json, sys
lines = [json.loads(line) for line in open(sys.argv[1], encoding='utf-8')]
paths = {line['path']: line.get('bytes') for line in lines[:-1]}
assert paths[sys.argv[2] + '\\inner\\deep\\größe €.tmp'] == 1, paths
assert lines[-1] == {'type': 'summary', 'files': 4, 'folders': 2, 'bytes': 10, 'code': 0}, lines[-1]
PYTHON
TEMPTREE=$folder run 0 scan '%temptree%\inner' --expand && says err 'found 2 files, 1 folders'

# Registry keys, by long and short names; data that is not for a terminal is made so.
run 2 scan 'HKCU\Software' --view 16 && says err '--view takes 32 or 64'
key='HKCU\Software\sysmaint-host-test'
"$runner" reg add "$key\\inner" /v number /t REG_DWORD /d 42 /f >/dev/null
"$runner" reg add "$key" /v text /d 'some text' /f >/dev/null
"$runner" reg add "$key\\long" /v text /t REG_SZ /d "x$(printf '😀%.0s' {1..40})" /f >/dev/null
run 0 scan "$key\\long" && says out '😀"...'
grep -q $'\xef\xbf\xbd' "$work/out" && fail 'half a character is shown'
"$runner" reg delete "$key\\long" /f >/dev/null
run 0 scan "$key" && says err '1 keys, 2 values'
says out 'HKEY_CURRENT_USER\Software\sysmaint-host-test\text = REG_SZ "some text"'
says out 'sysmaint-host-test\inner\number = REG_DWORD 42'
run 0 scan 'hkey_current_user\software\SYSMAINT-host-test' --json --filter 'num*' && says out '"valueType":"REG_DWORD","data":"42"'
grep -q 'some text' "$work/out" && fail 'the filter let a value through'
run 0 scan 'HKLM\Software\Microsoft' --view 64 --depth 1
"$runner" reg delete "$key" /f >/dev/null
run 1 scan "$key" && says err '(2)'

# A root that is not there fails and does not hold up the others.
run 1 scan "$folder\\missing" "$folder" && says err '(3)' && says err 'found 4 files'

# Wiping: refuses what nobody may mean, asks or wants --yes, and says truthfully what it did.
for refused in 'C:\' 'C:' 'C:\windows' 'C:\WINDOWS\system32\kernel32.dll' '\\?\C:\windows'; do
    run 2 wipe file "$refused" --yes
    run 2 wipe tree "$refused" --yes
done
# By other names too: through a link, or as what another drive shows.
prefix=${WINEPREFIX:-$(dirname "${BASH_SOURCE[0]}")/../build/wineprefix-tests}
windows=$(cd "$prefix/drive_c/windows" && pwd -P)
ln -s "$windows" "$tree/link"
for refused in "$folder\\link\\system32" "Z:${windows//\//\\}" 'c:/windows/.'; do
    run 2 wipe tree "$refused" --yes && says err 'is the Windows folder, leads to it or is in it'
done
ln -sfn "$tree/inner" "$tree/link"
"$runner" "$host" wipe tree "$folder\\link" --yes 2>/dev/null # the platform cannot remove such a link
[ -e "$tree/inner/b.log" ] || fail 'the link was followed'
rm "$tree/link"
# The very name that was given: Win32 takes each of these for the other.
mkdir -p "$tree/dot" "$tree/dot."
printf 1 >"$tree/dot/report"
printf 1 >"$tree/dot./report."
run 0 wipe file "$folder\\dot.\\report." --yes && says err 'wiped 1 file'
run 0 wipe tree "$folder\\dot." --yes
[ -e "$tree/dot/report" ] && [ ! -e "$tree/dot." ] || fail "another name was wiped: $(find "$tree")"
run 0 wipe tree "$folder\\inner\\..\\dot" --yes && says err 'wiped 1 file'
run 2 wipe tree "$folder\\a.tmp" --yes && says err 'say file'
run 2 wipe volume C: --yes && says err 'Windows is on C:'
run 2 wipe tree "$folder" && says err '--yes'
run 2 wipe file "$folder" --yes && says err 'say tree'
run 2 wipe file "$folder\\a.tmp" --method ones --yes
run 2 wipe free "$folder" --yes
[ "$(find "$tree" -type f | wc -l)" -eq 4 ] || fail 'something was wiped that was refused'
run 1 wipe file "$folder\\a.tmp" "$folder\\missing" --yes && says err 'wiped 1 file, 5 bytes written, 1 failed, 0 wait'
[ -e "$tree/a.tmp" ] && fail 'a.tmp is still there'
run 0 wipe tree "$folder" --yes --filter '*.tmp' --ignore 'keep:111' --method gutmann --passes 2
says err 'wiped 1 file, 2 bytes written, 0 failed'
[ "$(cd "$tree" && find . | sort | tr '\n' ' ')" = './inner ./inner/b.log ./inner/deep ./keep.tmp ' ] ||
    [ "$(cd "$tree" && find . | sort | tr '\n' ' ')" = '. ./inner ./inner/b.log ./inner/deep ./keep.tmp ' ] ||
    fail "filters: $(find "$tree")"
run 0 wipe tree "$folder" --yes && says err 'wiped 2 files'
[ -e "$tree" ] && fail 'the tree is still there'

# The boot-time list and the log.
run 2 boot
run 2 boot add
run 1 boot add 'x' && says err '(2)' # this prefix has no such value
run 0 boot list
run 2 log 'Disk Cleaner'
log=$(dirname "$host")/logs/$(id -un)/ZDC.log
rm -f "$log"
run 0 log 'disk cleaner' 'removed 12 files'
tr -d '\0' <"$log" | grep -q 'disk cleaner:  removed 12 files' || fail 'the log lacks the line'

# Ctrl+C ends it cleanly and says what was found so far.
mkfifo "$work/pipe"
"$runner" "$host" scan 'Z:\usr' >"$work/pipe" 2>"$work/err" </dev/null &
job=$!
read -r first <"$work/pipe" & # the scan has begun; its pipe stays open below
exec 7<"$work/pipe"
wait $!
kill -INT "$job"
cat <&7 >/dev/null
actual=0
wait "$job" || actual=$?
[ "$actual" -eq 130 ] || fail "Ctrl+C: exit code $actual"
says err 'cancelled; found so far: '

[ "$failures" -eq 0 ] && echo 'host: all as expected'
exit "$((failures != 0))"

#!/usr/bin/env bash
# The console program as a user meets it: tests/host.sh SYSMAINT.EXE RUNNER SEND_CONTROL.EXE
set -uo pipefail
host=$1
runner=$2
control=$3
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() { printf 'FAILED %s\n' "$*"; failures=$((failures + 1)); }
# run CODE ARGUMENT...: runs the host, leaves its output in $work/out and $work/err
run() {
    local expected=$1 actual=0
    shift
    "$runner" "$host" "$@" >"$work/out" 2>"$work/err" </dev/null || actual=$?
    # Wine's server was about to end: the program has not started.
    if grep -q '^wine client error:0: ' "$work/err"; then
        actual=0
        "$runner" "$host" "$@" >"$work/out" 2>"$work/err" </dev/null || actual=$?
    fi
    [ "$actual" -eq "$expected" ] || fail "exit code $actual, not $expected: $*: $(cat "$work/err")"
}
says() { grep -qF -- "$2" "$work/$1" || fail "$1 lacks '$2': $(head -c 500 "$work/$1")"; }
# interrupt ID: Ctrl+C for the program that runs under this runner; the sandbox around it would not pass it on.
interrupt() {
    local id=$1 child
    while child=$(pgrep -oP "$id"); do id=$child; done
    kill -INT "$id"
}
windows_path() { printf 'Z:%s' "${1//\//\\}"; }

tree=$work/tree
mkdir -p "$tree/inner/deep"
printf 12345 >"$tree/a.tmp"
printf 123 >"$tree/inner/b.log"
printf 1 >"$tree/inner/deep/größe €.tmp"
printf x >"$tree/keep.tmp"
folder=$(windows_path "$tree")

# A lookup: a server of another language that answers each hash with its first byte.
python3 -u "$here/support/lookup_server" >"$work/port" &
lookup_server=$!
until [ -s "$work/port" ]; do sleep 0.1; done
server=127.0.0.1:$(cat "$work/port")
run 0 lookup "$folder" --server "$server" && says out "$(printf '140\t%s\\a.tmp' "$folder")" && says err '4 of 4 files answered'
run 0 lookup "$folder\\a.tmp" --server "$server" --json && says out '"status":140}'
run 1 lookup "$folder\\missing" "$folder\\a.tmp" --server "$server" && says err 'missing: ' && says out '140'
run 0 lookup "$folder\\a.tmp" "$folder\\inner\\..\\A.TMP" "\\\\?\\$folder\\a.tmp" "$folder" --server "$server" && says err '4 of 4 files answered'
[ "$(grep -c 'a\.tmp\|A\.TMP' "$work/out")" -eq 1 ] || fail "a file named four times: $(cat "$work/out")"
kill "$lookup_server"
wait "$lookup_server" 2>/dev/null || true
# Ctrl+C while the server is silent: what it answered before, at most 255 files, stays.
mkdir "$work/many"
for number in {1..300}; do echo "$number" >"$work/many/$number"; done
python3 -u "$here/support/lookup_server" 1 >"$work/port2" &
lookup_server=$!
until [ -s "$work/port2" ]; do sleep 0.1; done
"$runner" "$host" lookup "$(windows_path "$work/many")" --server "127.0.0.1:$(cat "$work/port2")" >"$work/looked" 2>"$work/err" </dev/null &
job=$!
for _ in {1..300}; do [ -s "$work/looked" ] && break; sleep 0.1; done
interrupt "$job"
actual=0
wait "$job" || actual=$?
[ "$actual" -eq 130 ] || fail "lookup and Ctrl+C: exit code $actual: $(cat "$work/err")"
answered=$(grep -c "$(printf '\t')" "$work/looked")
[ "$answered" -ge 1 ] && [ "$answered" -le 255 ] && grep -q "cancelled; $answered of [0-9]* files answered" "$work/err" ||
    fail "lookup and Ctrl+C: $answered answers: $(cat "$work/err")"
kill "$lookup_server"
wait "$lookup_server" 2>/dev/null || true
run 1 lookup "$folder\\a.tmp" --server "$server" && says err '10061'
run 2 lookup "$folder" && says err 'which server?'
run 2 lookup --server h && says err 'which file or folder?'
for server in h:0 h:65536 h:x '[::1]:' ''; do run 2 lookup "$folder" --server "$server"; done

# Messages between two shells: a listener that answers, texts from the command line and from a pipe.
"$runner" "$host" topic listen 'sysmaint host' --count 5 --reply 'got "it"' --json >"$work/heard" 2>/dev/null </dev/null &
listener=$!
run 0 topic send 'sysmaint host' 'größe €' two --timeout 60 && says out 'got "it"'
printf 'three\r\nno\0\nno\xff\nfo\032ur\r\r\n' | "$runner" "$host" topic send 'sysmaint host' --json >"$work/out" 2>"$work/err" && fail 'topic send: not UTF-8'
says out '{"text":"got \"it\""}' && says err 'topic: line 2: No Unicode translation (1113)' && says err 'line 3: No Unicode'
run 0 topic send 'sysmaint host' last
wait "$listener" || fail "topic listen: $?"
printf '{"text":"%s"}\n' 'größe €' two three 'fo\u001aur\u000d' last | diff - <(tr -d '\r' <"$work/heard") || fail 'topic listen: other texts'
# Until Ctrl+C, and until nobody reads any more: then the sender is told, too.
ends() { local actual=0; wait "$2" || actual=$?; [ "$actual" -eq "$1" ] || fail "topic listen: exit code $actual, not $1"; }
"$runner" "$host" topic listen 'sysmaint host' >"$work/heard" 2>/dev/null </dev/null &
run 0 topic send 'sysmaint host' text --timeout 60
interrupt "$!"
ends 130 "$!"
[ "$(tr -d '\r' <"$work/heard")" = text ] || fail "topic listen: $(cat "$work/heard")"
"$runner" "$host" topic listen 'sysmaint host' > >(head -n 1 >"$work/heard") 2>"$work/end" </dev/null &
run 0 topic send 'sysmaint host' one --timeout 60
run 1 topic send 'sysmaint host' two && says err 'topic: two: '
ends 1 "$!"
says end 'could not be written'
begun=$(date +%s%3N)
run 1 topic send 'sysmaint host' text --timeout 1 && says err 'topic: text: nobody listens on "sysmaint host" (2)'
[ "$(($(date +%s%3N) - begun))" -ge 1000 ] || fail 'topic send did not wait'
run 2 topic && says err 'listen or send?'
run 2 topic send && says err 'which name?'
run 2 topic listen 'a\b' && says err 'no backslash'
run 2 topic listen a --timeout 1 && says err 'listen takes'
run 2 topic send a text --count 1 && says err 'send takes'
# FTP: folders on servers of another language.
mkfifo "$work/lifeline"
"$here/support/ftp_servers" real - <"$work/lifeline" >"$work/ftp" &
ftp_servers=$!
exec 9>"$work/lifeline"
until grep -qsx '' "$work/ftp" || ! kill -0 "$ftp_servers" 2>/dev/null; do sleep 0.1; done
ftp=127.0.0.1:$(sed -n 's/^port vsftpd //p' "$work/ftp")
run 0 scan "ftp://$ftp" --depth 1 && says out "ftp://$ftp/ ordner ä 1/" && says out "ftp://$ftp/a file 1" && says err 'found 3 files, 4 folders'
run 0 scan "ftp://$ftp/folder" --depth 1 --json && says out "{\"type\":\"file\",\"path\":\"ftp://$ftp/folder/a file 2\",\"bytes\":2}"
ftp=127.0.0.1:$(sed -n 's/^port pyftpdlib //p' "$work/ftp")
SYSMAINT_FTP_PASSWORD=secret run 0 scan "ftp://user@$ftp" --depth 1 && says err 'found 3 files, 4 folders'
SYSMAINT_FTP_PASSWORD=wrong run 1 scan "ftp://user@$ftp" && says err '(1326)'
SYSMAINT_FTP_PASSWORD=secret run 2 scan "ftp://user@$ftp" 'ftp://user@localhost' && says err 'for one account'
run 2 scan "ftps://$ftp" && says err 'only those with ftp://'
run 2 scan "ftp://user@$ftp" && says err 'nobody to ask for the password'
run 2 scan "ftp://user:secret@$ftp" && says err 'SYSMAINT_FTP_PASSWORD'
for address in 'ftp://' 'ftp://h:0' 'ftp://h:x/' 'ftp:///x' 'ftp://[::1/' 'ftp://::1/'; do run 2 scan "$address"; done
exec 9>&-
wait "$ftp_servers"
run 1 scan "ftp://$ftp" && says err '(10061)'
# Hive files created by another program.
"$here/native/hives" seeds "$work/hives"
hive=$work/hives/seed5
hive_path=$(windows_path "$hive")
cp "$hive" "$work/before"
same() { cmp -s "$hive" "$work/before" || fail "the hive has changed: $*"; }
run 0 hive show "$hive_path" && says out '\日本' && says out 'vÄ  REG_DWORD  875770417' && says out '(default)  REG_SZ'
run 0 hive show "$hive_path" Ä --json && python3 -c '
import json, sys
lines = [json.loads(line) for line in open(sys.argv[1], encoding="utf-8")]
assert [line["path"] for line in lines if line["type"] == "key"] == ["Ä", "Ä\\below"], lines
assert {line["name"]: line["data"] for line in lines if line["type"] == "value"}["vÄ"] == 875770417, lines' "$work/out" ||
    fail "the JSON of a hive: $(cat "$work/out")"
run 1 hive show "$hive_path" none && says err '(2)'
run 0 hive get "$hive_path" B vb && says out 'vb  REG_DWORD  875770417'
run 1 hive get "$hive_path" b none && says err 'no such key or value (2)'
run 2 hive set "$hive_path" b vb 5 --type dword && same 'nobody was asked'
run 2 hive set "$hive_path" b new 5x --type dword && same 'no number'
run 2 hive delete "$hive_path" b && same 'nobody was asked'
run 1 hive delete "$hive_path" '\' --yes && says err '(50)' && ! grep -q deletes "$work/err" && same 'the root' ||
    fail 'the deletion of the root was announced'
run 0 hive set "$hive_path" b vb 0xFF --type dword --yes
run 0 hive set "$hive_path" 'new\key' list eins zwei --type multi
run 0 hive set "$hive_path" '\' --default 'größe €'
run 0 hive delete "$hive_path" Ä --yes
run 0 hive show "$hive_path" && says out 'vb  REG_DWORD  255' && says out 'list  REG_MULTI_SZ  "eins|zwei"' &&
    says out '(default)  REG_SZ  "größe €"' && ! grep -q 'Ä' "$work/out" || fail "the changed hive: $(cat "$work/out")"
for key in 'new\key' '\new\key' 'new\key\' '\new\key\'; do
    run 0 hive show "$hive_path" "$key" && run 0 hive get "$hive_path" "$key" list &&
        run 0 hive set "$hive_path" "$key" list eins zwei --type multi --yes
done
run 0 hive set "$hive_path" 'hidden\Qx\deep' v x # a name with a zero, which nobody can ask for
LC_ALL=C sed -i 's/Qx/Q\x00/' "$hive"
run 1 hive show "$hive_path" && says out 'vb  REG_DWORD' && says err '1 sub-keys cannot be shown'
run 1 hive show "$hive_path" hidden --json && says out '"what":"sub-keys","count":1,"code":123'
run 0 hive delete "$hive_path" hidden --yes && says err '2 keys below it, also 1 sub-keys'
cp "$hive" "$work/odd" # with a path, and a name that looks like it
odd_path=$(windows_path "$work/odd")
run 0 hive set "$odd_path" 'one\two' v path
run 0 hive set "$odd_path" 'one~two\deep' v name
LC_ALL=C sed -i 's/one~two/one\\two/' "$work/odd"
run 0 hive compact "$odd_path" "$(windows_path "$work/odd2")"
run 0 hive compact "$odd_path" "$(windows_path "$work/odd2")." && says out '(0 %)' # the name as it stands
run 0 hive salvage "$odd_path" "$(windows_path "$work/odd3")" && says err '0 places'
for name in odd odd2 odd3; do
    odd_path=$(windows_path "$work/$name")
    run 1 hive show "$odd_path" && says out '"path"' && says err '1 sub-keys cannot be shown' && ! grep -q deep "$work/out" ||
        fail "a key that no path names: $(cat "$work/out")"
    run 0 hive get "$odd_path" 'one\two' v && says out '"path"'
    run 1 hive get "$odd_path" 'one\two\deep' v
done
run 1 hive compact "$hive_path" NUL && says err '(161)'
cp "$hive" "$work/before"
cp "$here/../README.md" "$work/taken"
run 1 hive set "$(windows_path "$work/taken")" b other x --yes && says err '(1009)'
run 1 hive compact "$hive_path" "$(windows_path "$work/taken")" && cmp -s "$here/../README.md" "$work/taken" || fail 'a file was overwritten'
run 0 hive compact "$hive_path" "$(windows_path "$work/compact")" && says out ' less than before (' && same compact
hivexml "$work/compact" | grep -q 'vb' || fail 'another program does not take the compacted hive'
printf '\011' | dd of="$hive" bs=1 seek=4 conv=notrunc status=none # a hive that was not closed
python3 -c '
import struct, sys
bytes = bytearray(open(sys.argv[1], "rb").read())
total = 0
for word in struct.unpack("<127I", bytes[:508]):
    total ^= word
bytes[508:512] = struct.pack("<I", total)
open(sys.argv[1], "wb").write(bytes)' "$hive"
cp "$hive" "$work/before"
run 0 hive show "$hive_path" && says err 'was not closed'
run 1 hive set "$hive_path" b other x && says err 'nothing was changed' && same 'it was not closed'
printf 'xx' | dd of="$hive" bs=1 seek=$(($(grep -abo 'vb' "$hive" | head -n 1 | cut -d: -f1) - 20)) conv=notrunc status=none
cp "$hive" "$work/before"
run 1 hive show "$hive_path" && says err '(1015)' && says err 'hive salvage'
run 1 hive set "$hive_path" b other x --yes && says err '(1015)' && same 'it is damaged'
run 3 hive salvage "$hive_path" "$(windows_path "$work/salvaged")" && says out 'left out: value of \b, at' && same salvage
tail -n 1 "$work/err" | grep -q '^hive: 1 places were left out' || fail "the last line of salvage: $(cat "$work/err")"
run 0 hive show "$(windows_path "$work/salvaged")" && says out 'list' && says out '(default)'
run 1 hive salvage "$hive_path" "$(windows_path "$work/salvaged")" && says err '(183)'
ls "$work/hives" | grep -q tmp && fail 'a temporary file is left'

# Wrong arguments: 2, with a hint, and nothing on standard output.
run 2
run 2 frobnicate && says err 'unknown command frobnicate'
run 2 scan && says err 'which folder or key?'
run 2 scan "$folder" --depth && says err '--depth needs a value'
for depth in 0 65536 3x '' -1 99999999999; do run 2 scan "$folder" --depth "$depth" && says err 'number from 1 to 65535'; done
# A wrong rule is named with the reason; one that would mean everything is refused.
wrong_rule() { run 2 scan "$folder" --filter "$1" && says err "$2"; run 2 wipe tree "$folder" --yes --ignore "$1" && says err "$2"; }
wrong_rule 'a,b:01' 'entry 2, "b:01": its first'
wrong_rule '*.a,C:\keep\*.tmp:001' 'entry 2, "C:\keep\*.tmp:001": drive paths cannot be entries'
wrong_rule 'x:0a1' 'exactly three digits'
wrong_rule 'x:911' 'digits are 0 or 1'
wrong_rule '' 'is empty'
wrong_rule ',,' 'holds no entry'
run 0 scan "$folder" --filter '*.tmp, *.log,*.x ' && says err 'entry 2, " *.log": the blanks' && says err 'entry 3, "*.x "'
run 2 scan "$folder" --json --json && says err 'given twice'
[ -s "$work/out" ] && fail 'usage errors write to standard output'
run 0 --help && says out 'scan'
run 0 scan --help && says out 'example:'
# --help counts only as an option; an empty operand is an unset variable. Nothing is done in either case.
run 0 scan "$folder" --filter --help && says err 'found 0 files'
run 1 wipe tree --yes -- --help && says err '--help: '
for words in 'scan' 'wipe tree --yes' 'wipe file --yes' 'wipe free --yes' 'boot add' 'boot remove' 'log module'; do
    run 2 $words '' && says err 'an argument is empty'
done
run 2 scan "$folder" -json && says err 'unknown option -json'

# The version: the same in the program, the library and what the system shows of each file.
version=$(sed -n 's/^project(sysmaint VERSION \([0-9.]*\).*/\1/p' "$here/../CMakeLists.txt")
products=$(dirname "$host")
run 0 --version && says out "sysmaint $version" && says out "library $version.0  $(windows_path "$products/sysmaint.dll")"
for name in sysmaint.dll sysmaint.exe sysmaint-boot.exe; do
    run 0 util fileversion "$(windows_path "$products/$name")" --json && says out "\"version\":\"$version.0\",\"product\":\"sysmaint\""
    grep -q '"description":""' "$work/out" && fail "$name says nothing of itself"
done

# Everything is listed, folders before their content, with the counts at the end.
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
assert lines[-1] == {'type': 'summary', 'files': 4, 'folders': 2, 'bytes': 10, 'errors': 0, 'code': 0}, lines[-1]
PYTHON
TEMPTREE=$folder run 0 scan '%temptree%\inner' --expand && says err 'found 2 files, 1 folders'

# Registry keys, by long and short names; data that is unsafe for a terminal is made safe.
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
run 0 scan 'hkey_current_user\software\SYSMAINT-host-test' --json --filter 'num*' && says out '"name":"number","valueType":"REG_DWORD","data":42}'
grep -q 'some text' "$work/out" && fail 'the filter let a value through'
run 0 scan 'HKLM\Software\Microsoft' --view 64 --depth 1
# JSON loses nothing of a value with any data.
python3 - "$work" <<'PYTHON'
import sys
values = {'long': (1, 'x"\\' * 100 + '\0'), 'odd': (2, b'a\0b\0\0\0\0'), 'zeros': (1, 'a\0b\0\0'), 'none': (1, b''),
          'half': (1, b'\0\xd8a\0\0\0'), 'list': (7, 'a\0b c\0\0'), 'torn': (7, 'a\0b\0'), 'short': (4, b'\1\2'),
          'large': (11, b'\xff' * 8), 'bytes': (3, bytes(range(40))), 'kind': (77, b'\x80')}
text = 'Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\Software\\sysmaint-host-test\\odd]\r\n'
for name, (kind, data) in values.items():
    data = data.encode('utf-16-le') if isinstance(data, str) else data
    text += f'"{name}"=hex({kind:x}):' + ','.join(f'{byte:02x}' for byte in data) + '\r\n'
open(sys.argv[1] + '/odd.reg', 'wb').write(b'\xff\xfe' + text.encode('utf-16-le'))
PYTHON
"$runner" reg import "$(windows_path "$work/odd.reg")" >/dev/null 2>&1
run 0 scan "$key\odd" --json
python3 - "$work/out" <<'PYTHON' || fail "the values' JSON is not what it should be: $(cat "$work/out")"
import json, sys
lines = [json.loads(line) for line in open(sys.argv[1], encoding='utf-8')][:-1]
assert all(line['key'].endswith('test\\odd') for line in lines), lines
found = {line['name']: (line['data'], line.get('hex')) for line in lines}
wanted = {'long': ('x"\\' * 100, None), 'odd': ('ab', '61006200000000'), 'zeros': ('a\0b\0', None),
          'none': ('', ''), 'half': ('\ud800a', None), 'list': (['a', 'b c'], None), 'torn': (['a', 'b'], '6100000062000000'),
          'short': ('0102', None), 'large': (2**64 - 1, None), 'bytes': (bytes(range(40)).hex(), None), 'kind': ('80', None)}
assert found == wanted, {name: (found.get(name), wanted[name]) for name in wanted if found.get(name) != wanted[name]}
PYTHON
"$runner" reg delete "$key" /f >/dev/null
run 1 scan "$key" && says err '(2)'

# A missing root fails without affecting the others; what cannot be listed is reported with its own path.
run 1 scan "$folder\\missing" "$folder" && says err 'missing: ' && says err '(3)' && says err 'found 4 files'
mkdir -m 000 "$tree/inner/denied"
run 1 scan "$folder" && says err "scan: $folder\\inner\\denied: " && says err 'found 4 files, 3 folders, 10 bytes, 1 could not be read'
run 1 scan "$folder" --json && says out "{\"type\":\"error\",\"path\":\"${folder//\\/\\\\}\\\\inner\\\\denied\",\"code\":5}" && says out '"errors":1'
run 1 wipe tree "$folder" --yes && says err "inner\\denied: " && says err 'wiped 0 files'
rmdir "$tree/inner/denied"

# Wiping: refuses what nobody can mean, asks or requires --yes, and reports truthfully what it did.
for refused in 'C:\' 'C:' 'C:\windows' 'C:\WINDOWS\system32\kernel32.dll' '\\?\C:\windows'; do
    run 2 wipe file "$refused" --yes
    run 2 wipe tree "$refused" --yes
done
# By other names too: through a link, or through another drive.
prefix=$(cd "${WINEPREFIX:-$here/../build/wineprefix-tests}" && pwd)
windows=$(cd "$prefix/drive_c/windows" && pwd -P)
ln -s "$windows" "$tree/link"
for refused in "$folder\\link\\system32" "Z:${windows//\//\\}" 'c:/windows/.'; do
    run 2 wipe tree "$refused" --yes && says err 'the Windows folder'
done
# Roots, folders of programs or profiles, and what is not a path of a file, in many forms, recognised by
# identity.
mkdir -p "$prefix/dosdevices/unc/localhost"
ln -sfn "$prefix/drive_c" "$prefix/dosdevices/unc/localhost/c\$"
ln -sfn "$work" "$prefix/dosdevices/unc/localhost/share"
ln -sfn "$prefix/drive_c/users" "$tree/link"
for refused in 'Z:' 'Z:\' 'z:/' '\\.\Z:' '//?/Z:/' '\\?\Z:\' "$folder\\..\\..\\..\\..\\.." '\\localhost\share' '\\localhost\share\' '//localhost/share/x/..' \
    '\\?\UNC\localhost\share' '\\localhost\c$' '\\localhost\c$\windows' '\\localhost\c$\users' '\\?\Volume{01234567-0123-0123-0123-0123456789ab}\' \
    'C:\Program Files' 'c:\program files (x86)\' 'C:/ProgramData/.' '\\.\C:\users' '\\?\C:\users' "Z:${prefix//\//\\}\\drive_c\\users" \
    "$folder\\link\\..\\..\\..\\..\\.." '\\.\PhysicalDrive0' '\\?\GLOBALROOT\Device\Null' '\\?\C:\users\..\users' "$folder\\*.tmp" "$folder\\keep.tm?" \
    "$folder\" --yes"; do
    run 2 wipe tree "$refused" --yes
    run 2 wipe file "$refused" --yes
done
# A whole profile; without --yes, because these are the tests' own.
for refused in 'C:\users\Public' "C:\\users\\$(id -un)" "$folder\\link\\$(id -un)" "Z:${prefix//\//\\}\\drive_c\\users\\$(id -un)"; do
    run 2 wipe tree "$refused" && says err 'profile'
done
run 1 wipe file "C:\\users\\$(id -un)\\none" --yes
rm -r "$tree/link" "$prefix/dosdevices/unc"
ln -sfn "$tree/inner" "$tree/link"
"$runner" "$host" wipe tree "$folder\\link" --yes 2>/dev/null # the platform cannot remove such a link
[ -e "$tree/inner/b.log" ] || fail 'the link was followed'
rm "$tree/link"
# Exactly the given name: Win32 takes each of these for the other.
mkdir -p "$tree/dot" "$tree/dot."
printf 1 >"$tree/dot/report"
printf 1 >"$tree/dot./report."
run 0 wipe file "$folder\\dot.\\report." --yes && says err 'wiped 1 file'
run 0 wipe tree "$folder\\dot." --yes
[ -e "$tree/dot/report" ] && [ ! -e "$tree/dot." ] || fail "another name was wiped: $(find "$tree")"
run 0 wipe tree "$folder\\inner\\..\\dot" --yes && says err 'wiped 1 file'
run 2 wipe tree "$folder\\a.tmp" --yes && says err 'say file'
run 2 wipe volume C: --yes && says err 'C:\ holds the Windows folder'
run 2 wipe tree "$folder" && says err '--yes'
run 2 wipe file "$folder" --yes && says err 'say tree'
run 2 wipe file "$folder\\a.tmp" --method ones --yes
run 2 wipe free "$folder" --yes
[ "$(find "$tree" -type f | wc -l)" -eq 4 ] || fail 'something was wiped that was refused'
run 1 wipe file "$folder\\a.tmp" "$folder\\missing" --yes && says err 'wiped 1 file, 5 bytes written, 1 failed, 0 wait'
[ -e "$tree/a.tmp" ] && fail 'a.tmp is still there'
run 0 wipe tree "$folder" --yes --filter '*.tmp' --ignore 'keep:111' --method gutmann --passes 2
says err 'wiped 1 file, 70 bytes written, 0 failed' # two times 35 passes over one byte
[ "$(cd "$tree" && find . | sort | tr '\n' ' ')" = './inner ./inner/b.log ./inner/deep ./keep.tmp ' ] ||
    [ "$(cd "$tree" && find . | sort | tr '\n' ' ')" = '. ./inner ./inner/b.log ./inner/deep ./keep.tmp ' ] ||
    fail "filters: $(find "$tree")"
run 0 wipe tree "$folder" --yes && says err 'wiped 2 files'
[ -e "$tree" ] && fail 'the tree is still there'

# Files with other names are listed and stay, with their folders, unless included.
mkdir -p "$tree/inner"
printf 1234 | tee "$tree/inner/one" >"$tree/only"
ln "$tree/inner/one" "$work/other"
run 1 wipe file "$folder\\inner\\one" --yes && says err 'has 2 names'
run 1 wipe tree "$folder" --yes && says err 'has other names and stays (see --hard-links): ' && says err 'wiped 1 file, 4 bytes written, 0 failed, 0 wait for the restart, 1 left alone'
[ "$(cat "$work/other" "$tree/inner/one")" = 12341234 ] && [ ! -e "$tree/only" ] || fail 'a file with two names was wiped'
run 0 wipe tree "$folder" --yes --hard-links && says err 'wiped 1 file' && says err 'under which it will be empty'
[ -e "$tree" ] || [ -s "$work/other" ] && fail '--hard-links left something'

# Questions require the whole answer.
wrong=$(BOOT_LIST=$prefix/drive_c/windows/ForceDelete.txt python3 "$here/host/prompt.py" "$work/asked" "$runner" "$host") && [ -z "$wrong" ] || fail "the question: $wrong"

# An interrupted wipe reports what it did: deleted, and how much was not overwritten.
truncate -s 64M "$work/large"
"$runner" "$control" 0 "$(windows_path "$work/large")" "$host" wipe file "$(windows_path "$work/large")" --yes --method gutmann >"$work/out" 2>"$work/err"
[ $? -eq 130 ] || fail 'a cancelled wipe does not end with 130'
grep -qE 'large: deleted, .* of 64.0 MiB overwritten: wipe the free space of Z: ' "$work/err" || fail "cancelled: $(cat "$work/err")"
says err 'wiped so far: 0 files' && says err '1 deleted but not overwritten in full'
# A file that is named twice is one file.
printf twice >"$work/twice"
run 0 wipe file "$(windows_path "$work/twice")" "$(windows_path "$work/TWICE")" --yes && says err 'wipe 1 file, 5 bytes'
# What is reported to wait for the restart is on the list; here another program has the file open.
list=$prefix/drive_c/windows/ForceDelete.txt
rm -rf "$list"
printf x >"$work/held"
held=$(windows_path "$work/held")
held_wipe() { "$runner" "$control" -1 "$held" "$host" wipe file "$held" --yes 2>"$work/err"; [ $? -eq 1 ] || fail "an open file: $(cat "$work/err")"; }
held_wipe && says err '1 waits for the restart' && says err 'sysmaint boot install'
run 0 boot list && says out "file 1: $held"
run 2 boot run && says err '--yes' && says err "  $held"
run 2 boot list --yes
[ -s "$work/held" ] || fail 'boot run did not wait for an answer'
printf 'keep' >"$work/folder.keep"
run 0 boot run --yes && says err 'overwritten and deleted: 1 of 1, 1 byte; links removed: 0, gone already: 0, still waiting: 0'
[ -e "$work/held" ] || [ -e "$list" ] && fail 'what waited is still there'
python3 -c 'open("'"$list"'", "wb").write("\0\0\r\n*FileShred*\t*\\??\\C:\\windows\\win.ini*\t*1*\t*1\r\n".encode("utf-16-le"))'
run 1 boot run --yes && says err 'left, the system needs it' && says err 'still waiting: 1'
run 0 boot status && says out 'registered: no' && says out 'file 1: C:\windows\win.ini' && says out 'end: 1 overwritten and deleted, 1 bytes'
grep -qF "$held" "$work/out" && fail 'the log names what was wiped'
# Only the line that was shown is removed.
waits() { python3 -c 'import sys; open(sys.argv[1], "wb").write("".join("*FileShred*\t*\\??\\%s*\t*1*\t*1\r\n" % f for f in sys.argv[2:]).encode("utf-16-le"))' "$list" "$@"; }
listed() { run "$1" boot list; [ "$(tr -d '\r' <"$work/out")" = "$2" ] || fail "the list is $(cat "$work/out"), not $2"; }
waits 'C:\a' 'C:\b' 'C:\a' $'C:\\\tc'
for number in 0 x -1 1x 99999999999; do run 2 boot drop --yes -- "$number" && says err 'not the number'; done
run 2 boot drop && run 2 boot drop 1 2 && run 2 boot drop 2 && says err '--yes' && says err 'C:\b'
run 1 boot drop 5 --yes && says err 'the list has 4 lines'
run 0 boot drop 3 --yes && says err 'off the list: *FileShred*<09>*\??\C:\a*' && says err 'taken off'
listed 0 $'file 1: C:\\a\nfile 2: C:\\b\nfile 3: C:\\<09>c'
printf 'j\0u\0n\0k\0' >>"$list" && listed 1 $'file 1: C:\\a\nfile 2: C:\\b\nfile 3: C:\\<09>c\nline 4: junk'
run 0 boot drop 4 --yes && run 0 boot drop 1 --yes && listed 0 $'file 1: C:\\b\nfile 2: C:\\<09>c'
run 0 boot drop 1 --yes && run 0 boot drop 1 --yes && [ ! -e "$list" ] || fail 'an empty list is left'
# A stray byte spoils no line; and a list that somebody holds is neither done nor forgotten.
waits 'C:\a' "$held" && printf x | cat - "$list" >"$work/odd" && cp "$work/odd" "$list"
listed 1 $'line 1: x?\nfile 2: C:\\a\nfile 3: '"$held"
run 0 boot drop 2 --yes && listed 1 $'line 1: x?\nfile 2: '"$held"
printf x >"$work/held"
"$runner" "$control" -1 'C:\windows\ForceDelete.txt' "$host" boot run --yes 2>"$work/err"
[ $? -eq 1 ] && says err 'another program holds the list' && says err '(32)' && says err 'nothing was wiped; still waiting: 1'
[ -s "$work/held" ] && listed 1 $'line 1: x?\nfile 2: '"$held" || fail 'a list that was held is not as it was'
rm "$list"
run 1 boot install && says err '(2)' # this prefix has no list of command lines
[ -e "$prefix/drive_c/windows/system32/sysmaint-boot.exe" ] && fail 'a program that nothing starts was left'
run 0 boot uninstall
rm -f "$list" && printf x >"$work/held"
(umask 222 && : >"$list")
held_wipe && says err 'does not wait for the restart' && says err '0 wait for the restart'
rm -f "$list"
printf 'broken' >"$list" && run 1 boot list && says err 'name no file'
rm "$list"

# The boot-time list and the log.
run 2 boot
run 2 boot add
run 1 boot add 'x' && says err '(2)' # this prefix has no such value
run 0 boot list
run 2 log 'Disk Cleaner'
run 2 log x "$(printf 'x%.0s' {1..993})" && says err 'too long'
run 2 log x $'two\nlines'
log=$(dirname "$host")/logs/$(id -un)/ZDC.log
rm -f "$log"
# Results that could not be written are a failure; what would spoil a list or a log is refused.
"$runner" "$host" scan 'C:\windows' --depth 1 >/dev/full 2>"$work/err" </dev/null && fail 'a scan that could not be written succeeds'
says err 'could not be written'
for command in ' ' $'a\nb'; do run 2 boot add "$command" && says err 'one line with something in it'; done
run 2 log 'Disk Cleaner' $'bell \x07' && says err 'control character'
run 0 log 'disk cleaner' 'removed 12 files'
tr -d '\0' <"$log" | grep -q 'disk cleaner:  removed 12 files' || fail 'the log lacks the line'

# Utilities: the same lines as Debian's programs, in both directions; what cannot be confirmed fails.
mkdir "$work/sums" && cd "$work/sums"
printf abc >plain && printf 1 >'größe €' && : >empty
for sum in sha256 sha1 md5; do
    run 0 util checksum plain 'größe €' empty --algorithm $sum
    diff <("$sum"sum plain 'größe €' empty) <(tr -d '\r' <"$work/out") || fail "$sum"
    "$sum"sum -c --quiet <(tr -d '\r' <"$work/out") || fail "$sum: its own list"
    "$sum"sum plain 'größe €' >list && run 0 util checksum --check list && says out 'plain: OK'
done
run 0 util checksum plain --algorithm crc32 --json && says out '"algorithm":"crc32","checksum":"352441c2"'
run 0 util checksum "$(windows_path "$work/sums/plain")" && says out '\ba7816bf' && says out '\\plain'
cp "$work/out" list && run 0 util checksum --check list
# Lists as the shells of Windows and other programs write them, and names that look like signs.
printf abc >new && run 0 util checksum "$(windows_path "$work/sums/new")" && cp "$work/out" list && run 0 util checksum --check list
{ echo '# remark' && sha256sum --tag plain && md5sum --tag 'größe €'; } >tags && run 0 util checksum --check tags && says out 'größe €: OK'
{ printf '\xef\xbb\xbf' && cat tags; } >list && run 0 util checksum --check list
for mark in 'LE \xff\xfe' 'BE \xfe\xff'; do
    { printf "${mark#* }" && iconv -f UTF-8 -t "UTF-16${mark% *}" tags; } >list
    run 0 util checksum --check list && says out 'plain: OK'
done
{ cat tags && printf '\0\nSHA1 (plain) = 00\n'; } >list && run 1 util checksum --check list
{ cat tags && echo garbage; } >list && run 1 util checksum --check list && says err '1 line is no checksum' && says out 'plain: OK'
{ cat tags && printf '\\%s  pl\\ain\n' "$(sha256sum plain | cut -c1-64)"; } >more && run 1 util checksum --check more && says err '1 line is no checksum' # no such escape
{ cat list && echo more; } >more && run 1 util checksum --check more && says err '2 lines are no checksums'
mkdir o # by this name the system would find each of the third
for name in con 'con\x' 'o. ' 'o.\x'; do run 2 util icons plain --out "$name" && says err "'$name'"; done
run 1 util icons plain --out nowhere && [ ! -e nowhere ] || fail 'a folder for nothing'
printf x >>plain && run 1 util checksum --check list && says out 'plain: FAILED' && says err '1 does not match'
rm plain && run 1 util checksum --check list && says out 'FAILED open or read'
: >list && run 1 util checksum --check list
echo 'no list' >list && run 1 util checksum --check list && says err 'no checksum'
run 1 util checksum missing && says err '(2)'
run 2 util checksum && run 2 util && run 2 util frobnicate && run 2 util checksum x --algorithm sha0 && run 2 util icons x
run 0 util --help && says out 'example:'
run 0 util whoami && says out "$(id -un)" && says out 'S-1-5-' && run 0 util whoami --json && says out '"administrator":true'
run 0 util services && says out 'running' && run 0 util services --json && says out '"displayName":'
run 0 util fileversion 'C:\windows\system32\kernel32.dll' && says out 'kernel32.dll: ' && says out 'Wine'
run 1 util fileversion list
run 0 util icons 'C:\windows\system32\shell32.dll' --out icons --size 16 && says out 'icon-1.bmp'
run 0 util icons 'C:\windows\system32\shell32.dll' --out "\\\\?\\$(windows_path "$work/sums/o.")" && [ -s o./icon-1.bmp ] || fail 'a literal name'
[ "$(head -c 2 icons/icon-1.bmp)" = BM ] && [ "$(stat -c %s icons/icon-1.bmp)" -eq 1078 ] || fail 'no bitmap'
cd - >/dev/null

mv "$(dirname "$log")" "$work/logs" && : >"$(dirname "$log")"
run 1 log module text
grep -q '(0)' "$work/err" && fail "a log that cannot be had: $(cat "$work/err")"
rm "$(dirname "$log")" && mv "$work/logs" "$(dirname "$log")"

# Restore points: the system's client is a stand-in here, which records its calls.
export SYSMAINT_RESTORE_RECORD SYSMAINT_RESTORE_ANSWERS= SYSMAINT_TOOL_RECORD
SYSMAINT_RESTORE_RECORD=$(windows_path "$work/record") SYSMAINT_TOOL_RECORD=$(windows_path "$work/record")
# recorded LINES: the recorded calls, without the time of the description; clears them
recorded() {
    local told
    told=$(cat "$work/record" 2>/dev/null | iconv -f UTF-16LE | sed 's/[0-9.]\{10\} [0-9:]\{8\}$/TIME/')
    rm -f "$work/record"
    [ "$told" = "$1" ] || fail "recorded '$told', not '$1'"
}
made=$'set 100 12 0 NAME_TIME\nset 101 12 12 NAME_TIME'
run 0 restore create 'größe €' && says out 'restore point 12: größe €_' && recorded "${made//NAME/größe €}"
run 0 restore create --json && says out '{"type":"restorePoint","number":12,"name":"sysmaint_' && recorded "${made//NAME/sysmaint}"
SYSMAINT_RESTORE_ANSWERS='n0 n0' run 1 restore create && says err 'one of the last 24 hours (183)' && recorded $'set 100 12 0 sysmaint_TIME\nset 101 12 0 sysmaint_TIME'
SYSMAINT_RESTORE_ANSWERS=s1058 run 1 restore create && says err '(1058)' && [ ! -s "$work/out" ] || fail 'a refused restore point'
rm -f "$work/record"
run 2 restore delete 12 && says err '--yes'
for number in 0 4294967296 12x -1 99999999999 '1 2'; do run 2 restore delete --yes -- "$number" && says err 'not the number'; done
recorded ''
run 0 restore delete 12 --yes && says err 'delete restore point 12' && says err 'removed' && recorded 'remove 12'
SYSMAINT_RESTORE_ANSWERS=s13 run 1 restore delete 7 --yes && says err '(13)' && recorded 'remove 7'
run 0 restore enable C: && says out 'System Restore is switched on for C:\'
run 0 restore enable C: --json && says out '{"type":"enabled","drive":"C:\\"}'
run 2 restore enable 'C:\windows'
for words in '' status\ 1 'delete' 'enable' 'create a b' 'on'; do run 2 restore $words; done
# The true version decides where to look: the oldest system's registry has no such key, this WMI no
# configuration.
for version in win2k winxp winxp64 vista win7 win81 win10; do
    "$runner" reg add 'HKCU\Software\Wine\AppDefaults\sysmaint.exe' /v Version /d "$version" /f >/dev/null
    case $version in
    win2k) run 0 restore status && says out 'does not tell' ;;
    winxp*) run 0 restore status --json && says out '{"type":"status","enabled":true}' ;;
    *) run 1 restore status && says err '(1168)' ;;
    esac
done
"$runner" reg delete 'HKCU\Software\Wine\AppDefaults\sysmaint.exe' /f >/dev/null
# The loaded hives, of which this system lists none; the library's tests cover what can be shown.
"$runner" reg add 'HKLM\System\CurrentControlSet\Control\hivelist' /f >/dev/null # which this platform lacks
run 0 hives list && says err '0 hives'
run 0 hives analyze && says out '[####################]  in all'
run 0 hives analyze --json && says out '{"type":"summary","hives":0,"failures":0,"bytes":0,"compactedBytes":0,"savedBytes":0,"code":0}'
for words in '' 'list x' 'analyze x' 'show'; do run 2 hives $words && says err 'list or analyze'; done
run 0 hives --help && says out 'example:'

# Without its restore point a wipe does nothing; otherwise the restore point comes first.
printf x >"$work/kept"
SYSMAINT_RESTORE_ANSWERS=e5 run 1 wipe file "$(windows_path "$work/kept")" --restore-point --yes && says err 'nothing was wiped' && says err '(5)'
[ -e "$work/kept" ] && recorded 'set 100 12 0 sysmaint wipe_TIME' || fail 'wiped without its restore point'
run 0 wipe file "$(windows_path "$work/kept")" --restore-point --yes && recorded "${made//NAME/sysmaint wipe}"
[ -e "$work/kept" ] && fail 'not wiped'

# The snapshot tool: it asks first, and no password is given on the command line.
tool=$(windows_path "$(dirname "$host")/snapshot_tool.exe")
: >"$work/x.cmd"
lines() { recorded "$(printf '%s\n' "$@")"; }
run 0 snapshot create 'a b' --tool "$tool" --comment 'c d' --user u && lines 'vrlcmd /n /name "a b" /comment "c d" /user "u"' vrlcmd /n /name 'a b' /comment 'c d' /user u
SYSMAINT_SNAPSHOT_PASSWORD='p"' run 1 snapshot create n --tool "$tool" --password && says err 'the password holds a quote' && says err '0xC0000001' && recorded ''
refuses() { local cause=$1; shift; run 1 snapshot "$@" && says err "$cause" && says err '0xC0000001' && recorded ''; }
refuses 'the name ends in a backslash' create 'n\' --tool "$tool"
refuses 'the comment holds a line end' create n --comment $'a\nb' --tool "$tool"
SYSMAINT_SNAPSHOT_PASSWORD=$(printf 'p%.0s' {1..900}) refuses 'too long together' create n --comment "$(printf 'x%.0s' {1..31900})" --password --tool "$tool"
refuses 'the user is empty or holds a blank' restore current --user 'a b' --yes --tool "$tool"
refuses 'the time holds a quote' restore time 'a"' --yes --tool "$tool"
refuses 'gives no time for that name' restore name none --yes --tool "$tool"
refuses 'a batch file' create n --tool "$(windows_path "$work/x.cmd")"
SYSMAINT_SNAPSHOT_PASSWORD=p run 0 snapshot restore baseline --tool "$tool" --user u --password --yes && lines 'vrlcmd /r /baseline  /user u /pass p' vrlcmd /r /baseline /user u /pass p
run 0 snapshot restore time '14:07 x' --tool "$tool" --yes && lines 'vrlcmd /r /time "14:07 x"' vrlcmd /r /time '14:07 x'
refuses 'there is no such program: C:\none.exe' create n --tool 'C:\none.exe'
refuses 'there is no such program: C:\windows' create n --tool 'C:\windows'
printf x >"$work/x.exe" && refuses 'no program' create n --tool "$(windows_path "$work/x.exe")" && says out 'CreateProcess failed (193).'
run 2 snapshot create n --tool "$tool" --password && says err 'nobody to ask'
run 2 snapshot create n --tool "$tool" --password geheim && run 2 snapshot geheim && ! grep -q geheim "$work/err" || fail 'a password is shown'
run 2 snapshot restore current --tool "$tool" && says err '--yes'
for words in 'create n' 'restore' 'restore current x' 'restore time' 'restore 4' 'restore current --comment c'; do run 2 snapshot $words --tool; done
for words in 'restore' 'restore current x' 'restore time' 'restore 4' 'restore current --comment c'; do run 2 snapshot $words --yes --tool "$tool"; done
recorded ''

# Processes and sessions. Only what was named is ended: here programs that this script has started.
child=$(dirname "$host")/process_child.exe
for words in '--sort size' 'frobnicate' 'end' 'watch a b' 'watch --interval 9' 'end 12345678901 --yes'; do run 2 processes $words; done
run 2 sessions all
run 0 sessions --json && says out '"state":"active","console":true,"user":"'
run 1 processes end no-such-program.exe nobody.exe --yes && says err 'no-such-program.exe: there is no such process (1168)' && says err 'nobody.exe: there is'
for option in --user --sort; do run 2 processes $option '' && says err "$option is empty"; done
run 2 processes watch , && says err 'a name between the commas is empty'
run 1 processes end 999999 --yes && says err 'no such process (1168)'
for refused in services.exe sysmaint.exe; do run 1 processes end $refused && says err 'the system or this program needs it (50)'; done
run 1 processes end plugplay.exe && says err 'it is a service'
"$runner" "$child" tree 1 3 &
jobs_here=$!
"$runner" "$child" sleep &
jobs_here="$jobs_here $!"
for _ in {1..100}; do
    run 0 processes --json
    [ "$(grep -c '"process_child.exe"' "$work/out")" -eq 4 ] && break
done
run 0 processes --tree --user "$(id -un)" && grep -qE '^ *[0-9]+ .*   process_child.exe$' "$work/out" || fail 'not below its parent'
run 0 processes --user nobody-here && [ "$(wc -l <"$work/out")" -eq 1 ] || fail 'a stranger has processes'
run 0 processes --json --sort memory
ids=$(python3 - "$work/out" <<'PYTHON' || fail 'the list of processes is not what it should be'
import json, sys
lines = [json.loads(line) for line in open(sys.argv[1], encoding='utf-8')]
sizes = [line['workingSet'] for line in lines]
assert sizes == sorted(sizes, reverse=True)
ours = {line['pid']: line for line in lines if line['name'] == 'process_child.exe'}
tops = [pid for pid, line in ours.items() if line['parent'] not in ours]
assert all(line['commandLine'].endswith(('tree 1 3', 'tree 1 2', 'tree 1 1', 'sleep')) for line in ours.values())
print(*sorted(tops, key=lambda pid: 'tree' not in ours[pid]['commandLine']))
PYTHON
)
run 2 processes end process_child.exe && says err 'say --yes' && says err "end ${ids##* } process_child.exe"
run 0 processes end "${ids%% *}" --tree --yes && says out "ended ${ids%% *} process_child.exe"
[ "$(grep -c '^  and ' "$work/err")" -eq 2 ] || fail "the tree is not shown: $(cat "$work/err")"
run 0 processes --json && [ "$(grep -c '"process_child.exe"' "$work/out")" -eq 1 ] || fail 'not the tree alone has ended'
run 2 processes end process_child.exe --close --tree && says err 'say neither --tree nor --services'
run 1 processes end process_child.exe --close --yes && says err 'it has no window that could be asked (1400)'
run 0 processes end PROCESS_child.exe --yes && says out "ended ${ids##* } process_child.exe"
wait $jobs_here
"$runner" "$host" processes watch 'process_child*' --seconds 20 --interval 20 --snapshots --json >"$work/watched" 2>"$work/err" &
for _ in {1..100}; do grep -q snapshots "$work/err" && break; sleep 0.1; done
says err 'watching by snapshots every 20 ms'
"$runner" "$child" write 100 >"$work/written" # long enough to be seen
for _ in {1..100}; do grep -q '"end"' "$work/watched" && break; sleep 0.1; done
[ "$(sed 's/,"pid.*"name"/ /' "$work/watched" | tr -d '\r\n')" = '{"type":"start" :"process_child.exe"}{"type":"end" :"process_child.exe"}' ] || fail "watched: $(cat "$work/watched")"
interrupt "$!"
actual=0
wait "$!" || actual=$?
[ "$actual" -eq 130 ] || fail "watch and Ctrl+C: exit code $actual"

# Ctrl+C ends it cleanly and shows what was found so far.
mkfifo "$work/pipe"
"$runner" "$host" scan 'Z:\usr' >"$work/pipe" 2>"$work/err" </dev/null &
job=$!
read -r first <"$work/pipe" & # the scan has begun; its pipe stays open below
exec 7<"$work/pipe"
wait $!
interrupt "$job"
cat <&7 >/dev/null
actual=0
wait "$job" || actual=$?
[ "$actual" -eq 130 ] || fail "Ctrl+C: exit code $actual"
says err 'cancelled; found so far: '

[ "$failures" -eq 0 ] && echo 'host: all as expected'
exit "$((failures != 0))"

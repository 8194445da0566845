#!/usr/bin/env bash
# The C example end to end: its output is sha256sum's, its errors are sentences, and it leaves no
# process, socket or file behind.
# Usage: c_launcher_test.sh BUILD_DIRECTORY [EMULATOR...]
set -euo pipefail

build=$1
shift
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_RUNTIME_DIR=$work/run TAVO_DESK_PATH=$build/tasks
export TAVO_DESK_WRAPPER="$*"
mkdir -m 0700 "$XDG_RUNTIME_DIR"

fail() { echo "FAILED: $*"; exit 1; }
c_launcher() { "${emulator[@]}" "$build/bin/c_launcher" "$@"; }
launch() { c_launcher --libs-path "$build/lib" "$@"; }
# Ours alone: other tests may run at the same time.
processes() { grep -lz "^XDG_RUNTIME_DIR=$XDG_RUNTIME_DIR$" /proc/[0-9]*/environ 2>/dev/null |
                cut -d / -f 3 | xargs -r ps -o pid=,args= -p | grep '[l]ibs-path' || true; }
nothing_is_left() {  # But for the directory in which watchers are looked for.
  for _ in $(seq 5000); do
    [[ -z "$(ls -I watch "$XDG_RUNTIME_DIR/tavo")" && -z "$(processes)" ]] && return
    read -rt 0.01 <> <(:) || true
  done
  fail "something is left: $(ls -I watch "$XDG_RUNTIME_DIR/tavo"; processes)"
}

# Names of every kind, below a directory and given by themselves, relative and absolute.
mkdir -p "$work/data/deep/er" "$work/data/empty"
cd "$work"
printf 'x' >'data/plain'
printf '' >'data/nothing'
printf '1' >'data/blank and % percent'
printf '2' >$'data/line\nbreak\rand\\backslash'
printf '3' >$'data/not-utf8-\xff\xfe'
printf '4' >'data/deep/er/--option'
head -c 3000000 /dev/zero >'data/deep/large'
for i in $(seq 100); do echo "$i" >"data/deep/file$i"; done
ln -s plain data/link

find data -type f -print0 | LC_ALL=C sort -z | xargs -0 sha256sum >expected
launch data >actual || fail "exit code $?"
diff <(LC_ALL=C sort expected) <(LC_ALL=C sort actual) || fail "digests differ"
launch -- data/link "$work/data/plain" >actual
sha256sum data/link "$work/data/plain" | diff - actual || fail "digests of single files differ"
nothing_is_left

# A file that cannot be read: the others are done, the code says so.
code=0
launch data/missing data/plain >actual 2>errors || code=$?
[[ $code -eq 1 ]] || fail "exit code $code for a missing file"
[[ "$(cat errors)" == "c_launcher: data/missing: No such file or directory" ]] || fail "$(cat errors)"
sha256sum data/plain | diff - actual || fail "the other file was not done"

# A URI, by itself and after files.
export TAVO_DESK_OPEN_URI=record TAVO_DESK_RECORD=$work/record
launch --open 'https://example.org/?q=a b' >actual || fail "exit code $? for a URI"
[[ "$(cat actual)" == "opened https://example.org/?q=a b" ]] || fail "$(cat actual)"
grep -qF '"parameters":{"uri":"https://example.org/?q=a b"}' record || fail "$(cat record)"
launch --open 'more:' data/plain >actual
(sha256sum data/plain && echo 'opened more:') | diff - actual || fail "a URI after a file"
code=0
TAVO_DESK_OPEN_URI=fail launch --open 'more:' 2>errors || code=$?
[[ $code -eq 1 ]] || fail "exit code $code for a URI that fails"
[[ "$(cat errors)" == 'tavo-desk: "more:" was not opened: TAVO_DESK_OPEN_URI is "fail"'*"could not be opened" ]] ||
  fail "$(cat errors)"

# No task, no library, a task that never answers.
expect_code_2() {
  local expected=$1 code=0
  shift
  "$@" >actual 2>errors || code=$?
  [[ $code -eq 2 ]] || fail "exit code $code: $*"
  grep -qF "$expected" errors || fail "$(cat errors)"
}
TAVO_DESK_PATH=$work expect_code_2 'Application "digest" could not be started' launch data/plain
TAVO_DESK_PATH=$work expect_code_2 'could not be started' launch --open x: data/plain
expect_code_2 'libtavo.so: cannot open' c_launcher --libs-path "$work" data/plain
expect_code_2 'usage:' c_launcher --unknown option
mkdir dumb
printf '#!/bin/sh\nexec sleep 1000\n' >dumb/digest
chmod +x dumb/digest
TAVO_DESK_WRAPPER='' TAVO_DESK_PATH=$work/dumb expect_code_2 'the task does not answer' launch --timeout 1 data/plain
nothing_is_left

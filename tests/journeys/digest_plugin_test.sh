#!/usr/bin/env bash
# The demo's plug-ins end to end: the digests are sha256sum's, progress, errors and outcomes are
# told in sentences, the desk records the conversation, and no process, socket or file stays.
# Usage: digest_plugin_test.sh BUILD_DIRECTORY [EMULATOR...]
set -euo pipefail

build=$(realpath "$1")
shift
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_RUNTIME_DIR=$work/run TAVO_DESK_PATH=$build/apps TAVO_DESK_OPEN_URI=fail
export TAVO_DESK_WRAPPER="$*"
unset TAVO_DESK_RECORD NO_COLOR
mkdir -m 0700 "$XDG_RUNTIME_DIR"
libs=$build/lib

fail() { echo "FAILED: $*"; exit 1; }
digest() {
  "${emulator[@]}" "$build/bin/tavo-embed" "$build/lib/libdigest_plugin.so" --libs-path "$libs" -- "$@"
}
# Ours alone: other tests may run at the same time.
processes() { grep -lz "^XDG_RUNTIME_DIR=$XDG_RUNTIME_DIR$" /proc/[0-9]*/environ 2>/dev/null |
                cut -d / -f 3 | xargs -r ps -o pid=,args= -p | grep '[l]ibdigest_' || true; }
nothing_is_left() {
  for _ in $(seq 5000); do
    [[ -z "$(find "$XDG_RUNTIME_DIR" -type s)" && -z "$(processes)" ]] && return
    read -rt 0.01 <> <(:) || true
  done
  fail "something is left: $(find "$XDG_RUNTIME_DIR" -type s; processes)"
}
# expect CODE TEXT ARGUMENT...: the exit code, and what is told on standard error.
expect() {
  local code=0 expected=$1 text=$2
  shift 2
  digest "$@" >"$work/actual" 2>"$work/errors" </dev/null || code=$?
  [[ $code -eq $expected ]] || fail "exit code $code of: $*: $(cat "$work/errors")"
  [[ -z $text ]] || grep -qF -- "$text" "$work/errors" || fail "$* tells: $(cat "$work/errors")"
}

# Names of every kind, more files than are asked for at once, a large one first.
mkdir -p "$work/data/deep/er" "$work/data/empty" "$work/data/skipped"
cd "$work"
head -c 20000000 /dev/zero >'data/a large one'
printf 'x' >'data/plain'
printf '' >'data/nothing'
printf '1' >'data/blank and % percent %41'
printf '2' >$'data/line\nbreak\rand\\backslash'
printf '3' >$'data/not-utf8-\xff\xfe'
printf '4' >'data/deep/er/--option'
printf '5' >'data/skipped/file'
printf '6' >'data/deep/skipped'
for i in $(seq 100); do echo "$i" >"data/deep/file$i"; done
ln -s plain data/link
ln -s deep data/link-to-directory
mkfifo data/pipe

find data -type f ! -path 'data/skipped/*' -print0 | LC_ALL=C sort -z | xargs -0 sha256sum >expected
expect 0 'digest_plugin: data/a large one: 50 % of 19.1 MiB' --skip data/skipped data
LC_ALL=C sort -k 2 expected | diff - <(LC_ALL=C sort -k 2 actual) || fail "digests differ"
grep -qF 'digest_plugin: data/a large one: 100 % of 19.1 MiB' errors || fail "$(cat errors)"
grep -qE '^digest_plugin: 108 files, 19\.1 MiB, 109 requests, [0-9.]+ s$' errors || fail "$(cat errors)"
expect 0 '1 file, 1 B, 2 requests' data/link
sha256sum data/link | diff - actual || fail "the digest of a named link differs"
expect 0 '0 files, 0 B, 1 request,' -- data/empty

# Options may follow paths until "--"; skipped paths are compared however they are written.
expect 0 '1 file, 1 B, 2 requests' data/skipped --skip data --timeout 5
grep -qF 'digest_plugin: --skip data: there is nothing to be skipped' errors || fail "$(cat errors)"
expect 0 '1 file, 1 B, 2 requests' ./data/deep --skip data//deep/./er/ --skip 'data/deep/file*' \
  $(printf -- '--skip data/deep/file%s ' $(seq 100))
[[ $(cut -c 67- actual) == ./data/deep/skipped ]] || fail "$(cat actual)"
[[ $(grep -c 'nothing to be skipped' errors) -eq 1 ]] || fail "$(cat errors)"
(cd data/deep/er && expect 0 '1 file, 1 B, 2 requests' -- --option)
nothing_is_left

# What cannot be read is told; the others are done.
ln -s missing data/dangling
expect 1 'digest_plugin: data/dangling: No such file or directory' data/dangling data/plain data/pipe
grep -qF 'digest_plugin: data/pipe: it is not a regular file' errors || fail "$(cat errors)"
grep -qF '3 files (2 failed), 1 B, 4 requests,' errors || fail "$(cat errors)"
sha256sum data/plain | diff - actual || fail "the other file was not done"
expect 1 'digest_plugin: "": Invalid argument' data/plain ''
sha256sum data/plain | diff - actual || fail "an empty name ends the rest"

# An opener that does not end.
mkdir opener
mkfifo opener/fifo
printf '#!/bin/sh\nread -r line <"%s"\n' "$work/opener/fifo" >opener/xdg-open
chmod +x opener/xdg-open
exec {opener}<>opener/fifo
PATH=$work/opener:$PATH TAVO_DESK_OPEN_URI=open expect 1 \
  'digest_plugin: https://example.org could not be opened' --timeout 1 --open https://example.org data/empty
grep -qF 'digest_plugin: 0 files, 0 B' errors || fail "$(cat errors)"
echo >&"$opener"
exec {opener}>&-

# The URI's outcome, and the conversation, in which each frame is there once.
export TAVO_DESK_RECORD=$work/record
expect 1 'digest_plugin: more: could not be opened' --open more: data/empty
rm record
TAVO_DESK_OPEN_URI=record expect 1 'digest_plugin: opened https://example.org/?q=a b' \
  --open 'https://example.org/?q=a b' 'data/a large one' $'data/not-utf8-\xff\xfe' data/dangling
unset TAVO_DESK_RECORD
"${emulator[@]}" "$build/bin/tavo" decode --json --file record >talk || fail "the record makes no sense"
python3 - talk "$work" <<'PYTHON' || fail "$(cat talk)"
import json, sys
lines = [json.loads(line) for line in open(sys.argv[1])]
def number(value): return int(value["$int64"]) if isinstance(value, dict) else value
def only(direction, kind): return [x for x in lines if x.get("direction") == direction and x["kind"] == kind]
assert all(x["time"] for x in lines) and all(x["task"] == "digest" for x in lines if "task" in x)
asked = only("to", "request")
assert len({x["id"] for x in asked}) == len(asked), "a frame twice"
assert [x["method"] for x in asked] == ["flrpc.connected", "$/features"] + 3 * ["digest"] + ["shutdown"], asked
files = asked[2:5]
calls = [x["params"] for x in files]
paths = [x["$params"]["path"] for x in calls]
assert paths[0] == sys.argv[2] + "/data/a%20large%20one" and paths[1].endswith("not-utf8-%FF%FE"), paths
answers = {x["id"]: x for x in only("from", "response")}
assert set(answers) == {x["id"] for x in asked} and len(only("from", "response")) == len(asked)
assert number(answers[files[0]["id"]]["result"]["size"]) == 20000000
assert answers[files[2]["id"]]["error"]["message"] == "No such file or directory"
done = [x["params"] for x in only("from", "notification") if x["method"] == "$/progress"]
assert [number(x["value"]) >> 20 for x in done] == [4, 8, 12, 16, 19], done
assert all(x["$call"] == calls[0]["$call"] for x in done), done
opened = [x["parameters"]["uri"] for x in lines if x["kind"] == "intent"]  # The task may end before or after.
assert opened == ["https://example.org/?q=a b"], opened
PYTHON

# On a terminal there is a bar, in colour unless NO_COLOR is set.
terminal() {
  TERM=xterm script -qec "stty cols ${columns:-80} && $(printf '%q ' "${emulator[@]}" "$build/bin/tavo-embed" \
    "$build/lib/libdigest_plugin.so" --libs-path "$libs" -- 'data/a large one')" /dev/null </dev/null
}
terminal >screen || fail "exit code $? on a terminal"
grep -qF $'\r\e[K[\e[32m#' screen || fail "no bar: $(cat -v screen)"
grep -qF ' of 1 file  ' screen && grep -qF '  data/a large one' screen || fail "$(cat -v screen)"
NO_COLOR=1 terminal >screen
grep -qF $'\r\e[K[#' screen && ! grep -qF $'\e[32m' screen || fail "colour: $(cat -v screen)"
NO_COLOR=1 columns=20 terminal >screen
grep -qF $'\r\e[K['"$(printf '#%.0s' {1..18})"$'\r' screen || fail "not cut to the width: $(cat -v screen)"

# Command lines, and what ends it.
expect 0 '' --help
grep -q 'tavo-embed libdigest_plugin.so -- ' actual || fail "no help"
libs='' expect 2 'digest_plugin: where is libtavo.so? --libs-path' data
expect 2 "Unknown option 'unknown'" --unknown
expect 2 "Missing value after '--open'" --open
expect 2 '--timeout: "0" is not a number from 1 to' --timeout 0
TAVO_DESK_PATH=$work expect 2 'digest_plugin: the task "digest" cannot be used: Application "digest" could not be started' data
libs=$work expect 2 'digest_plugin: libtavo.so cannot be used' data
mkdir dumb
printf '#!/bin/sh\nexec sleep 1000\n' >dumb/digest
chmod +x dumb/digest
TAVO_DESK_WRAPPER='' TAVO_DESK_PATH=$work/dumb expect 2 \
  'digest_plugin: the task "digest" has not answered for 1 s' --timeout 1 data/plain
if [[ -w /dev/full ]]; then
  code=0
  digest data/plain >/dev/full 2>errors || code=$?
  [[ $code -eq 2 ]] && grep -qF 'standard output: No space left' errors || fail "$code: $(cat errors)"
fi
nothing_is_left

#!/usr/bin/env bash
# A desk session of its own: it is recorded and watched, ends as its command does, and leaves
# neither a process nor a file.
# Usage: tavo_run_test.sh BUILD_DIRECTORY [EMULATOR...]
set -euo pipefail

build=$(realpath "$1")
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir tmp
export TMPDIR=$work/tmp TAVO_DESK_PATH=$build/apps TAVO_DESK_WRAPPER="$*"
unset XDG_RUNTIME_DIR TAVO_DESK_RECORD
tavo=("$@" "$build/bin/tavo")

fail() { echo "FAILED: $*"; exit 1; }
# expect CODE COMMAND...: the exit code; the session's files are gone.
expect() {
  local code=0 expected=$1
  shift
  "${tavo[@]}" run "$@" >output 2>errors || code=$?
  [[ $code -eq $expected ]] || fail "exit code $code of: $*: $(cat errors)"
  [[ -z $(ls -A tmp) ]] || fail "left by: $*: $(find tmp)"
}

expect 7 -- sh -c '[ "$1" = "[a,b]" ] && exit 7' sh '[a,b]'
expect 137 -- sh -c 'kill -9 $$'
expect 3 -- "$work/missing"
grep -qF "tavo run: $work/missing: No such file" errors || fail "$(cat errors)"
expect 2
(umask 022 && touch open)
expect 1 --record open -- true
grep -qF 'open: other users may open it' errors || fail "$(cat errors)"

# Signals go on; a process that does not end when asked is killed, also if it has left its parent.
expect 9 -- sh -c 'trap "exit 9" USR1; kill -USR1 $PPID; while :; do sleep 0.01; done'
# User-mode emulation does not know of orphans that come to another process.
if [[ -z $TAVO_DESK_WRAPPER ]]; then
  mkfifo ready
  expect 0 -- sh -c '(trap "" TERM; echo $$ >ready; sleep 1000) & read -r pid <ready; setsid sleep 1000 &'
  left=$(grep -lzs "^TMPDIR=$TMPDIR$" /proc/[0-9]*/environ | cut -d / -f 3 |
    xargs -r ps -o args= -p | grep '[s]leep' || true)
  [[ -z $left ]] || fail "a process is left: $left"
fi

# A watcher sees a task that works when the command ends.
truncate -s 8G large
cat >talk <<END
${tavo[*]} top --once --json --interval 3 >top & top=\$!
until [ -n "\$(ls "\$XDG_RUNTIME_DIR/tavo/watch" 2>/dev/null)" ]; do :; done
$* $build/bin/tavo-embed $build/lib/libdigest_plugin.so --libs-path $build/lib -- large 2>/dev/null &
plugin=\$!
wait \$top
[ -z "\$TAVO_DESK_WRAPPER" ] || kill \$plugin  # Nobody else ends it there.
END
expect 0 --record record -- sh talk
python3 - <<'PYTHON' || fail "$(cat top)"
import json
record = [json.loads(line) for line in open("record")]
top = json.load(open("top"))
task, = top["tasks"]
assert record[0]["event"] == "start" and record[0]["pid"] == task["pid"], record[0]
assert {x["peer"] for x in record if "peer" in x} == {task["pid"]}
assert task["task"] == "digest" and task["starter"] == record[0]["starter"], task
assert task["in_flight"] == 1 and task["calls_per_second"] > 0 < task["bytes_per_second"], task
assert 0 < task["median_ms"] <= task["p99_ms"] and task["memory"] > 0 < task["starter_memory"], task
assert top["dropped"] == 0 and top["interval"] >= 3, top
PYTHON

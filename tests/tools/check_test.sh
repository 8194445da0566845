#!/usr/bin/env bash
# tavo check against tasks that misbehave in one way each, and the sweep of declared sizes.
# Usage: check_test.sh BUILD_DIRECTORY [EMULATOR...]
set -euo pipefail

build=$(realpath "$1")
puppets=$(realpath "$(dirname "$0")/../puppets")
shift
emulator=("$@")
work=$(mktemp -d)
trap 'wait; rm -rf "$work"' EXIT
unset TAVO_DESK_RECORD
export TAVO_DESK_WRAPPER=''
fail() { echo "FAILED: $*"; exit 1; }

# spawn COMMAND...: runs it in a directory of its own, four at a time: most of them only wait.
jobs=0
spawn() {
  if (( ++jobs > 4 )); then wait -n || :; fi
  mkdir -p "$work/$jobs"/{apps,sockets} && mkdir -m 0700 "$work/$jobs/run"
  cp "$puppets/check_task.py" "$work/$jobs/apps/python"
  (
    cd "$work/$jobs"
    export XDG_RUNTIME_DIR=$PWD/run TAVO_DESK_PATH=$PWD/apps:$build/test_tasks
    "$@"
    touch passed
  ) &
}
# row CODE PATTERN ARGUMENT...: the exit code, and a line of standard output.
row() {
  local code=0
  "${emulator[@]}" "$build/bin/tavo" check "${@:3}" >out 2>errors </dev/null || code=$?
  [[ $code == "$1" ]] && grep -qE -- "$2" out errors || fail "${*:3}: $code, $(<out), $(<errors)"
  [[ -z $(find run -type s) ]] || fail "${*:3} leaves $(find run -type s)"
}
# fault NAME CHECK SEEN: the check that finds the fault, and what it says.
fault() {
  TAVO_TEST_FAULT=$1 row 1 "^FAILED  $2 +$3" python --only "$2" --timeout 10
  [[ $(tail -n 1 out) == '1 check, 1 failed' ]] || fail "$1: $(<out)"
}
# sweep CODE COUNT PATTERN ARGUMENT...: the exit code, and the number of lines.
sweep() {
  local code=0
  env --ignore-signal=CHLD "${emulator[@]}" "$build/bin/tavo-embed" --declare-sweep "${@:4}" \
    >out 2>errors </dev/null || code=$?
  [[ $code == "$1" && $(cat out errors | grep -cE -- "$3") == "$2" ]] || fail "sweep $3: $code, $(<out), $(<errors)"
}

# The sweep: a crash at one size, a hang at the next; exit codes that the program has, too; an
# exception, of which an emulator has the last word; a plug-in that is none.
plugin=$build/test_plugins/c_plugin.so
export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}handle_segv=0  # The signal ends the process.
spawn sweep 1 3 '^(FAILED  application=(56|28): killed by signal 11.*|FAILED  application=(64|32): it hangs.*|73 .*, 2 failed)$' \
  "$plugin" --timeout 1 -- careless
spawn sweep 0 1 '^73 sizes: 54 exited, 19 refused, 0 ran on, 0 failed$' "$plugin" --description <(cat "$puppets/serve.json")
for code in 3 124; do spawn sweep 0 1 '^73 sizes: 54 exited, 19 refused, 0 ran on, 0 failed$' "$plugin" -- exit "$code"; done
spawn sweep 1 1 'with whole tables: killed by signal 6 .* (threw an exception: on purpose|uncaught target signal 6)' "$build/lib/libthrowing_plugin.so"
spawn sweep 3 1 'with whole tables: it does not run: .*: there is no function' "$build/lib/libtest_empty_library.so"
spawn sweep 2 1 '--declare-sweep goes with neither' "$plugin" --offer

# Good tasks: one with the library, one without.
good() {
  row 0 '^[0-9]+ checks, 0 failed$' "$1" --timeout 60
  [[ $(wc -l <out) == 21 ]] || fail "$(<out)"
}
TAVO_DESK_WRAPPER="${emulator[*]}" spawn good wrapper_task
spawn good python

# One fault each.
while IFS='|' read -r name check seen; do spawn fault "$name" "$check" "$seen"; done <<'ROWS'
stays|sigterm|it had to be killed after 5.0 s
stays|starter-gone|it was there after 5.0 s
code|unknown-method|answered with error -32600: no, not with error -32601
code|no-json|after this is no JSON.* it answered with error -32600: no of no request
number|no-json|after this is no JSON.* it sent a text that is no message
notified|notifications|it answered with error -32601: no, id none
late|notifications|it answered with the result null, id handshake_1
dies|no-json|after this is no JSON.* it ended with status 1
dies|no-base64|after .* it ended with status 1
talks|handshake|it sent a line that is no JSON object: hello
garbage|handshake|it sent a text that is no message: CAIB/w==
endless|handshake|it sent a line of more than 32 MiB
twice|in-flight|it answered with error -32601: no, id check_1 
pipe|unread-answers|it was killed by signal 13
binds|leftovers|it left behind the socket .*/left
ROWS
TAVO_TEST_FAULT=vanishes spawn row 1 '^FAILED  unknown-method +the task "python" could not be started' \
  python --only handshake --only unknown-method
TAVO_TEST_FAULT=single spawn row 1 '^FAILED  abrupt-end +it has not exited, and the next connection had no answer' \
  python --only abrupt-end --timeout 3
silent() {
  row 1 '^FAILED  handshake +no answer to the handshake within 500 ms' python --timeout 0.5
  [[ $(grep -c '^not run' out) == 19 ]] || fail "$TAVO_TEST_FAULT: $(<out)"
}
for name in mute flood; do TAVO_TEST_FAULT=$name spawn silent; done
TAVO_TEST_FAULT=dies spawn row 1 '^\{"check":"no-json","ms":[0-9.]+,"ok":false,"seen":"after .* status 1"\}$' \
  python --only no-json --json
spawn row 3 'the task "none" could not be started: there is no such application' none
spawn row 2 '--only: there is no check "none", but handshake, ' python --only none

# A task that leaves a daemon behind. A signal while the check waits for the daemon ends both.
interrupted() {
  "$build/bin/tavo" check python --only leftovers --timeout 60 >out 2>errors &
  local checker=$! code=0
  for (( i = 0; i < 600; ++i )); do [[ ! -s daemon ]] || break; sleep 0.1; done
  kill -TERM $checker
  wait $checker || code=$?
  [[ $code == 143 && -s daemon && ! -e /proc/$(<daemon) ]] || fail "SIGTERM: $code, $(<out), $(<errors)"
}
# User-mode emulation does not know of orphans that come to another process.
if [[ ${#emulator[@]} -eq 0 ]]; then
  export TAVO_TEST_FAULT=spawns
  spawn row 1 '^FAILED  leftovers +it left behind "sleep" \(pid [0-9]+\)' python --only leftovers --timeout 0.5
  spawn interrupted
fi
wait
[[ $(ls "$work"/*/passed | wc -l) == "$jobs" ]]

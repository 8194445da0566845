#!/usr/bin/env bash
# tavo check against tasks that misbehave in one way each, and the sweep of declared sizes.
# Usage: check_test.sh BUILD_DIRECTORY [EMULATOR...]
set -euo pipefail

build=$(realpath "$1")
puppets=$(realpath "$(dirname "$0")/../puppets")
shift
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir -m 0700 run
mkdir apps
export XDG_RUNTIME_DIR=$work/run TAVO_DESK_PATH=$work/apps:$build/test_tasks TAVO_TEST_SOCKET=$work/left
unset TAVO_DESK_RECORD
cp "$puppets/check_task.py" apps/python
fail() { echo "FAILED: $*"; exit 1; }
# row CODE PATTERN ARGUMENT...: the exit code, and a line of standard output.
row() {
  local code=0
  "${emulator[@]}" "$build/bin/tavo" check "${@:3}" >out 2>errors </dev/null || code=$?
  [[ $code == "$1" ]] && grep -qE -- "$2" out errors || fail "${*:3}: $code, $(<out), $(<errors)"
  [[ -z $(find run -type s) ]] || fail "${*:3} leaves $(find run -type s)"
}

# Good tasks: one with the library, one without.
TAVO_DESK_WRAPPER="$*" row 0 '^[0-9]+ checks, 0 failed$' wrapper_task --timeout 60
[[ $(wc -l <out) == 21 ]] || fail "$(<out)"
export TAVO_DESK_WRAPPER=''
row 0 '^[0-9]+ checks, 0 failed$' python --timeout 60

# One fault each: the check that finds it, and what it says.
while IFS='|' read -r fault check seen; do
  TAVO_TEST_FAULT=$fault row 1 "^FAILED  $check +$seen" python --only "$check" --timeout 10
  [[ $(tail -n 1 out) == '1 check, 1 failed' ]] || fail "$fault: $(<out)"
  rm -f left
done <<'ROWS'
code|unknown-method|answered with error -32600: no, not with error -32601
notified|notifications|it answered with error -32601: no, id none
dies|no-json|after this is no JSON.* it ended with status 1
dies|no-base64|after .* it ended with status 1
talks|handshake|it sent a line that is no JSON object: hello
garbage|handshake|it sent a text that is no message: CAIB/w==
endless|handshake|it sent a line of more than 32 MiB
twice|in-flight|it answered with error -32601: no, id check_1 
pipe|unread-answers|it was killed by signal 13
stays|sigterm|it had to be killed after 5.0 s
stays|starter-gone|it was there after 5.0 s
binds|leftovers|it left behind the socket .*/left
ROWS
# User-mode emulation does not know of orphans that come to another process.
if [[ ${#emulator[@]} -eq 0 ]]; then
  TAVO_TEST_FAULT=spawns row 1 '^FAILED  leftovers +it left behind "sleep" \(pid [0-9]+\)' python --only leftovers --timeout 0.5
fi
TAVO_TEST_FAULT=single row 1 '^FAILED  abrupt-end +it has not exited, and the next connection had no answer' \
  python --only abrupt-end --timeout 3
for fault in mute flood; do
  TAVO_TEST_FAULT=$fault row 1 '^FAILED  handshake +no answer to the handshake within 500 ms' python --timeout 0.5
  [[ $(grep -c '^not run' out) == 19 ]] || fail "$fault: $(<out)"
done
TAVO_TEST_FAULT=dies row 1 '^\{"check":"no-json","ms":[0-9.]+,"ok":false,"seen":"after .* status 1"\}$' \
  python --only no-json --json
row 3 'the task "none" could not be started: there is no such application' none
row 2 '--only: there is no check "none", but handshake, ' python --only none

# The sweep: a crash at one size, a hang at the next; an exception; a plug-in that is none.
# sweep CODE COUNT PATTERN ARGUMENT...: the exit code, and the number of lines.
sweep() {
  local code=0
  "${emulator[@]}" "$build/bin/tavo-embed" --declare-sweep --timeout 1 "${@:4}" >out 2>errors </dev/null || code=$?
  [[ $code == "$1" && $(cat out errors | grep -cE -- "$3") == "$2" ]] || fail "sweep $3: $code, $(<out), $(<errors)"
}
plugin=$build/test_plugins/c_plugin.so
export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}handle_segv=0  # The signal ends the process.
sweep 0 1 '^73 sizes: 54 exited, 19 refused, 0 ran on, 0 failed$' "$plugin" --description "$puppets/serve.json"
sweep 1 3 '^(FAILED  application=(56|28): killed by signal 11.*|FAILED  application=(64|32): it hangs.*|73 .*, 2 failed)$' \
  "$plugin" -- careless
sweep 1 1 'with whole tables: killed by signal 6 .* threw an exception: on purpose' "$build/lib/libthrowing_plugin.so"
sweep 3 1 'with whole tables: it does not run: .*: there is no function' "$build/lib/libtest_empty_library.so"
sweep 2 1 '--declare-sweep goes with neither' "$plugin" --offer

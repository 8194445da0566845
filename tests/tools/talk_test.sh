#!/usr/bin/env bash
# The subcommands that talk to tasks: what they print, their exit codes, and that nothing is left.
# Usage: talk_test.sh BUILD_DIRECTORY [EMULATOR...]
set -euo pipefail

build=$(realpath "$1")
shift
emulator=("$@")
work=$(mktemp -d)
server=
trap '[[ -z $server ]] || kill -9 $server 2>/dev/null || true; rm -rf "$work"' EXIT
cd "$work"
mkdir apps more
export XDG_RUNTIME_DIR=$work/run XDG_DATA_HOME=$work/data XDG_DATA_DIRS=$work/data
export TAVO_DESK_PATH=$work/apps:$build/test_tasks:$work/more TAVO_DESK_WRAPPER="$*"
unset TAVO_DESK_RECORD
mkdir -m 0700 run
fail() { echo "FAILED: $*"; exit 1; }
program=("${emulator[@]}" "$build/bin/tavo")
tavo() { "${program[@]}" "$@"; }
nothing_is_left() {
  for _ in $(seq 5000); do
    [[ -z $(find run -type s) ]] && return
    read -rt 0.01 <> <(:) || true
  done
  fail "left behind: $(find run -type s)"
}
# row CODE OUT ERRORS ARGUMENT...: the exit code, the standard output, and a part of standard error.
row() {
  local code=0
  tavo "${@:4}" >out 2>errors </dev/null || code=$?
  [[ $code == "$1" && $(<out) == "$2" ]] || fail "${*:4}: $code, $(<out), $(<errors)"
  if [[ -n $3 ]]; then grep -qF -- "$3" errors || fail "${*:4}: $(<errors)"; else
    [[ ! -s errors ]] || fail "${*:4}: $(<errors)"; fi
}

# Tasks that misbehave.
script() { printf '#!/bin/sh\n%s\n' "$2" >"apps/$1" && chmod +x "apps/$1"; }
script mute 'exec sleep 1000'
script dies 'exit 3'
cp apps/mute more/dies
printf '[Desktop Entry]\nType=Application\nName=x\nExec=/nowhere/x\n' >apps/bad.desktop
export TAVO_DESK_WRAPPER=''
row 3 '' 'tavo call: task "dies" (pid ' call dies m
row 3 '' ' ended with status 3' listen dies
row 3 '' 'unusable Exec line' notify bad m
row 4 '' 'tavo call: the task "mute" has not answered in time' call mute m --timeout 0.1
row 4 '' 'has not read the notification in time' notify mute m --timeout 0.1
row 4 '' 'the time is over' listen mute --timeout 100ms
"${program[@]}" call mute m &
call=$!
until [[ -n $(find run -name 'mute-*') ]]; do read -rt 0.01 <> <(:) || true; done
code=0
kill -TERM $call && wait $call || code=$?
[[ $code == 143 ]] || fail "SIGTERM: $code"
export TAVO_DESK_WRAPPER="$*"
nothing_is_left

# Calls. Parameters come as they are given, and a task sees nothing but what was asked.
wide='{"a":[1,2.5,"x",null,true]}'
row 0 "$wide" '' call wrapper_task echo "$wide"
echo "$wide" >params
row 0 "$wide" '' call wrapper_task echo @params
[[ $(tavo call wrapper_task echo - <params) == "$wide" ]] || fail "standard input"
TAVO_DESK_RECORD=$work/record row 0 null '' call wrapper_task echo
[[ $(grep -c '"direction":"to"' record) == 2 ]] || fail "more than one request: $(<record)"
row 1 '' $'error 5: refused\n{"why":1}' call wrapper_task fail '{"why":1}'
row 1 '' "error -32601: Unknown method 'a\\x1bb()'" call wrapper_task $'a\eb'
row 3 '' ' ended with status 7' call wrapper_task leave
row 4 '' 'has not answered in time' call wrapper_task wait --timeout 0.5
row 3 '' 'tavo call: Application "none" could not be started' call none m
! grep -qF '[info]' errors || fail "the library's log: $(<errors)"
row 0 1 $'{"method":"tick","params":1}\n{"method":"tock","params":2}\n{"method":"tick","params":3}' \
  call wrapper_task talk 1 --notify-out
row 0 1 '' call wrapper_task talk 1
tavo call wrapper_task echo --repeat 20 --in-flight 4 --json >out
grep -qE '^\{"calls":20,"errors":0,"min_ms":[0-9.]+,"median_ms":[0-9.]+,"p99_ms":' out || fail "$(<out)"
tavo call wrapper_task echo --repeat 20 | grep -qE '^p99      [0-9]+\.[0-9]{3} ms$' || fail "no table"

# Who watches the session sees a call.
"${program[@]}" monitor --wait method=echo,kind=response --timeout 60 >seen 2>errors &
monitor=$!
until [[ -n $(find run -path '*/watch/*' -type s) ]]; do
  kill -0 $monitor || fail "monitor: $(<errors)"
  read -rt 0.01 <> <(:) || true
done
tavo call wrapper_task echo '"hey"' >/dev/null
wait $monitor || fail "monitor: $(<errors)"
grep -qE ' wrapper_task\[[0-9]+\] <- echo id[0-9_]+ .* "hey"$' seen || fail "monitor: $(<seen)"

# Wrong command lines; standard output that nobody can write.
row 2 '' 'TASK is required' call
row 2 '' 'tavo call: there is no option "--bogus"' call --bogus=1
row 2 '' '--timeout: "-1" is no number of seconds' call wrapper_task echo --timeout -1
row 2 '' 'NAME: an empty text is no name' intent ''
row 2 '' 'METHOD: an empty text is no name' notify wrapper_task ''
row 2 '' 'tavo call: the JSON: line 1, column 2: syntax error' call wrapper_task echo '{'
row 2 '' 'none: No such file or directory' call wrapper_task echo @none
python3 -c 'print("[" * 2000 + "]" * 2000)' >params
row 2 '' 'nested deeper than 1024' call wrapper_task echo @params
python3 -c 'print("\"" + "x" * 26000000 + "\"")' >params
row 1 '' 'the message is too large' notify wrapper_task echo @params
if [[ -w /dev/full ]]; then
  ! tavo call wrapper_task echo 2>errors >/dev/full && grep -qF 'standard output: No space' errors || fail "full"
fi
exec {closed}> >(:) && wait $!
! tavo call wrapper_task echo 2>errors >&$closed && [[ ! -s errors ]] || fail "nobody reads: $(<errors)"

# Notifications, both ways.
TAVO_DESK_RECORD=$work/notified row 0 '' '' notify wrapper_task poke '"hey"'
[[ $(grep -c '"direction":"from"' notified) == 3 ]] || fail "the notification was not read: $(<notified)"
export TAVO_TEST_TALKS=1
row 0 $'{"method":"tick","params":1}\n{"method":"tick","params":3}' '' listen wrapper_task tick --limit 2
row 0 $'{"method":"tick","params":1}\n{"method":"tock","params":2}\n{"method":"tick","params":3}' '' \
  listen wrapper_task --limit 3
unset TAVO_TEST_TALKS

# Intents: a command answers, without a shell; one that fails is a failure.
serve() {
  : >served
  "${program[@]}" intent --serve "$@" 2>served &
  server=$!
  until grep -q 'is offered' served; do
    kill -0 $server || fail "$*: $(<served)"
    read -rt 0.01 <> <(:) || true
  done
}
stop() {
  kill -INT $server
  wait $server && fail "SIGINT: 0" || [[ $? == 130 ]] || fail "SIGINT"
}
row 3 '' 'no application offers the intent "Count"' intent Count '{}'
serve Count -- python3 -c 'import json, sys; print(json.dumps({"n": len(json.load(sys.stdin)), "args": sys.argv[1:]}))' '[a,b]' --x '$HOME'
row 0 '{"args":["[a,b]","--x","$HOME"],"n":2}' '' intent Count '{"a": 1, "b": 2}'
row 2 '' 'a JSON object is wanted' intent Count '[]'
stop
serve Count -- cat  # More than a pipe holds, both ways.
python3 -c 'print("{\"a\":\"" + "x" * 300000 + "\"}")' >params
row 0 "$(<params)" '' intent Count @params
stop
for command in false 'echo hi' 'echo [1]' /nowhere/x 'head -c 34000000 /dev/zero'; do
  # shellcheck disable=SC2086
  serve Count -- $command
  row 1 '' 'error 32: ' intent Count '{}'
  grep -qF "tavo intent: \"Count\" fails: ${command%% *}: " served ||
    grep -qF 'fails: there is no program "/nowhere/x"' served || fail "$command: $(<served)"
  stop
done
# The time limit and the end of the tool end all processes of a command. A zombie has no command line.
is_gone() { until [[ -z $(tr -d '\0' 2>/dev/null </proc/"$(<left)"/cmdline) ]]; do read -rt 0.01 <> <(:) || true; done; }
serve Count --timeout 1 -- sh -c 'sleep 1000 & echo $! >left; wait'
row 1 '' 'error 32: ' intent Count
grep -qF 'fails: sh: it has not answered in time' served || fail "$(<served)"
stop
is_gone
rm left
serve Count -- sh -c 'sleep 1000 & echo $! >left; wait'
row 4 '' 'was not answered in time' intent Count --timeout 0.5
until [[ -s left ]]; do read -rt 0.01 <> <(:) || true; done
stop
is_gone
TAVO_DESK_OPEN_URI=record TAVO_DESK_RECORD=$work/opened row 0 '' '' open https://example.org
grep -qF '"uri":"https://example.org"' opened || fail "nothing was opened"
TAVO_DESK_OPEN_URI=fail row 1 '' 'tavo open: x: was not opened' open x:

# What can be started, and what hides what.
export TAVO_DESK_PATH=$work/apps:$work/more TAVO_DESK_WRAPPER=''
row 0 "bad   $work/apps/bad.desktop
      cannot be started: $work/apps/bad.desktop: unusable Exec line: there is no program \"/nowhere/x\"
dies  $work/apps/dies
      hides $work/more/dies
mute  $work/apps/mute" '' tasks
tavo tasks --json | python3 -c 'import json, sys; assert json.load(sys.stdin)[1]["hides"]' || fail "JSON"
nothing_is_left

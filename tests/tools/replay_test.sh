#!/usr/bin/env bash
# Tasks that the tool plays (`tavo mock`, `tavo replay --as`), and conversations that it repeats.
# Usage: replay_test.sh BUILD_DIRECTORY [EMULATOR...]
set -euo pipefail

build=$(realpath "$1")
shift
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/run" "$work/a \$b%c\\\"d" && chmod 0700 "$work/run"
cd "$work/a \$b%c\\\"d"
export XDG_RUNTIME_DIR=$work/run XDG_DATA_HOME=$work/data XDG_DATA_DIRS=$work/data
export TAVO_DESK_PATH=$PWD/apps:$build/test_tasks TAVO_DESK_WRAPPER="$*"
unset TAVO_DESK_RECORD
patience=0.5
[[ $# -eq 0 ]] || patience=10  # Seconds; an emulated task connects slowly.
fail() { echo "FAILED: $*"; exit 1; }
tavo() { "${emulator[@]}" "$build/bin/tavo" "$@"; }
# row CODE OUT ERRORS ARGUMENT...: the exit code, the standard output, and a part of standard error.
row() {
  local code=0
  tavo "${@:4}" >out 2>errors </dev/null || code=$?
  [[ $code == "$1" && $(<out) == "$2" ]] || fail "${*:4}: $code, $(<out), $(<errors)"
  if [[ -n $3 ]]; then grep -qF -- "$3" errors || fail "${*:4}: $(<errors)"; else
    [[ ! -s errors ]] || fail "${*:4}: $(<errors)"; fi
}

# ---- A task without code ----
cat >notes.json <<'END'
{"echo": {"result": "$params"},
 "pick": {"result": {"path": "$params.path", "all": ["$params[\"a b\"][1]", "$$params", "$$$params", "$$paramsx"]}},
 "fail": {"error": {"code": 5, "message": "no", "data": ["$params"]}},
 "slow": {"after": "50ms", "result": {"$float32s": [0.5]}},
 "count": {"results": [1, 2, 3]},
 "save": {"result": true, "notify": [{"method": "saved", "params": {"id": "$params.id"}, "after": 0.02},
                                     {"method": "saving"}]},
 "$schedule": [{"method": "tick", "params": "$params", "every": "1ms"}]}
END
row 0 "$PWD/apps/notes.desktop" '' mock --install notes.json apps
row 0 "$PWD/apps/notes.desktop" '' mock --install notes.json apps
row 0 '{"x":[1,2.5]}' '' call notes echo '{"x": [1, 2.5]}'
row 0 '{"all":[7,"$params","$$params","$$paramsx"],"path":"/p"}' '' call notes pick '{"path": "/p", "a b": [6, 7]}'
row 1 '' 'error -32602: params["a b"][1] is missing' call notes pick 7
row 1 '' $'error 5: no\n[null]' call notes fail
row 0 '{"$float32s":[0.5]}' '' call notes slow
row 1 '' "error -32601: Unknown method 'dance()'" call notes dance
row 0 $'{"method":"tick","params":"$params"}\n{"method":"tick","params":"$params"}' '' \
  listen notes tick --limit 2
TAVO_DESK_RECORD=$PWD/count tavo call notes count --repeat 4 >/dev/null
results=$(tavo decode --json --file count | grep -o '"result":.*' | tr -d '\n')
[[ $results == '"result":null}"result":1}"result":2}"result":3}"result":3}' ]] || fail "$results"

# A schedule that is always late holds up neither requests nor the end of the task.
entry='{"method":"tick","every":"1ms"}'
echo "{\"echo\":{\"result\":\"\$params\"},\"\$schedule\":[$entry$(printf ",$entry%.0s" {2..10})]}" >org.busy
tavo mock --install org.busy apps >/dev/null
row 0 7 '' call org.busy echo 7

# Wrong descriptions are told with the place of the fault.
large=$(printf '%020000d' 0)
while IFS='|' read -r description fault; do
  echo "${description/LARGE/$large}" >wrong.json
  row 2 '' "wrong.json: $fault" mock --install wrong.json apps
done <<'ROWS'
{"a": 7}|$.a: an object is wanted
{"a": {"results": []}}|$.a.results: one element at least is wanted
{"a": {"result": 1, "error": {}}}|$.a: one of "result", "results" and "error" is wanted
{"a": {"result": [{"$int32s": [1, "x"]}]}}|$.a.result[0].$int32s[1]: an integer of 32 bits is wanted
{"a": {"result": "$params.b["}}|$.a.result: the path "params.b[": in brackets is a number
{"a": {"result": "$params.*"}}|$.a.result: "$params.*": * stands for no single value
{"a": {"error": {"code": "x", "message": ""}}}|$.a.error.code: an integer of 32 bits is wanted
{"a": {"result": 1, "after": "1h"}}|$.a.after: seconds, or a text such as "200ms"
{"a": {"result": 1, "notify": [{}]}}|$.a.notify[0]: "method" is missing
{"$schedule": [{"method": "m", "every": 0}]}|$.$schedule[0].every: 1 ms is the least
{"$schedule": [{"method": "m", "every": "1ms", "params": "LARGE"}]}|$.$schedule: it sends more than
{"a": {"result": 1, "b": 2}}|$.a.b: there is no such key
{"a": {"result": 1}, "a": {"result": 2}}|
[|line 2, column 1
ROWS
row 2 '' 'nobody has started it as one' mock notes.json
row 2 '' '--install and DIR need each other' mock --install notes.json
row 2 '' 'none.json: No such file' mock --install none.json apps
touch apps/wrong.desktop && echo '{}' >wrong.json
row 1 '' 'wrong.desktop: exists, and tavo has not written it' mock --install wrong.json apps
ln -sf notes.desktop apps/wrong.desktop
row 1 '' 'wrong.desktop: exists, and tavo has not written it' mock --install wrong.json apps
rm apps/wrong.desktop && echo kept >kept && ln -s ../kept apps/wrong.desktop.new
row 0 "$PWD/apps/wrong.desktop" '' mock --install wrong.json apps
[[ $(<kept) == kept && $(ls apps) == $'notes.desktop\norg.busy.desktop\nwrong.desktop\nwrong.desktop.new' ]] || fail "$(ls apps)"

# ---- A conversation again ----
# talk: a record of these calls, TASK METHOD PARAMS.
record() {
  rm -f talk
  while read -r call; do
    # shellcheck disable=SC2086
    TAVO_DESK_RECORD=$PWD/talk tavo call $call >/dev/null 2>&1 || true
  done
}
record <<'CALLS'
notes pick {"path":1,"a_b":[1,2],"x":[1,2]}
notes fail 7
notes dance
CALLS
same='3 messages sent, 3 answers and 0 notifications compared: 0 differences'
row 0 "$same" '' replay talk --against notes --answers-only
row 0 "$same" '' replay talk --against notes --answers-only --fast
connection=$(grep -om1 '"connection":"[^"]*"' talk | cut -d '"' -f 4)
again=(--against notes --answers-only --connection "$connection")
same='1 message sent, 1 answer and 0 notifications compared: 0 differences'
row 0 "$same" '' replay talk "${again[@]}"

# A task that is lost behind the last answer, now alone and then too.
export TAVO_DESK_WRAPPER="$* $build/bin/tavo proxy --kill-after 2,kind=response -- $*"
row 3 '' 'was killed by signal 9' replay talk "${again[@]}"
sed 's/"stopped":true/"stopped":false/' talk >died
[[ $(tavo replay died "${again[@]}" 2>/dev/null) == "$same" ]] || fail "a task that has ended then, too"
export TAVO_DESK_WRAPPER="$*"

echo '{"list": {"result": {"n": 1, "items": [{"id": 1, "time": 5}, {"id": 2, "time": 6}]}},
 "set": {"result": null, "notify": [{"method": "seen", "params": 1}, {"method": "seen", "params": 2}]}}' >keeper.json
tavo mock --install keeper.json apps >/dev/null
record <<'CALLS'
keeper list
keeper set 1
CALLS
row 0 '2 messages sent, 2 answers and 2 notifications compared: 0 differences' '' replay talk --against keeper
echo '{"list": {"result": {"n": {"$int64": 1}, "items": [{"id": 1, "time": 7}, {"id": 2, "time": 8}, 3]}},
 "set": {"result": null, "notify": [{"method": "seen", "params": 1}, {"method": "seen", "params": 3},
                                    {"method": "seen", "params": 4}]}}' >keeper.json
row 1 'talk:5: the answer to "list": result.items[2]
  recorded  (nothing)
  now       3
talk:5: the answer to "list": result.n
  recorded  1
  now       {"$int64":"1"}
talk:13: the notification "seen": params
  recorded  2
  now       3
talk: the notification "seen"
  recorded  (nothing)
  now       {"params":4}
2 messages sent, 2 answers and 2 notifications compared: 4 differences' '' \
  replay talk --against keeper --fast --ignore 'result.items[*].time'
row 0 '2 messages sent, 2 answers and 0 notifications compared: 0 differences' '' \
  replay talk --against keeper --answers-only --ignore result
echo '{"set": {"result": null}}' >keeper.json
row 4 'talk:5: the answer to "list": error
  recorded  (nothing)
  now       {"code":-32601,"message":"Unknown method '"'list()'"'"}
talk:5: the answer to "list": result
  recorded  {"items":[{"id":1,"time":5},{"id":2,"time":6}],"n":1}
  now       (nothing)' 'has not sent the notification "seen" of line 12 in time' \
  replay talk --against keeper --timeout "$patience"
row 3 '' 'could not be started' replay talk --against none

# The task played: answers in their order, and the last one again.
record <<'CALLS'
notes count --repeat 3
wrapper_task talk 1 --notify-out
notes echo {"x":1,"time":2}
CALLS
row 1 '' 'talk: no conversation of "x"; it has those of notes, wrapper_task' replay talk --as x --install apps
tavo replay talk --as wrapper_task --install apps >/dev/null
row 0 1 $'{"method":"tick","params":1}\n{"method":"tock","params":2}\n{"method":"tick","params":3}' \
  call wrapper_task talk 1 --notify-out
row 1 '' 'error -32602: the record has no request "talk" with these parameters' call wrapper_task talk 2
row 1 '' "error -32601: Unknown method 'echo()'" call wrapper_task echo
tavo replay talk --as wrapper_task --install apps --ignore params --pace >/dev/null
row 0 1 '' call wrapper_task talk 2
tavo replay talk --as notes --install apps --ignore params.time >/dev/null && rm -f count
TAVO_DESK_RECORD=$PWD/count tavo call notes count --repeat 4 >/dev/null
results=$(tavo decode --json --file count | grep -o '"result":.*' | tr -d '\n')
[[ $results == '"result":null}"result":1}"result":2}"result":3}"result":3}' ]] || fail "as notes: $results"
row 0 '{"time":2,"x":1}' '' call notes echo '{"x": 1}'

# What names a call of the kit belongs to that call, in whichever order it came; what has no answer
# gets none.
frame() { echo "{\"task\":\"kit\",\"direction\":\"$1\",\"message\":{\"data\":\"$(tavo encode "$2")\"}}"; }
{
  for id in 1 2 3; do
    frame to '{"jsonrpc":"2.0","id":"'$id'","method":"work","params":{"$call":'$id',"of":'$id'}}'
  done
  for id in 2 1; do
    frame from '{"jsonrpc":"2.0","method":"part","params":{"$call":'$id'}}'
    frame from '{"jsonrpc":"2.0","id":"'$id'","result":'$id'}'
  done
} >kit
tavo replay kit --as kit --install apps >/dev/null
row 0 1 '{"method":"part","params":{"$call":7}}' call kit work '{"$call": 7, "of": 1}' --notify-out
[[ $(wc -l <errors) == 1 ]] || fail "of another call: $(<errors)"
row 4 '' 'has not answered in time' call kit work '{"$call": 3, "of": 3}' --timeout 0.2
row 0 '3 messages sent, 2 answers and 2 notifications compared: 0 differences' '' \
  replay kit --against kit --fast

# The beginning of a later conversation is not played, an answer may take as long as it did since its
# request, no limit is for the pause before a request, and a time of 300,000 years is none.
at() { frame "${@:3}" | sed "s/{/{\"connection\":\"$1\",\"monotonic\":$2,/"; }
for connection in 1 2; do
  at $connection 0 from '{"jsonrpc":"2.0","method":"hello","params":'$connection'}'
  at $connection 1000000 to '{"jsonrpc":"2.0","id":"1","method":"list"}'
  at $connection 2900000 from '{"jsonrpc":"2.0","method":"tick"}'
  at $connection 3000000 from '{"jsonrpc":"2.0","id":"1","result":'$connection'}'
  at $connection 9223372036854775807 from '{"jsonrpc":"2.0","method":"end"}'
done >hello
tavo replay hello --as kit --install apps >/dev/null
row 0 '1 message sent, 1 answer and 3 notifications compared: 0 differences' '' \
  replay hello --against kit --connection 1 --fast
echo '{"list": {"after": "900ms", "result": 1}}' >kit.json
tavo mock --install kit.json apps >/dev/null
row 0 "$same" '' \
  replay hello --against kit --connection 1 --answers-only --timeout "$patience"

# Damaged records, wrong command lines.
good=$(wc -l <talk)
half=$(tavo encode '{"jsonrpc":"2.0","id":"1","method":"half","params":[1,2]}')
{
  cat talk
  for data in '?' "${half:0:-4}"; do echo '{"task":"notes","direction":"to","message":{"data":"'"$data"'"}}'; done
  echo '{'
} >damaged
row 1 "$PWD/apps/notes.desktop" "damaged:$((good + 3)): it is not JSON" replay damaged --as notes --install apps
row 0 1 "damaged:$((good + 1)): it is not a Base64 text" call notes count
row 1 '' "error -32601: Unknown method 'half()'" call notes half
echo '{"event":"start","task":"notes","pid":1}' >empty
row 1 '' 'empty: it holds no conversation' replay empty --as notes --install apps
row 1 '' 'none: No such file' replay none --against notes
row 2 '' '--against TASK or --as TASK is wanted' replay talk
row 2 '' '--ignore: the path "a..b": a name is missing' replay talk --against notes --ignore a..b
row 2 '' 'the path "*.x" must begin with "params", "result" or "error"' replay talk --against notes --ignore '*.x'
row 2 '' 'the path "result.x" must begin with "params"' replay talk --as notes --ignore result.x
row 2 '' 'nobody has started it as one' replay talk --as notes
row 2 '' '"../x" is no name of a task' replay talk --as ../x --connection "$(
  grep -om1 '"connection":"[^"]*"' talk | cut -d '"' -f 4)" --install apps

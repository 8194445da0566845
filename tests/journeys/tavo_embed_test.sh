#!/usr/bin/env bash
# The program tavo-embed: what it says of errors, its exit codes, what it offers, steps, signals.
# Usage: tavo_embed_test.sh PROGRAM PLUGIN LIBRARY THROWING [EMULATOR...]
# LIBRARY is not a plug-in; the registration of THROWING throws.
set -euo pipefail

program=$1
plugin=$2
without=$3
throwing=$4
shift 4
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
embed() { "${emulator[@]}" "$program" "$@"; }
fail() { echo "FAILED: $*"; exit 1; }

# expect CODE ERROR WORD...: the exit code, and a part of what is on standard error.
expect() {
  local code=0 expected=$1 error=$2
  shift 2
  embed "$@" >"$work/out" 2>"$work/err" <"${input:-/dev/null}" || code=$?
  [[ $code -eq $expected ]] || fail "exit code $code of: $*: $(cat "$work/err")"
  [[ -z $error ]] || grep -qF -- "$error" "$work/err" || fail "$* says: $(cat "$work/err")"
}

echo 'no library' >"$work/text.so"
expect 2 "the plug-in's file is missing"
expect 2 'there is no option "--unknown"' --unknown
expect 2 '--report: 1 required FILE missing' "$plugin" --report
expect 2 "not expected: $plugin" "$plugin" "$plugin"
expect 2 '--timeout: Value soon not in range 0 to' --timeout soon "$plugin"
expect 2 '"popup=4" is not STRUCTURE=BYTES' --declare popup=4 "$plugin"
expect 2 '"4097" is not a number from 0 to' --declare=view=4097 "$plugin"
expect 2 "$work/none: No such file or directory" --description "$work/none" "$plugin"
expect 2 "$work: Is a directory" --description "$work" "$plugin"
expect 3 'there is no function "FlutterOstrelPluginRegister"' "$without"
expect 2 '/dev/full cannot be written' "$plugin" --report /dev/full -- exit 0
expect 255 "exit code 256 is not within 0 to 255" "$plugin" -- exit 256
expect 3 "$work/none.so: No such file or directory" "$work/none.so"
expect 3 'text.so cannot be loaded' "$work/text.so"
expect 3 'its registration answered 0' "$plugin" -- refuse
expect 3 'its registration threw an exception: on purpose' "$throwing"
expect 124 'the plug-in has not exited in time' "$plugin" --timeout 1 -- stay
expect 0 '' "$plugin" -- exit 0
expect 77 '' "$plugin" -- exit 77
cp "$plugin" "$work/here.so"
(cd "$work" && expect 9 '' here.so -- exit 9)

code=0
embed --offer >/dev/full 2>"$work/err" || code=$?
[[ $code -eq 2 ]] || fail "exit code $code for a full disk"

# Closed descriptors: the report is not mixed with what the plug-in prints.
embed "$plugin" --report "$work/report" -- exit 0 <&- >&- 2>&- || fail "exit code $? with closed descriptors"
grep -q '"action":"Exit"' "$work/report" && ! grep -qv '^{' "$work/report" || fail "$(cat "$work/report")"

# Every older embedder: the plug-in refuses when an entry is missing that it cannot do without.
pointer=$(embed --offer | python3 -c 'import json, sys; print(json.load(sys.stdin)["offered"]["messenger"]["size"] // 5)')
for needed in context=9 application=7 messenger=3; do
  for entries in {0..10}; do
    code=0
    embed "$plugin" --declare "${needed%=*}=$((entries * pointer))" -- exit 0 >"$work/out" 2>&1 || code=$?
    [[ $code -eq $((entries < ${needed#*=} ? 3 : 0)) ]] || fail "exit code $code, $entries of $needed: $(cat "$work/out")"
  done
done

# What is wrong with a description is told with its place.
while IFS='|' read -r text error; do
  printf '%b' "$text" >"$work/description"
  input=$work/description expect 2 "tavo-embed: standard input: $error" --description - "$plugin"
done <<'ROWS'
{\n  "view":\n}|line 3, column 1: syntax error
|line 1, column 1: syntax error
[]|the whole: an object is wanted, not an array
{"vieww": {}}|/vieww: there is no such key
{"view": {"visibility": 9}}|/view/visibility: 9 is not within 1 to 5
{"view": {"width": 4294967296}}|/view/width: 4294967296 is not within
{"view": {"pixel_ratio": 0}}|/view/pixel_ratio: 0 is not within 0.1 to 1000
{"view": {"orientation": 45}}|/view/orientation: 45 is not a multiple of 90
{"view": {"pixel_ratio": 1e999}}|number overflow
{"steps": [{"cease": ""}]}|/steps/0/cease: a "channel" is wanted
{"view": {"theme": {"values": [1]}}}|/view/theme/values: 4 elements are wanted, not 1
{"arguments": ["a", 1]}|/arguments/1: a text is wanted, not a number
{"information": {"4": ""}}|/information/4: there is no such kind
{"declared_sizes": {"texture": -1}}|/declared_sizes/texture: -1 is not within 0 to
{"channels": {"a/b": {"error": {"code": 5}}}}|/channels/a~1b/error/code: a text is wanted
{"steps": [{"message": {"channel": "c", "method": "m", "value": 1}}]}|/steps/0/message/value: there is no such key
{"steps": [{"cease": "c"}, {"exit": 1, "cease": "c"}]}|/steps/1: one key is wanted
{"steps": [{"view": {"type": 4}}]}|/steps/0/view/type: 4 is not within 1 to 3
ROWS

# Everything at once; what is offered can be fed back.
cat >"$work/description" <<'JSON'
{"arguments": ["serve"], "payload": {"a": [1, 2.5, null]}, "channels": {"dart": {"success": "hi"}},
 "view": {"theme": {"texts": ["a", "b", "c", "d"]}}, "main_window_result": {"text": "t"},
 "steps": [
  {"message": {"channel": "echo", "value": {"a": [1, true]}}},
  {"message": {"channel": "echo", "method": "m", "arguments": 5}},
  {"message": {"channel": "ask", "method": "m"}},
  {"expect": {"channel": "dart", "method": "m"}},
  {"wait": 1},
  {"message": {"channel": "echo", "bytes": "//8="}},
  {"message": {"channel": "none", "value": 1}},
  {"message": {"channel": "ask", "method": "m"}},
  {"listen": {"channel": "dart", "answer": {"not_implemented": true}}},
  {"message": {"channel": "ask", "value": 1}},
  {"cease": "dart"},
  {"message": {"channel": "ask", "value": 1}},
  {"view": {"width": 5, "theme": {"flag": true}}},
  {"message": {"channel": "bye", "method": "x"}}]}
JSON
expect 5 '"action":"Exit","exit_code":5' --description "$work/description" --report - "$plugin"
diff - "$work/out" <<'OUT' || fail "the steps"
registered
message echo -> {"a":[1,true]}
message echo m -> not an envelope: {"arguments":5,"method":"m"}
message ask m -> not implemented
dart answers 5 bytes
expect dart -> {"arguments":null,"method":"m"}
wait 1
message echo -> {"bytes":"//8="}
message none -> no handler
message ask m -> not implemented
dart answers 5 bytes
listen dart
message ask -> nothing
dart answers 0 bytes (null)
cease dart
message ask -> nothing
dart answers 5 bytes
view {"width":5,"theme":{"flag":true}}
message bye x -> error {"code":"E","message":"","details":9}
destroyed
OUT
embed --offer --description "$work/description" --declare texture=4 -- more --libs-path /libs >"$work/offer"
embed --offer --description - <"$work/offer" | diff "$work/offer" - || fail "the offer is read differently"
python3 - "$work/offer" <<'PYTHON' || fail "the offer"
import json, sys
offer = json.load(open(sys.argv[1]))
assert offer["arguments"] == ["serve", "--libs-path", "/libs", "more"], offer["arguments"]
assert offer["directories"] == {"1": "/libs"}
texture, view = offer["offered"]["texture"], offer["offered"]["view"]
assert texture["size"] == 4 and len(texture["withheld"]) == 3 and "entries" not in texture
assert view["size"] == view["entries"]["CloseWindow"] and "withheld" not in view
PYTHON
embed --offer --description "$work/description" >"$work/offer"
expect 5 '' --description "$work/offer" "$plugin"

# A step ends the engine, then all of it.
echo '{"arguments": ["stay"], "steps": [{"destroy_engine": true}, {"exit": 4}]}' >"$work/description"
expect 4 '' --description "$work/description" "$plugin"
[[ "$(cat "$work/out")" == $'registered\ndestroy_engine\ndestroyed\nexit 4' ]] || fail "$(cat "$work/out")"

# A message that is expected does not come.
echo '{"arguments": ["stay"], "steps": [{"expect": {"channel": "c", "timeout": 1}}]}' >"$work/description"
expect 4 '' --description "$work/description" "$plugin"

# A signal ends it orderly.
for signal in INT:130 TERM:143; do
  mkfifo "$work/fifo"
  (trap - INT; exec "${emulator[@]}" "$program" "$plugin" -- stay) >"$work/fifo" &
  exec {ready}<"$work/fifo"
  read -r -u "$ready" line && [[ $line == registered ]] || fail "not registered: $line"
  kill -s "${signal%:*}" $!
  code=0
  wait $! || code=$?
  [[ $code -eq ${signal#*:} ]] || fail "exit code $code at a signal"
  read -r -u "$ready" line && [[ $line == destroyed ]] || fail "the engine was not destroyed"
  exec {ready}<&-
  rm "$work/fifo"
done

embed --help | grep -q '^Usage: tavo-embed' || fail "no help"

#!/usr/bin/env bash
# The dump tool: what it prints of each kind of message and value, and what it says of bad input.
# Usage: tavo_dump_test.sh PROGRAM [EMULATOR...]
set -euo pipefail

program=$1
shift
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
dump() { "${emulator[@]}" "$program" "$@"; }
fail() { echo "FAILED: $*"; exit 1; }
base64_of() { sed 's/ //g; s/../\\x&/g' <<<"$1" | { read -r bytes; printf "%b" "$bytes"; } | base64 -w 0; }

# {"jsonrpc": "2.0", "id": "7", "method": "m", "params": {2: 0.5, "b": bytes 01 ff, "t": "a\n\xff"}}
request=$(base64_of "0d04 07026964 070137 07076a736f6e727063 0703322e30 07066d6574686f64 07016d \
0706706172616d73 0d03 0302000000 06 000000000000 000000000000e03f 070162 080201ff 070174 0703610aff")
response=$(base64_of "0d03 07026964 070137 07076a736f6e727063 0703322e30 0706726573756c74 0c03 0101 0c0102")
value=$(base64_of "0902 0000 01000000 ffffffff")

printf '%s\n\n{"data":"%s"}\n  %s\r\n' "$request" "$response" "$value" >"$work/lines"
cat >"$work/expected" <<'TREE'
request "7" "m"
  params: map (3)
    int32 2: float64 0.5
    "b": bytes (2): 01 ff
    "t": text "a\x0a\xff"
response "7"
  result: list (3)
    bool true
    bool true
    list (1)
      bool false
int32 list (2): 1, -1
TREE
dump --file "$work/lines" | diff "$work/expected" - || fail "the tree of a file"
dump <"$work/lines" | diff "$work/expected" - || fail "the tree of standard input"
dump "$request" "{\"data\": \"$response\"}" "$value" | diff "$work/expected" - || fail "of arguments"

cat >"$work/expected" <<'JSON'
{"kind":"response","id":"7","result":{"type":"list","value":[{"type":"bool","value":true},{"type":"bool","value":true},{"type":"list","value":[{"type":"bool","value":false}]}]}}
{"kind":"value","value":{"type":"int32 list","value":[1,-1]}}
JSON
dump --json "$response" "$value" | diff "$work/expected" - || fail "JSON"
dump --json "$request" | python3 -c 'import json, sys; json.load(sys.stdin)' || fail "no JSON"

# What the desk recorded: frames with their origin, intents between them.
frame() { printf '{"direction":"%s","message":{"data":"%s"},"task":"a\\tb","time":"2026-01-02T03:04:05.678Z"}\n' "$@"; }
intent='{"intent":"OpenURI","parameters":{"uri":"x:"},"time":"2026-01-02T03:04:06.000Z"}'
event='{"event":"end","pid":7,"status":3,"task":"a","time":"2026-01-02T03:04:05.000Z"}'
(echo "$event"; frame to "$value"; echo "$intent"; frame from "$response") >"$work/lines"
cat >"$work/expected" <<'TREE'
2026-01-02T03:04:05.000Z a end pid 7 status 3
2026-01-02T03:04:05.678Z a\x09b to
int32 list (2): 1, -1
2026-01-02T03:04:06.000Z intent "OpenURI"
  parameters: {"uri":"x:"}
2026-01-02T03:04:05.678Z a\x09b from
response "7"
  result: list (3)
    bool true
    bool true
    list (1)
      bool false
TREE
dump --file "$work/lines" | diff "$work/expected" - || fail "the tree of a recording"
cat >"$work/expected" <<'JSON'
{"time":"2026-01-02T03:04:05.000Z","task":"a","kind":"event","event":"end","pid":7,"status":3}
{"time":"2026-01-02T03:04:05.678Z","task":"a\tb","direction":"to","kind":"value","value":{"type":"int32 list","value":[1,-1]}}
{"time":"2026-01-02T03:04:06.000Z","kind":"intent","intent":"OpenURI","parameters":{"uri":"x:"}}
JSON
head -n 3 "$work/lines" | dump --json | diff "$work/expected" - || fail "JSON of a recording"

# Bad input is told, and the rest is printed all the same.
code=0
printf 'no base64\n{"data":1}\n{oops\n%s\n{"message":{}}\n{"message":[],"time":"","task":"","direction":""}\n{"intent":"","time":""}\n%s\n' "$(base64_of 0cffffffff03)" "$value" >"$work/lines"
dump <"$work/lines" >"$work/out" 2>"$work/errors" || code=$?
[[ $code -eq 1 ]] || fail "exit code $code"
[[ "$(cat "$work/out")" == "int32 list (2): 1, -1" ]] || fail "$(cat "$work/out")"
cat >"$work/expected" <<'ERRORS'
tavo-dump: line 1: it is not a Base64 text
tavo-dump: line 2: it has no text "data"
tavo-dump: line 3: it is not JSON
tavo-dump: line 4: it declares more than it holds
tavo-dump: line 5: it has no text "time"
tavo-dump: line 6: it has no text "data"
tavo-dump: line 7: it has no "parameters"
ERRORS
diff "$work/expected" "$work/errors" || fail "errors"
code=0
dump --unknown 2>/dev/null || code=$?
[[ $code -eq 2 ]] || fail "exit code $code of a wrong command line"
code=0
dump --file "$work" >"$work/out" 2>"$work/errors" || code=$?
[[ $code -eq 2 && "$(cat "$work/errors")" == "tavo-dump: $work: Is a directory" ]] ||
  fail "exit code $code of a directory: $(cat "$work/errors")"
dump --help | grep -q '^Usage: tavo-dump' || fail "no help"

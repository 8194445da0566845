#!/usr/bin/env bash
# The subcommands decode, encode and generate: what is printed of each kind of message and value, what
# is said of bad input, and that what is generated is well-formed.
# Usage: tavo_test.sh PROGRAM [EMULATOR...]
set -euo pipefail

program=$1
shift
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
tavo() { "${emulator[@]}" "$program" "$@"; }
dump() { tavo decode "$@"; }
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
{"kind":"request","id":"7","method":"m","params":{"$map":[[2,0.5],["b",{"$bytes":"Af8="}],["t",{"$text":"YQr/"}]]}}
{"kind":"response","id":"7","result":[true,true,[false]]}
{"kind":"value","value":{"$int32s":[1,-1]}}
JSON
dump --json "$request" "$response" "$value" | diff "$work/expected" - || fail "JSON"

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
{"time":"2026-01-02T03:04:05.678Z","task":"a\tb","direction":"to","kind":"value","value":{"$int32s":[1,-1]}}
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
tavo decode: standard input:1: it is not a Base64 text
tavo decode: standard input:2: it has no text "data"
tavo decode: standard input:3: it is not JSON: column 2: ...
tavo decode: standard input:4: it declares more than it holds
tavo decode: standard input:5: it has no text "time"
tavo decode: standard input:6: it has no text "data"
tavo decode: standard input:7: it has no "parameters"
ERRORS
sed 's/\(column 2: \).*/\1.../' "$work/errors" | diff "$work/expected" - || fail "errors"

# expect CODE TEXT ARGUMENT...: the program ends so, and says this on standard error.
expect() {
  local code=0
  tavo "${@:3}" </dev/null >/dev/null 2>"$work/errors" || code=$?
  [[ $code == "$1" && $(<"$work/errors") == $2 ]] || fail "${*:3}: ended with $code and said: $(<"$work/errors")"
}
expect 2 '*--unknown*' decode --unknown
expect 2 'tavo: no command is given*'
expect 2 'tavo: there is no command "nonsense"*' nonsense x
expect 2 'tavo encode: not expected: b c*' encode 1 b c
expect 1 'tavo decode: text 1: Invalid read in StandardCodecByteStreamReader (2 faults)' decode "$(base64_of 0c0301)"
expect 1 "tavo decode: $work: Is a directory" decode --file "$work"
expect 1 'tavo decode: : No such file or directory' decode --file ''
expect 2 'tavo encode: the JSON: $.a\[1\].$int64: an integer of 64 bits is wanted' encode '{"a": [1, {"$int64": "x"}]}'
expect 2 'tavo encode: standard input: line 1, column 1: *' encode -
expect 2 "tavo encode: $work: Is a directory" encode "@$work"
printf '1\0' >"$work/json"
expect 2 "tavo encode: $work/json: a NUL is no part of JSON" encode "@$work/json"
expect 2 'tavo embed: *file is missing*' embed
expect 0 '' embed --offer -- more -- words
[[ $(tavo --version) == "tavo "[0-9]* && $(tavo --help) != *generate* ]] || fail "version or help"
! tavo decode "$value" 2>"$work/errors" >/dev/full || fail "a full disk"

# A message is written as the library writes it, unless members would be lost.
row() { [[ $(tavo encode "$1" | tavo decode --json) == "$2" ]] || fail "$1: $(tavo encode "$1" | tavo decode --json)"; }
row '{"method": "m", "jsonrpc": "2.0", "id": 7, "params": null}' '{"kind":"request","id":"7","method":"m","params":null}'
row '{"jsonrpc":"2.0","error":{"code":1,"message":""}}' '{"kind":"error","error":{"code":1,"message":"","data":null}}'
[[ $(tavo encode '{"jsonrpc":"2.0","id":7,"method":"m"}') == "$(tavo encode '{"jsonrpc":"2.0","id":"7","method":"m"}')" ]] ||
  fail "a number as identifier"
tavo encode '{"jsonrpc":"2.0","method":"m","more":1}' | tavo decode | grep -q '"' || fail "a member is lost"
row '{"jsonrpc":"2.0","method":""}' '{"kind":"value","value":{"jsonrpc":"2.0","method":""}}'
echo '[1.5]' >"$work/json"
[[ $(tavo encode "@$work/json") == "$(tavo encode - <"$work/json")" ]] || fail "a file"

# A deep tree is not wider than its depth allows; many keys do not take their square.
python3 - >"$work/lines" <<'PYTHON'
import base64, json
print(base64.b64encode(bytes([12, 1] * 1000 + [12, 255, 0, 0, 16, 0] + [0] * 0x100000)).decode())
print(json.dumps({"data": "AA==", **{str(i): i for i in range(200000)}}))
PYTHON
[[ $(timeout 60 "${emulator[@]}" "$program" decode --file "$work/lines" | wc -c) -lt 200000000 ]] || fail "too much text"

# The completions are scripts, and know each subcommand; the pages are without warnings.
tavo generate "$work/share"
bash -n "$work/share/bash-completion/completions/tavo" || fail "the completion"
(source "$work/share/bash-completion/completions/tavo"
  complete_line() { COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) && _tavo && echo "${COMPREPLY[*]}"; }
  [[ $(complete_line tavo en) == encode && $(complete_line tavo decode --) == '--help --json --file' &&
    $(complete_line tavo --v) == --version && -z $(complete_line tavo diagram -o '') ]]) || fail "completes wrongly"
[[ ! -x /usr/bin/groff ]] || for page in "$work"/share/man/man1/tavo*.1; do
  [[ -z $(groff -man -ww -z "$page" 2>&1) ]] || fail "$page: $(groff -man -ww -z "$page" 2>&1)"
done

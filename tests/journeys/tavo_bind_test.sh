#!/usr/bin/env bash
# The subcommand bind: its page, what it says of bad descriptions and files, and its exit codes. The
# header is compiled and used by tests/tools/bind_test.cpp.
# Usage: tavo_bind_test.sh PROGRAM SOURCE_DIRECTORY [EMULATOR...]
set -euo pipefail

program=$1 source=$2
shift 2
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() { echo "FAILED: $*"; exit 1; }

# expect CODE TEXT ARGUMENT...: the program ends so, and says this and nothing else.
expect() {
  local code=0
  "${emulator[@]}" "$program" bind "${@:3}" >out 2>&1 || code=$?
  [[ $code == "$1" && $(<out) == "$2" ]] || fail "${*:3}: ended with $code and said: $(<out)"
}

expect 0 "" "$source/tests/tools/notes.json" --page page.md
diff "$source/tests/tools/notes.md" page.md || fail "the page"

# bad TEXT JSON
bad() {
  printf '%s' "$2" >bad.json
  expect 1 "tavo bind: bad.json: $1" bad.json --header never.h
  [[ ! -e never.h ]] || fail "a header of a bad description"
}
bad 'the whole: an object is wanted, not an array' '[]'
bad 'the whole: a "name" is wanted' '{}'
bad 'the key "name" stands twice in one object' '{"name": "a", "name": "b"}'
bad '/name: a name of C++ that begins with a small letter is wanted' '{"name": "class"}'
bad '/methds: there is no such key' '{"name": "a", "methds": {}}'
bad '/methods/add/params: there is no type "Noet"' '{"name": "a", "methods": {"add": {"params": "Noet"}}}'
bad '/methods/add/params: a text is wanted, not a number' '{"name": "a", "methods": {"add": {"params": 1}}}'
bad '/methods/$add: letters, digits and . / - _ behind a small letter are wanted' \
  '{"name": "a", "methods": {"$add": {}}}'
bad '/methods/add~1it: the generated code has the name AddIt already' \
  '{"name": "a", "methods": {"add.it": {}, "add/it": {}}}'
bad '/methods/note: the generated code has the name Note already' \
  '{"name": "a", "structs": {"Note": {"id": "int8"}}, "methods": {"note": {}}}'
bad '/notifications/on: a "from" is wanted, which is "client" or "server"' '{"name": "a", "notifications": {"on": {}}}'
bad '/structs/S/b: a type ends with its name, or with [], {} or ?' '{"name": "a", "structs": {"S": {"b": "int8]"}}}'
bad '/structs/S/b: one ? is enough' '{"name": "a", "structs": {"S": {"b": "int8??"}}}'
bad '/structs/T/s: the struct would hold itself; only as a list of its own it may' \
  '{"name": "a", "structs": {"S": {"t": "T"}, "T": {"s": "S[]"}}}'
bad '/structs/S: 1 to 32 fields are wanted' '{"name": "a", "structs": {"S": {}}}'
bad '/structs/S/emit: a name of C++ that begins with a small letter is wanted' \
  '{"name": "a", "structs": {"S": {"emit": "bool"}}}'
bad '/structs/Color: an enum has the same name' '{"name": "a", "enums": {"Color": ["x"]}, "structs": {"Color": {}}}'
bad '/enums/Color/1: the value is there twice' '{"name": "a", "enums": {"Color": ["x", "x"]}}'
bad '/doc: a text without backslashes and control characters is wanted' '{"name": "a", "doc": "\\"}'
printf '{"name": ' >bad.json
code=0
"${emulator[@]}" "$program" bind bad.json 2>out || code=$?
[[ $code == 1 && $(<out) == "tavo bind: bad.json: line 1, column 10: "* ]] || fail "$(<out)"

expect 1 "tavo bind: none.json: No such file or directory" none.json
expect 1 "tavo bind: .: Is a directory" .
expect 1 "tavo bind: no/page.md: No such file or directory" "$source/tests/tools/notes.json" --page no/page.md
code=0
"${emulator[@]}" "$program" bind --unknown 2>/dev/null || code=$?
[[ $code == 2 ]] || fail "exit code $code of a wrong command line"

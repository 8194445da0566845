#!/usr/bin/env bash
# What `tavo monitor` prints of a record, how it follows one, and what it says of damaged ones.
# Usage: monitor_test.sh PROGRAM [EMULATOR...]
set -euo pipefail

program=$1
shift
emulator=("$@")
talk=$(dirname "$0")/talk.jsonl
work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
monitor() { "${emulator[@]}" "$program" monitor "$@"; }
fail() { echo "FAILED: $*"; exit 1; }
expect() { diff "$work/expected" - || fail "$1"; }
until_in() { for _ in {1..600}; do ! grep -qs "$1" "$work/out" || return 0; sleep 0.1; done; fail "no \"$1\""; }

cat >"$work/expected" <<'LINES'
03:00:00.000 - notes[200] -- started
03:00:00.000 100.1 notes[200] -> flrpc.connected id7_1
03:00:00.002 100.1 notes[200] <- flrpc.connected id7_1 1.2 ms null
03:00:00.003 100.1 notes[200] -> save id7_2 {"title":"</script><script>docume...
03:00:00.005 100.1 notes[200] <- progress - {"part":0.5}
03:00:00.024 100.1 notes[200] <- save id7_2 21 ms {"ok":true}
03:00:00.024 100.1 notes[200] -> dance id7_3
03:00:00.024 100.1 notes[200] <- dance id7_3 300 us error -32601: Unknown met...
03:00:00.025 100.1 notes[200] -> stuck id7_4 {"page":7}
03:00:00.026 -     <b>\x1b[31m -> look 9 [1,2]
03:00:00.031 -     <b>\x1b[31m <- look 9 5.0 ms "done"
03:00:00.032 -     -           -- intent OpenURI {"uri":"https://example.org"}
03:00:01.532 -     notes[200]  -- ended with status 3
03:00:00.025 100.1 notes[200]  -> stuck id7_4 no answer for 1.5 s {"page":7}
10 messages, 4 answers (median 5.0 ms, slowest 21 ms), 2 errors, 1 request without an answer
LINES
monitor "$talk" | expect "the lines of a record"
monitor - <"$talk" | expect "the lines of standard input"
monitor --json "$talk" | python3 -c 'import json, sys
lines = [json.loads(line) for line in sys.stdin]
assert lines[5]["latency_us"] == 21200 and lines[5]["result"] == {"ok": True}, lines[5]
assert lines[3]["params"]["title"].endswith("\x1b[2J") and lines[13]["kind"] == "unanswered", lines'

{ cat "$talk" && echo '{"event":"dropped","count":1,"pid":100}'; } >"$work/dropped"
monitor "$work/dropped" | tail -n 1 | grep -q ' 0 requests without' || fail "an answer may be among what was dropped"

# Expressions, and how many lines each of them prints.
while read -r lines expression; do
  [[ $(monitor --json --match "$expression" "$talk" | wc -l) -eq $lines ]] || fail "$expression"
done <<'ROWS'
2 error
1 error,kind=response
3 method=s*,direction=to
2 id=id7_[2-4],kind=response
2 kind=[se]*
11 pid=200
9 pid=100,connection=100.?
0 task=note
ROWS
[[ $(monitor --json --limit 2 --match method=look --match error "$talk" | wc -l) -eq 2 ]] || fail "--limit"

# Exit codes.
while read -r expected arguments; do
  code=0
  (cd "$work" && monitor $arguments >"$work/out" 2>"$work/errors" </dev/null) || code=$?
  [[ $code -eq $expected ]] || fail "exit code $code of $arguments: $(cat "$work/errors")"
done <<ROWS
0 $(realpath "$talk") --wait method=stuck
1 - --wait method=nobody
4 $(realpath "$talk") --wait method=nobody --timeout 50ms
4 missing --wait method=nobody --timeout 50ms
1 missing
1 .
2 x --match term
2 x --match task=a,
2 x --timeout 5
2 x --wait error --limit 1
ROWS

# Damaged lines are told, and the others are printed.
deep=$(printf '[%.0s' {1..5000})
{
  printf '{oops\n[]\n{"time":1}\n%s\n\0\n{"message":7}\n' "$deep"
  for data in DQMH DAz/////////A DQAAAA== AAAA; do
    printf '{"message":{"data":"%s"},"direction":"to","task":"a","monotonic":-9223372036854775808}\n' "$data"
  done
  printf '{"event":"loss","time":"1-1-1T1:1:1","pid":18446744073709551615}\n{"message":null,"size":9,"direction":"to"}'
} >"$work/bad.jsonl"
code=0
monitor "$work/bad.jsonl" >"$work/out" 2>"$work/errors" || code=$?
[[ $code -eq 1 ]] || fail "exit code $code of a damaged record: $(cat "$work/errors")"
for number in {1..6}; do grep -q "/bad.jsonl:$number: " "$work/errors" || fail "line $number: $(cat "$work/errors")"; done
grep -q '9 bytes, which was left out' "$work/out" || fail "$(cat "$work/out")"
grep -q 'is lost' "$work/out" || fail "$(cat "$work/out")"

# A file that does not exist yet, grows in halves of lines, and is written anew.
"${emulator[@]}" "$program" monitor -f --late 1ms "$work/live" >"$work/out" 2>&1 &
line() { sed -n "$1p" "$talk"; }
line 2 >"$work/live"
until_in 'flrpc.connected id7_1$'
until_in 'flrpc.connected id7_1 no answer for [1-9]'
{ line 3 | head -c 20 >>"$work/live"; until_in .; line 3 | tail -c +21 >>"$work/live"; }
until_in 'flrpc.connected id7_1 1.2 ms null'
line 5 >"$work/live"
until_in progress
line 9 >"$work/next"
line 5 >>"$work/live" && mv "$work/next" "$work/live"  # The old file's last line is read as well.
until_in 'stuck id7_4 no answer'
kill -INT $!
wait $! || fail "exit code $? after Ctrl-C"
grep -q '^5 messages, 1 answer (.*), 0 errors, 1 request without' "$work/out" || fail "$(cat "$work/out")"

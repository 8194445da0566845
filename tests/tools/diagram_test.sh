#!/usr/bin/env bash
# What `tavo diagram` draws. With --page, the page is run in a browser.
# Usage: diagram_test.sh [--page] PROGRAM [EMULATOR...]
set -euo pipefail

[[ $1 == --page ]] && { is_page=1; shift; } || is_page=
program=$1
shift
emulator=("$@")
talk=$(dirname "$0")/talk.jsonl
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
diagram() { "${emulator[@]}" "$program" diagram "$@"; }
fail() { echo "FAILED: $*"; exit 1; }

if [[ $is_page ]]; then
  command -v chromium >/dev/null || { echo "SKIPPED: chromium is not installed (script/bootstrap browser)"; exit 77; }
  # 10,000 rows and more; those of the talk come first.
  again=$(sed -n 4,6p "$talk")
  { cat "$talk"; for _ in {1..3334}; do echo "$again"; done; } >"$work/long.jsonl"
  diagram "$work/long.jsonl" -o "$work/page.html"
  cat >>"$work/page.html" <<'PAGE'
<pre id="seen"></pre>
<script>
const seen = line => document.getElementById('seen').append(line, '\n');
const rows = () => document.querySelectorAll('[data-row]').length;
const type = text => { $('filter').value = text; $('filter').dispatchEvent(new Event('input')); };
seen(`drawn a part: ${rows() > 12 && rows() < 100}`);
document.querySelector('[data-row="3"] .label').dispatchEvent(new MouseEvent('click', {bubbles: true}));
seen(`tree: ${document.querySelector('#detail .tree').textContent}`);
document.querySelectorAll('#detail .tree details').forEach(node => node.open = true);
$('detail').querySelector('button').click();
seen(`answer: ${$('detail').querySelector('h2').textContent} ${document.querySelector('.chosen').dataset.row}`);
for (const text of ['method=s*,kind=request', 'task=<*,9', 'uri', 'error', 'nowhere']) {
  type(text);
  seen(`${text.trim()}: ${$('count').textContent}, drawn ${Math.min(rows(), 9)}`);
}
type('');
$('view').scrollTop = 1e9;
draw();
seen(`last: ${document.querySelector('[data-row="10014"]') !== null}, bars ${document.querySelectorAll('.bar').length > 3}`);
seen(`markup: ${document.querySelectorAll('b, #rows script').length}, ${document.title === 'bad'}`);
</script>
PAGE
  chromium --headless --no-sandbox --disable-gpu --user-data-dir="$work/profile" --dump-dom \
    "file://$work/page.html" 2>"$work/errors" >"$work/dom" || fail "$(cat "$work/errors")"
  sed -n '/<pre id="seen">/,/<\/pre>/p' "$work/dom" | sed 's/<[^>]*>//g; /^$/d' >"$work/seen"
  diff - "$work/seen" <<'SEEN' || fail "the page"
drawn a part: true
tree: {2}title: "&lt;/script&gt;&lt;script&gt;document.title='bad'&lt;/script&gt;\u001b[2J"tree: {1}
answer: response save 5
method=s*,kind=request: 3336 of 10015 rows, drawn 9
task=&lt;*,9: 2 of 10015 rows, drawn 2
uri: 1 of 10015 rows, drawn 1
error: 2 of 10015 rows, drawn 2
nowhere: 0 of 10015 rows, drawn 0
last: true, bars true
markup: 0, false
SEEN
  exit
fi

diagram "$talk" --match task=notes >"$work/out"
diff - "$work/out" <<'TEXT' || fail "the text"
              pid 100                                                 notes[200]
03:00:00.000     |                                                  started *
03:00:00.000     |-- flrpc.connected -------------------------------------->|
03:00:00.002     |<.. flrpc.connected 1.2 ms null ..........................|
03:00:00.003     |-- save {"title":"</script><script>document.title='b... ->|
03:00:00.005     |<-- progress {"part":0.5} --------------------------------|
03:00:00.024     |<.. save 21 ms {"ok":true} ...............................|
03:00:00.024     |-- dance ------------------------------------------------>|
03:00:00.024     |<.. dance 300 us error -32601: Unknown method 'dance()' ..|
03:00:00.025     |-- (no answer) stuck {"page":7} ------------------------->|
03:00:01.532     |                                      ended with status 3 *
TEXT
diagram "$talk" -o "$work/talk.mmd"
grep -q '^  L0->>L1: save #123;#34;title#34;#58;#34;#60;#47;script#62;' "$work/talk.mmd" || fail "$(cat "$work/talk.mmd")"
! grep -q '[<"{]' "$work/talk.mmd" || fail "Mermaid: a text is not escaped"
diagram "$talk" -o "$work/talk.svg"
python3 - "$work/talk.svg" <<'SVG' || fail "SVG"
import sys, xml.dom.minidom
picture = xml.dom.minidom.parse(sys.argv[1])
texts = [text.firstChild.data for text in picture.getElementsByTagName("text")]
assert "<b>\\x1b[31m" in texts and "dance" in texts, texts
assert not picture.getElementsByTagName("script") and not picture.getElementsByTagName("b")
SVG

# 70 lanes, a damaged line, and wrong command lines.
for i in {1..70}; do printf '{"message":null,"size":1,"direction":"to","task":"%s"}\n' "$i"; done >"$work/many"
diagram "$work/many" >"$work/out"
head -n 1 "$work/out" | grep -q 'others$' || fail "lanes without limit"
code=0
{ cat "$talk"; echo "{oops"; } | diagram - >"$work/out" 2>"$work/errors" || code=$?
[[ $code -eq 1 && $(wc -l <"$work/out") -eq 14 ]] && grep -q -- '-:14: it is not JSON' "$work/errors" || fail "$(cat "$work/errors")"
for arguments in "" "$talk -o x.png" "$talk --limit 0"; do
  code=0
  diagram $arguments >"$work/out" 2>&1 || code=$?
  [[ $code -eq 2 ]] || fail "exit code $code of $arguments"
done

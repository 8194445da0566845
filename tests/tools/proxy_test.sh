#!/usr/bin/env bash
# What a starter sees of a task behind `tavo proxy`, a row for each rule (docs/reliability.md); that
# the same seed makes the same faults, that little is held for whoever does not read, and that
# nothing is left.
# Usage: proxy_test.sh BUILD_DIRECTORY [EMULATOR...]
set -euo pipefail

build=$(realpath "$1")
shift
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir tmp
mkdir -m 0700 run
export XDG_RUNTIME_DIR=$work/run TMPDIR=$work/tmp TAVO_DESK_PATH=$build/test_tasks
unset TAVO_DESK_RECORD LISTEN_PID
fail() { echo "FAILED: $*"; exit 1; }
processes() { grep -lzs "^XDG_RUNTIME_DIR=$XDG_RUNTIME_DIR$" /proc/[0-9]*/environ | cut -d / -f 3 |
                xargs -r ps -o pid=,args= -p | grep '[w]rapper_task' || true; }
left() { find run tmp -type s -o -name 'tavo-*'; }
# row CODE OUT ERRORS RULES ARGUMENT...: the exit code (a pattern), the standard output, and a pattern
# for standard error, of `tavo ARGUMENT...` with a task behind these rules.
row() {
  local code=0
  TAVO_DESK_WRAPPER="${emulator[*]} $build/bin/tavo proxy $4 -- ${emulator[*]}" \
    "${emulator[@]}" "$build/bin/tavo" "${@:5}" >out 2>errors </dev/null || code=$?
  # shellcheck disable=SC2053
  [[ $code == $1 && $(<out) == $2 && $(<errors) == $3 ]] || fail "${*:4}: $code, $(<out), $(<errors)"
  for _ in $(seq 5000); do
    [[ -z $(left)$(processes) ]] && return
    read -rt 0.01 <> <(:) || true
  done
  fail "${*:4} leaves $(left; processes)"
}
call=(call wrapper_task)
timed=(call wrapper_task echo 1 --repeat 1 --json)
limited=(--timeout "$([[ $# -eq 0 ]] && echo 1 || echo 3)")
late='*has not answered in time*'
lost='*the connection to the task "wrapper_task" is lost'
tick='{"method":"tick","params":1}'
tock='{"method":"tock","params":2}'
last='{"method":"tick","params":3}'

row 0 1 '' '' "${call[@]}" echo 1
row 0 '*"min_ms":[1-9][0-9][0-9]*' '' '--delay from=50ms --delay to=0.05,method=echo' "${timed[@]}"
row 0 1 "$tock" '--delay 60min,method=tick' "${call[@]}" talk 1 --notify-out
row 0 '*"min_ms":[1-9][0-9]*' '' '--slow to=9MiB/s --slow from=1KiB/s' "${timed[@]}"
row 4 '' "$late" '--slow from=1B/s' "${call[@]}" echo 1 "${limited[@]}"
row 0 1 "$tick"$'\n'"$last" "--delay 1ms -- ${emulator[*]} $build/bin/tavo proxy --drop from=task=wrapper_task,method=tock" \
  "${call[@]}" talk 1 --notify-out
row 4 '' "$late" '--drop kind=response,method=echo' "${call[@]}" echo 1 "${limited[@]}"
row 4 '' "$late" '--drop method=flrpc.connected' "${call[@]}" echo 1 "${limited[@]}"
row 0 1 "$tick"$'\n'"$tock"$'\n'"$tock"$'\n'"$last" '--duplicate method=tock' "${call[@]}" talk 1 --notify-out
row 0 1 '*Invalid server response' '--duplicate from=100%,method=flrpc*' "${call[@]}" echo 1
row 4 '' "$late" '--duplicate kind=request,method=echo --drop kind=response,method=echo' "${call[@]}" echo 1 \
  "${limited[@]}"
row 0 1 '*Invalid server response*' '--duplicate --reorder 3 --seed 1' "${call[@]}" echo 1
for seed in 1 2 3 4 5 6; do
  row '[014]' '*' '*' "--corrupt method=echo --seed $seed" "${call[@]}" echo 1 "${limited[@]}"
done
for count in 1 2 3; do
  row 3 '' "$lost" "--cut-after $count" "${call[@]}" echo 1
  row 3 '' '* was killed by signal 9*' "--kill-after $count" "${call[@]}" wait 1  # It has sent no answer.
done
row 0 1 '' '--cut-after 5 --kill-after 2,method=echo,kind=request' "${call[@]}" echo 1
row 3 '' '* ended with status 7' '--delay 10ms' "${call[@]}" leave
row 3 '' '*--drop*"101%" is out of range*ended with status 2*' '--drop 101%' "${call[@]}" echo 1
row 3 '' '*--delay*"soon" is no amount such as 200ms*' '--delay from=soon' "${call[@]}" echo 1
row 3 '' '*more than 4 rules --duplicate*' '--duplicate --duplicate --duplicate --duplicate --duplicate' \
  "${call[@]}" echo 1
row 3 '' '*--corrupt*there is no term "x"*' '--corrupt 1%,x=1' "${call[@]}" echo 1
code=0
"${emulator[@]}" "$build/bin/tavo" proxy -- /nowhere/x 2>errors || code=$?
[[ $code == 3 && $(<errors) == *'descriptor 3'*'tavo proxy: /nowhere/x: No such file'* ]] || fail "$code, $(<errors)"

# Without a desk: a task that sends back what it gets, and a launcher that looks at the bytes.
cat >echo.py <<'PYTHON'
import signal, socket
signal.signal(signal.SIGTERM, lambda *_: exit(9))
listener = socket.socket(fileno=3)
while True:
    with listener.accept()[0] as peer:
        while block := peer.recv(1 << 16):
            peer.sendall(block)
PYTHON
cat >launcher.py <<'PYTHON'
import os, select, signal, socket, sys

def run(rules, talk):
    """Returns what `talk` does with a connection to the task behind these rules."""
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind("socket")
        listener.listen()
        task = os.fork()
        if task == 0:
            os.dup2(listener.fileno(), 3)
            os.set_inheritable(3, True)
            os.environ["LISTEN_PID"] = str(os.getpid())
            command = [*sys.argv[1:], "proxy", *rules.split(), "--", sys.executable, "echo.py"]
            os.execvp(command[0], command)
    with socket.socket(socket.AF_UNIX) as peer:
        peer.connect("socket")
        os.unlink("socket")
        result = talk(peer)
        os.kill(task, signal.SIGTERM)
        status = os.waitstatus_to_exitcode(os.waitpid(task, 0)[1])
        assert status in (9, -signal.SIGTERM), status  # The latter before it has begun.
        try:
            assert peer.recv(1) == b"", "the connection has ended with the task"
        except ConnectionResetError:  # There was more to read for the proxy.
            pass
    return result

def echo(data):
    def talk(peer):
        peer.sendall(data)
        peer.shutdown(socket.SHUT_WR)
        return b"".join(iter(lambda: peer.recv(1 << 16), b""))
    return talk

LINES = b"".join(b"%d\n" % i for i in range(300))
assert run("", echo(LINES + b"half")) == LINES + b"half", "bytes that no rule applies to"
for rule, whole in (("--reorder 3", True), ("--drop 50%", False), ("--corrupt to=50%", False),
                    ("--duplicate from=50%", False)):
    first, again, other = (run(f"{rule} --seed {seed}", echo(LINES)) for seed in (1, 1, 2))
    assert first == again != other and first != LINES, rule
    assert not whole or sorted(first.split()) == sorted(LINES.split()), rule
mixed = run("--reorder 7 --seed 1", echo(LINES + b"half"))
assert mixed.endswith(b"\nhalf") and sorted(mixed.split()) == sorted((LINES + b"half").split()), mixed

def flood(peer):
    """Sends until the proxy takes no more, or has taken too much."""
    peer.setblocking(False)
    taken = 0
    while select.select([], [peer], [], 1)[1] and taken < 64 << 20:
        taken += peer.send(b"x" * 999 + b"\n")
    peer.setblocking(True)
    return taken

assert run("--delay to=60min", flood) < 32 << 20, "a queue is bounded"

def overflow(peer):
    """Sends a line without an end."""
    try:
        for _ in range(40):
            peer.sendall(b"x" * (1 << 20))
    except OSError:
        return True

assert run("", overflow), "a line is bounded"
PYTHON
python3 launcher.py "${emulator[@]}" "$build/bin/tavo" 2>errors || fail "$(<errors)"
grep -qF 'tavo proxy: connection dropped: a line of more than 33554432 bytes' errors || fail "$(<errors)"
[[ -z $(ls -A tmp) ]] || fail "left: $(ls tmp)"

#!/usr/bin/env bash
# What zsh makes of the generated completion, in an interactive shell.
# Usage: zsh_completion_test.sh TAVO [EMULATOR...]
set -euo pipefail

program=$(realpath "$1")
shift
command -v zsh >/dev/null || exit 77
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/files"
touch "$work/files/talk.jsonl"
"$@" "$program" generate "$work/share"
cd "$work/files"

cat >"$work/rows" <<'END'
tavo ca|tavo call |
tavo --v|tavo --version |
tavo call --ti|tavo call --timeout=|
tavo call --timeout 5 --re|tavo call --timeout 5 --repeat=|
tavo monitor |tavo monitor talk.jsonl |
tavo diagram -o |tavo diagram -o talk.jsonl |
tavo decode --file=|tavo decode --file=talk.jsonl |
tavo bind --|tavo bind --|The namespace of the code; the description's name if
tavo monitor --la|tavo monitor --late=|
tavo monitor -|tavo monitor -|With -f: tell a request
END
ZDOTDIR=$work zsh -f -s "$work" <<'END'
work=$1
zmodload zsh/zpty
zpty shell "TERM=dumb zsh -f -i"
zpty -w shell "PS1= fpath=($work/share/zsh/site-functions \$fpath) COLUMNS=200; unsetopt beep
autoload -Uz compinit && compinit -u -D
show() { print -r -- \"<\$BUFFER>\"; BUFFER= }
zle -N show && bindkey '^]' show && print is_\${:-ready}"
zpty -r -m shell text '*is_ready*'
while IFS='|' read -r words expected listed; do
  zpty -w -n shell "$words"$'\t\x1d'
  zpty -r -m shell text '*<*>*'
  [[ $text == *"$listed"*"<$expected>"* ]] || { print -r -- "FAILED: $words: $text"; exit 1 }
done <$work/rows
END

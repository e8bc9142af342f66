#!/usr/bin/env bash
# The bash completion against the built tool: commands and options as the
# tool's own help gives them, services of the store the command line (or
# the environment) names, payload files and directories where they belong,
# nothing where nothing fits, and never a word on the terminal. Runs once
# on plain bash and once more under bash-completion when it is installed.
#
# Usage: bash_completion.sh TOOL COMPLETION_FILE EXAMPLES_DIR [EMULATOR...]
set -euo pipefail
tool=$1 completion=$2 examples=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/tarnwick-test-bus
unset TARNWICK_STORE

# The command as a user types it: a file named tarnwick (through the
# emulator in a cross build).
printf '#!/bin/sh\nexec %s "%s" "$@"\n' "$*" "$tool" >"$work/tarnwick"
chmod +x "$work/tarnwick"
tarnwick=$work/tarnwick

mkdir "$work/store" "$work/files" "$work/files/payloads"
"$tarnwick" --store "$work/store" install "$examples/l2tp.json" >/dev/null
"$tarnwick" --store "$work/store" install "$examples/pptp.json" >/dev/null
# A name whose JSON form escapes a quote and a backslash.
cat >"$work/quoted.json" <<'JSON'
{"PayloadDisplayName": "Quay \"North\" \\ 2", "PayloadIdentifier": "com.example.quay",
 "PayloadUUID": "5D0C3E4F-1A2B-4C5D-8E9F-0A1B2C3D4E5F", "VPNType": "PPTP",
 "PPP": {"CommRemoteAddress": "quay.example.com"}}
JSON
"$tarnwick" --store "$work/store" install "$work/quoted.json" >/dev/null
ids=$("$tarnwick" --store "$work/store" list --json | grep -oE '[0-9a-f]{8}-[0-9a-f-]{27}' | sort)
[ "$(wc -l <<<"$ids")" = 3 ] || {
  echo "bash_completion: expected three services, got: $ids" >&2
  exit 1
}
touch "$work/files/a.json" "$work/files/notes.txt" "$work/files/payloads/b.json"

cat >"$work/cases.sh" <<'CASES'
failures=0
# complete WORDS...: the completions of the last word, sorted, one a line.
complete_words() {
  COMP_WORDS=("$@")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMP_LINE="$*"
  COMP_POINT=${#COMP_LINE}
  COMPREPLY=()
  _tarnwick
  ((${#COMPREPLY[@]} == 0)) || printf '%s\n' "${COMPREPLY[@]}" | sort
}
expect() {
  local what=$1 expected=$2 actual
  shift 2
  actual=$(complete_words "$@")
  if [ "$actual" != "$expected" ]; then
    printf '%s: %s\n  words:    %s\n  expected: %s\n  actual:   %s\n' "$mode" "$what" "$*" \
      "${expected//$'\n'/ }" "${actual//$'\n'/ }" >&2
    failures=$((failures + 1))
  fi
}
lines() { printf '%s\n' "$@" | sort; }

# Commands: every one offered is one the tool runs, the everyday ones are
# there, and the typed prefix and the command path narrow them.
commands=$(complete_words tarnwick '')
for command in $commands; do
  tarnwick "$command" --help >/dev/null 2>&1 || {
    echo "$mode: offered \"$command\", which the tool does not know" >&2
    failures=$((failures + 1))
  }
done
for command in install remove list show get set export dump password secret; do
  grep -qx "$command" <<<"$commands" || {
    echo "$mode: \"$command\" is not offered" >&2
    failures=$((failures + 1))
  }
done
expect "a prefix" "$(lines secret select set)" tarnwick se
expect "a command's own commands" "$(lines export import set)" tarnwick secret ''
expect "after the global options" "$(lines export import set)" \
  tarnwick --json --store "$store" secret ''
expect "no command after an argument" "" tarnwick show x ''

# Options: the command's and the global ones, which hold after any command.
options=$(complete_words tarnwick secret export --)
for option in --encrypted --store --json --help; do
  grep -qx -- "$option" <<<"$options" || {
    echo "$mode: \"$option\" is not offered for secret export: $options" >&2
    failures=$((failures + 1))
  }
done
expect "an option's prefix" "--encrypted" tarnwick secret export --enc

# Services, by identifier and by name (escaped for the shell), of the
# store that --store or TARNWICK_STORE names.
all=$(lines $ids 'Harbour\ Office\ \(L2TP\)' 'Harbour\ Legacy\ \(PPTP\)' \
  'Quay\ \"North\"\ \\\ 2')
expect "services" "$all" tarnwick --store "$store" show ''
expect "services after the command's own options" "$all" \
  tarnwick --store "$store" secret export --encrypted ''
expect "services with --store after the command" "$all" tarnwick show --store "$store" ''
TARNWICK_STORE=$store expect "services of TARNWICK_STORE" "$all" tarnwick show ''
expect "a name's prefix" 'Harbour\ Office\ \(L2TP\)' tarnwick --store "$store" get 'Harbour\ O'
expect "a name with a quote and a backslash" 'Quay\ \"North\"\ \\\ 2' \
  tarnwick --store "$store" select Quay
expect "an identifier's prefix" "$(head -1 <<<"$ids")" \
  tarnwick --store "$store" show "$(head -1 <<<"$ids" | cut -c1-8)"
expect "no store, no services" "" tarnwick --store "$PWD/missing" show ''
expect "no second service" "" tarnwick --store "$store" show x ''
expect "no key" "" tarnwick --store "$store" get x ''

# Files: payloads (and directories) for install, both services and payloads
# for remove, any file for --output, directories for --store.
expect "payload files" "$(lines a.json payloads)" tarnwick install ''
expect "payload files in a directory" "payloads/b.json" tarnwick install payloads/
expect "services and payload files" "$(lines $ids a.json payloads \
  'Harbour\ Office\ \(L2TP\)' 'Harbour\ Legacy\ \(PPTP\)' 'Quay\ \"North\"\ \\\ 2')" \
  tarnwick --store "$store" remove ''
expect "an output file" "$(lines a.json notes.txt payloads)" tarnwick export x -o ''
expect "a store directory" "payloads" tarnwick --store ''
expect "no argument at all" "" tarnwick list ''
expect "a command to describe" "$(lines secret select set)" tarnwick help se

# A tool that is not there gives nothing.
expect "a missing tool" "" ./no-such-tool ''
exit "$failures"
CASES

run() {
  (
    cd "$work/files"
    export PATH="$work:$PATH" mode=$1 store=$work/store ids
    bash -c "$2"'; source "$1"; source "$2"' bash "$completion" "$work/cases.sh" \
      2>"$work/stderr" >"$work/stdout"
  ) || {
    cat "$work/stderr" >&2
    echo "bash_completion: $1: cases failed" >&2
    exit 1
  }
  if [ -s "$work/stdout" ] || [ -s "$work/stderr" ]; then
    echo "bash_completion: $1: the completion printed:" >&2
    cat "$work/stdout" "$work/stderr" >&2
    exit 1
  fi
}
run "plain bash" ":"
bash_completion=/usr/share/bash-completion/bash_completion
if [ -f "$bash_completion" ]; then
  run "bash-completion" "source $bash_completion"
fi
echo "bash_completion: every case passed"

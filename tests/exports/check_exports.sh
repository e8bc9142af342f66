#!/usr/bin/env bash
# Checks the shared library's dynamic symbols against the public interface:
#  1. every exported name carries one of the public prefixes, so nothing of
#     the implementation (C++ symbols above all) leaks;
#  2. every function and constant the public headers declare with TW_EXPORT
#     is exported, so no caller meets an undefined symbol at link time;
#  3. libcrypto and libsystemd are not needed at load time: the library
#     opens them when first called into, so a process starts without them.
# Prints each offending name and exits 1 when any check fails.
#
# Usage: check_exports.sh path/to/libtarnwick.so include-dir
set -euo pipefail

if [[ $# -ne 2 ]]; then
  echo "usage: $0 path/to/libtarnwick.so include-dir" >&2
  exit 2
fi
library=$1
include_dir=$2
headers=("$include_dir/tarnwick.h" "$include_dir"/tarnwick/platform/{values,json,prefs,coffer,log,notify,engine,agent}.h)
for file in "$library" "${headers[@]}"; do
  if [[ ! -r $file ]]; then
    echo "cannot read $file" >&2
    exit 2
  fi
done

public_prefixes='^(JX|__JX|kJX|ZN|kZN|Vlt|kVlt|PV|kPV|SysLog|kSysLog|NC)'

# Defined dynamic symbols, without any version suffix.
exported=$(nm -D --defined-only "$library" | awk 'NF >= 3 { sub(/@.*/, "", $3); print $3 }' |
  LC_ALL=C sort -u)

# Names declared with TW_EXPORT: comments and preprocessor lines are dropped,
# then each declaration up to its ';' gives a function name (the identifier
# before the first parenthesis) or a variable name (the last identifier).
declared=$(perl -0777 -ne '
  s{/\*.*?\*/}{ }gs;
  s{//[^\n]*}{}g;
  s{^[ \t]*#(?:[^\n]*\\\n)*[^\n]*}{}mg;
  while (/\bTW_EXPORT\b([^;]*);/g) {
    my $declaration = $1;
    if ($declaration =~ /\(\s*\*\s*(\w+)\s*\)/ || $declaration =~ /(\w+)\s*\(/) {
      print "$1\n";
    } elsif ($declaration =~ /(\w+)\s*(?:\[[^\]]*\]\s*)?$/) {
      print "$1\n";
    }
  }' "${headers[@]}" | LC_ALL=C sort -u)

if [[ -z $declared ]]; then
  echo "no TW_EXPORT declarations found under $include_dir" >&2
  exit 2
fi

status=0

leaked=$(grep -Ev "$public_prefixes" <<<"$exported" || true)
if [[ -n $leaked ]]; then
  status=1
  echo "exported but not part of the public interface:"
  while read -r name; do
    if [[ $name == _Z* ]] && command -v c++filt >/dev/null; then
      echo "  $name ($(c++filt "$name"))"
    else
      echo "  $name"
    fi
  done <<<"$leaked"
fi

missing=$(LC_ALL=C comm -23 <(echo "$declared") <(echo "$exported"))
if [[ -n $missing ]]; then
  status=1
  echo "declared with TW_EXPORT but not exported:"
  sed 's/^/  /' <<<"$missing"
fi

loaded_at_start=$(objdump -p "$library" | awk '$1 == "NEEDED" { print $2 }' |
  grep -E '^lib(crypto|systemd)\.' || true)
if [[ -n $loaded_at_start ]]; then
  status=1
  echo "needed at load time but opened on first use:"
  sed 's/^/  /' <<<"$loaded_at_start"
fi

if [[ $status -eq 0 ]]; then
  echo "exports match: $(wc -l <<<"$declared") declared names exported, nothing else leaked"
fi
exit $status

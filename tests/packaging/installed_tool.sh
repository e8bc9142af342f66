#!/usr/bin/env bash
# The build installed with `cmake --install` into a fresh prefix: the tool
# finds its own library there with no help from the loader's search path,
# also once the prefix has moved; installs a payload and lists it; the
# manuals, the bash completion and every public header (never the testing
# interface) sit where man, bash and compilers look.
#
# Usage: installed_tool.sh CMAKE BUILD_DIR EXAMPLES_DIR [EMULATOR...]
set -euo pipefail
cmake=$1 build=$2 examples=$3
shift 3
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset LD_LIBRARY_PATH
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/tarnwick-test-bus

fail() {
  echo "installed_tool: $*" >&2
  exit 1
}

"$cmake" --install "$build" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$work/moved"
prefix=$work/moved
tool() { "${emulator[@]}" "$prefix/bin/tarnwick" "$@"; }

if readelf -d "$prefix/bin/tarnwick" | grep -E 'R(UN)?PATH' | grep -q '\[/'; then
  fail "the installed tool's run path is absolute: $(readelf -d "$prefix/bin/tarnwick" | grep PATH)"
fi
tool --help | grep -q '^Usage: tarnwick' || fail "the installed tool does not run"
mkdir "$work/store"
tool --store "$work/store" install "$examples/l2tp.json" >/dev/null
tool --store "$work/store" list | grep -q 'Harbour Office (L2TP)' ||
  fail "the installed tool did not install the example"

for file in share/man/man1/tarnwick.1 share/man/man5/tarnwick-payload.5 \
  share/bash-completion/completions/tarnwick include/tarnwick.h; do
  [ -f "$prefix/$file" ] || fail "$file is not installed"
done
for header in "$(dirname "$0")"/../../include/tarnwick/platform/*; do
  installed=$prefix/include/tarnwick/platform/$(basename "$header")
  if [ "$(basename "$header")" = testing.h ]; then
    [ ! -e "$installed" ] || fail "the testing interface is installed"
  else
    [ -f "$installed" ] || fail "$installed is missing"
  fi
done
echo "installed_tool: the tool runs from a moved prefix"

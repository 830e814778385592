#!/usr/bin/env bash
# The inner loop: builds, then runs the tests that match.
#
#   scripts/try.sh                  everything
#   scripts/try.sh memory           one folder
#   scripts/try.sh memory Arena     cases of that folder whose names match
#   scripts/try.sh --run PROGRAM …  one built program under Wine, with its arguments
#
# QX_PRESET picks the build (default: mingw).
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${QX_PRESET:-mingw}
build=build/$preset

[ -f "$build/build.ninja" ] || cmake --preset "$preset" >/dev/null
${QX_BUILD_WRAPPER:-} ninja -C "$build" --quiet ${QX_TARGETS:-}

. scripts/wine_session.sh
if [ "${1:-}" = --run ]; then
  program=$2
  shift 2
  $wine "$build/bin/$program.exe" "$@"
  exit
fi
select=()
[ $# -ge 1 ] && select+=(-L "^$1\$")
[ $# -ge 2 ] && select+=(-R "$2")
ctest --test-dir "$build" -j2 --output-on-failure --no-tests=error "${select[@]}"

#!/usr/bin/env bash
# Opens the assertion dialog with texts from one word to a screenful and with every team, and saves
# a picture of each for a person to look at.
#
#   scripts/dialog_shots.sh [FOLDER]    default: build/shots
#
# Exit codes: 0 all pictures taken, 1 a dialog did not come or did not go, 2 something is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
out=$(realpath -m "${1:-build/shots}")
program=${QX_BUILD:-build/mingw}/bin/assertions.exe
cases="word short long lines screen teams $(seq 0 13)"

[ -f "$program" ] || { echo "dialog_shots: $program is not built (ninja assertions)" >&2; exit 2; }
shooter=/usr/bin/import
for tool in "$shooter" xdotool; do
  command -v "$tool" >/dev/null && continue
  echo "dialog_shots: $tool is missing (imagemagick, xdotool)" >&2
  exit 2
done

. scripts/wine_session.sh
mkdir -p "$out"

shoot() {
  local case=$1 pid answer
  $wine "$program" --dialog "$case" >"$out/$case.txt" 2>/dev/null &
  pid=$!
  sleep "${QX_SHOT_DELAY:-1.5}"
  kill -0 "$pid" 2>/dev/null || { echo "dialog_shots: no dialog for $case" >&2; return 1; }
  "$shooter" -window root "$out/$case.png"
  xdotool key space  # presses what has the focus: Ignore
  for _ in $(seq 100); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  if kill -0 "$pid" 2>/dev/null; then
    kill "$pid"
    echo "dialog_shots: the dialog for $case does not end by its focused button" >&2
    return 1
  fi
  wait "$pid" || true
  answer=$(tr -d '\r' <"$out/$case.txt")
  rm "$out/$case.txt"
  [ "$answer" = ignore ] || { echo "dialog_shots: $case answered '$answer'" >&2; return 1; }
  echo "  $case.png"
}

for case in $cases; do shoot "$case" || exit 1; done
echo "dialog_shots: $(wc -w <<<"$cases") pictures in $out"

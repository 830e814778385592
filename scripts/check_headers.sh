#!/usr/bin/env bash
# Every public header compiles alone, as a client would include it, and leaves no system macro.
#
#   scripts/check_headers.sh [FOLDER FOR STAMPS [HEADER…]]
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-build/headers}
mkdir -p "$out"
compiler=x86_64-w64-mingw32-g++-posix

check_one() {
  local header=$1
  local stamp="$out/${header//\//_}.ok"
  [ "$stamp" -nt "$header" ] && [ -z "$(find qx -name '*.h' -newer "$stamp" -print -quit)" ] &&
    return
  {
    echo "#include \"$header\""
    [ "$header" = qx/net/socket.h ] || [ "$header" = qx/qx.h ] ||
      printf '#ifdef _WINDOWS_\n#error "%s brings the system headers along"\n#endif\n' "$header"
  } | $compiler -std=gnu++20 -I. -Wall -Wextra -Werror -fsyntax-only -x c++ - && touch "$stamp" ||
    { echo "headers: $header does not stand alone"; return 255; }
}
export -f check_one
export out compiler

mapfile -t headers < <(find qx -name '*.h' ! -name '*_impl.h' ! -path qx/base/windows.h)
[ $# -le 1 ] || headers=("${@:2}")
printf '%s\0' "${headers[@]}" | xargs -0 -P 2 -I{} bash -c 'check_one "$1"' _ {}
echo "headers: ${#headers[@]} stand alone"

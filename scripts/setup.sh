#!/usr/bin/env bash
# Installs what building and testing need on Debian 12, once. Sourced or called by the others.
set -euo pipefail

packages=(
  g++-mingw-w64-x86-64-posix libz-mingw-w64-dev cmake ninja-build ccache googletest
  wine wine64 xvfb xauth xdotool imagemagick gdb-mingw-w64 clang-format python3 git ca-certificates
)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
    missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
if ! { "${as_root[@]}" apt-get update -qq &&
       "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"; } \
     >"$log" 2>&1; then
  tail -n 20 "$log" >&2
  echo "setup: installing packages failed" >&2
  exit 1
fi
rm -f "$log"

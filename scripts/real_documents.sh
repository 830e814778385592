#!/usr/bin/env bash
# Reads XML documents that others wrote - types of files, keyboard layouts, font settings, icons,
# tables of codes, interface descriptions - with both parsers, and compares what they make of them
# with what expat makes of them.
#
#   scripts/real_documents.sh            fetches the packages below into build/documents
#   scripts/real_documents.sh --short    only what the tests' own packages have installed
set -euo pipefail
cd "$(dirname "$0")/.."
packages=(shared-mime-info xkb-data fontconfig-config adwaita-icon-theme iso-codes
  libgirepository1.0-dev)
folder=$PWD/build/documents

fetch() {
  [ -f "$folder/fetched" ] && return
  echo "documents: fetching"
  mkdir -p "$folder/packages"
  if ! (cd "$folder/packages" && apt-get download -qq "${packages[@]}") >/dev/null 2>&1; then
    local as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    "${as_root[@]}" apt-get update -qq >/dev/null
    (cd "$folder/packages" && apt-get download -qq "${packages[@]}")
  fi
  for package in "$folder"/packages/*.deb; do dpkg -x "$package" "$folder/root"; done
  touch "$folder/fetched"
}

list() {
  if [ "${1:-}" = --short ]; then
    set -- /usr/share/X11/xkb/rules /usr/share/fontconfig /etc/fonts /usr/share/mime/packages
  else
    set -- "$folder/root"
  fi
  find "$@" -type f \( -name '*.xml' -o -name '*.svg' -o -name '*.conf' -o -name '*.gir' \) \
    2>/dev/null |
    while read -r name; do
      if head -c 200 "$name" | grep -q '<'; then echo "$name"; fi
    done | sort
}

[ "${1:-}" = --short ] || fetch
list "$@" >build/documents.list || true  # folders may be missing
[ -s build/documents.list ] || { echo "documents: none on this machine"; exit 0; }
[ -n "${WINEPREFIX:-}" ] || . scripts/wine_session.sh
wine=${wine:-/usr/lib/wine/wine64}
build=${QX_BUILD:-build/mingw}
python3 scripts/compare_documents.py --second "$wine" "$build/bin/qxxml.exe" <build/documents.list
python3 scripts/compare_documents.py "$wine" "$build/bin/qxxml.exe" <build/documents.list

# Sourced by scripts that run Windows programs: gives them a Wine prefix of their own, a virtual
# display and a warm server, and takes all three down at exit.
#
#   QX_WINE_DIR   where the prefix lives (default: build/wine)
export WINEPREFIX="${QX_WINE_DIR:-$PWD/build/wine}" WINEARCH=win64 WINEDEBUG="${WINEDEBUG:--all}"
export WINEDLLOVERRIDES="mscoree=d;mshtml=d;winedbg.exe=d" LC_ALL=C.UTF-8
export wine=/usr/lib/wine/wine64
wine_template="${XDG_CACHE_HOME:-$HOME/.cache}/qxlibs/wine-template"

make_wine_template() {
  echo "wine: making a prefix (once, about 15 s)"
  rm -rf "$wine_template.part"
  mkdir -p "$wine_template.part"
  ( export WINEPREFIX="$wine_template.part"
    $wine wineboot -i
    $wine reg add 'HKCU\Software\Wine\Explorer' /v Desktop /t REG_SZ /d Default /f
    $wine reg add 'HKCU\Software\Wine\Explorer\Desktops' /v Default /t REG_SZ /d 1024x768 /f
    wineserver -w ) >/dev/null 2>&1
  mv "$wine_template.part" "$wine_template"
}

start_display() {
  local file
  file=$(mktemp)
  Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$file" >/dev/null 2>&1 &
  xvfb_pid=$!
  while [ ! -s "$file" ]; do sleep 0.05; done
  DISPLAY=:$(cat "$file")
  export DISPLAY
  rm -f "$file"
}

stop_wine_session() {
  wineserver -k >/dev/null 2>&1 || true
  kill "$xvfb_pid" 2>/dev/null || true
}

[ -d "$wine_template" ] || make_wine_template
if [ ! -d "$WINEPREFIX" ]; then
  mkdir -p "$(dirname "$WINEPREFIX")"
  cp -a "$wine_template" "$WINEPREFIX"
fi
start_display
trap stop_wine_session EXIT
wineserver -p >/dev/null 2>&1 || true
$wine cmd /c exit 0 >/dev/null 2>&1

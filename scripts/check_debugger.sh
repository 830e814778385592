#!/usr/bin/env bash
# The debugger views: the natvis file against the headers, and gdb's printers on a program stopped
# at a known line, through Wine's own debugger stub.
set -euo pipefail
cd "$(dirname "$0")/.."
python3 scripts/check_views.py
[ -n "${wine:-}" ] || . scripts/wine_session.sh
export WINEDLLOVERRIDES="mscoree=d;mshtml=d"  # here the system's debugger is wanted
program=build/mingw/bin/debugger_views.exe
shown=build/log/debugger_views.txt
mkdir -p build/log

port=$((20000 + RANDOM % 20000))
$wine winedbg --gdb --no-start --port $port $program >build/log/debugger_stub.log 2>&1 &
timeout 120 x86_64-w64-mingw32-gdb -nx -batch -ex "set sysroot" -ex "file $program" \
  -ex "set tcp connect-timeout 60" \
  -ex "target remote 127.0.0.1:$port" -ex "source tools/debugger/qxlibs_gdb.py" \
  -ex "break show" -ex "continue" -ex "up" -ex "info locals" \
  >build/log/debugger_gdb.log 2>&1 || true
sed -n '/^narrow = /,/^tree = /p' build/log/debugger_gdb.log >$shown

diff - <(sed 's/, tags = /,\n  tags = /g' $shown) <<'END'
narrow = "data\\boot.pack"
empty = ""
wide = "Grüße"
numbers = 3 of 8 = {11, 22, 33}
texts = 1 of 1 = {"data\\boot.pack"}
list = list = {5, 6}
name = "textures\\wall.tga"
tree = <scene> = {attributes = 1 of 8 = {id='7'}, content = "",
  tags = 1 of 8 = {<light> = {attributes = 0 of 0, content = "on",
  tags = 0 of 0, epilog = ""}}, epilog = ""}
END
echo "the printers show $(wc -l <$shown) values as they should"

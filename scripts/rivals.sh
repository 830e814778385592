#!/usr/bin/env bash
# Fetches the published libraries that the benchmarks measure against, from the system's package
# registry, and builds them for Windows under build/rivals/. Nothing of them enters the project.
#
#   scripts/rivals.sh        all of them
#   scripts/rivals.sh lua    Lua alone, which the tests run on lua_alloc
set -euo pipefail
cd "$(dirname "$0")/.."
out=$PWD/build/rivals
prefix=x86_64-w64-mingw32
mkdir -p "$out/packages" "$out/source" "$out/include" "$out/lib"

# Header-only ones come out of their development packages.
headers=(libstb-dev libfmt-dev librapidxml-dev robin-map-dev libfccp-dev)
# These bring a program that makes sources.
makers=(re2c)
# These are built from their source packages.
sources=(pugixml tinyxml2 libyuv mimalloc libdeflate libzip lua5.4)

private_apt() {
  local base=$out/apt
  mkdir -p "$base/lists/partial" "$base/cache/archives/partial" "$base/etc"
  sed 's/^Types: .*/Types: deb deb-src/; s/^deb /deb-src /' \
    /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list \
    2>/dev/null >"$base/etc/rivals.sources" || true
  apt-get -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$base/etc" \
    -o Dir::State::lists="$base/lists" -o Dir::Cache="$base/cache" -o APT::Sandbox::User=root "$@"
}

prepare_fetching() {
  echo "rivals: fetching"
  command -v dpkg-source >/dev/null ||
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends dpkg-dev \
      >/dev/null
  private_apt update -qq
}

fetch_lua() {
  compgen -G "$out/source/lua5.4-*/" >/dev/null && return
  prepare_fetching
  (cd "$out/source" && private_apt source -qq lua5.4 >/dev/null 2>&1)
}

fetch() {
  local wanted="${headers[*]} ${makers[*]} ${sources[*]}"
  [ "$(cat "$out/fetched" 2>/dev/null)" = "$wanted" ] && return
  prepare_fetching
  (cd "$out/packages" && private_apt download -qq "${headers[@]}" "${makers[@]}" &&
    for package in *.deb; do dpkg -x "$package" "$out/packages/root"; done)
  cp -r "$out"/packages/root/usr/include/* "$out/include/"
  (cd "$out/source" && private_apt source -qq "${sources[@]}" >/dev/null 2>&1)
  echo "$wanted" >"$out/fetched"
}

# archive NAME COMPILER-AND-FLAGS -- SOURCES
archive() {
  local name=$1 flags=() objects=()
  shift
  [ -f "$out/lib/lib$name.a" ] && return
  echo "rivals: building $name"
  while [ "$1" != -- ]; do flags+=("$1"); shift; done
  shift
  mkdir -p "$out/obj/$name"
  for source in "$@"; do
    local object=$out/obj/$name/$(basename "$source").o
    "${flags[@]}" -O2 -w -c "$source" -o "$object"
    objects+=("$object")
  done
  $prefix-ar crs "$out/lib/lib$name.a" "${objects[@]}"
}

build_lua() {
  local dir
  dir=$(echo "$out"/source/lua5.4-*/)
  mkdir -p "$out/include/lua"
  cp "$dir"src/*.h "$dir"src/*.hpp "$out/include/lua/" 2>/dev/null || true
  archive lua $prefix-gcc-posix -- $(ls "$dir"src/*.c | grep -vE '/(lua|luac)\.c$')
}

# Its own build makes the headers that tell what the system has. Stored entries need no more of it.
build_libzip() {
  local dir option options=()
  dir=$(echo "$out"/source/libzip-*/)
  cp "$dir"lib/zip.h "$out/include/"
  [ -f "$out/lib/libzip.a" ] && return
  echo "rivals: building zip"
  for option in BUILD_SHARED_LIBS BUILD_TOOLS BUILD_REGRESS BUILD_EXAMPLES BUILD_DOC ENABLE_BZIP2 \
    ENABLE_LZMA ENABLE_COMMONCRYPTO ENABLE_GNUTLS ENABLE_MBEDTLS ENABLE_OPENSSL \
    ENABLE_WINDOWS_CRYPTO; do
    options+=("-D$option=OFF")
  done
  cmake -S "$dir" -B "$out/obj/zip" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64.cmake" -DCMAKE_C_FLAGS=-w "${options[@]}" \
    >"$out/obj/zip.log" 2>&1
  ninja -C "$out/obj/zip" --quiet
  cp "$out/obj/zip/zipconf.h" "$out/include/"
  cp "$out/obj/zip/lib/libzip.a" "$out/lib/"
}

build() {
  local s=$out/source cxx=$prefix-g++-posix cc=$prefix-gcc-posix dir
  dir=$(echo "$s"/pugixml-*/); cp "$dir"src/*.hpp "$out/include/"
  archive pugixml $cxx -- "$dir"src/pugixml.cpp
  dir=$(echo "$s"/tinyxml2-*/); cp "$dir"tinyxml2.h "$out/include/"
  archive tinyxml2 $cxx -- "$dir"tinyxml2.cpp
  dir=$(echo "$s"/mimalloc-*/); cp "$dir"include/*.h "$out/include/"
  archive mimalloc $cc -I"$dir"include -- "$dir"src/static.c
  dir=$(echo "$s"/libdeflate-*/); cp "$dir"libdeflate.h "$out/include/"
  archive deflate $cc -I"$dir" -- "$dir"lib/*.c "$dir"lib/x86/cpu_features.c
  build_lua
  build_libzip
  dir=$(echo "$s"/libyuv-*/); cp -r "$dir"include/* "$out/include/"
  archive yuv $cxx -I"$dir"include -- "$dir"source/*.cc
}

# The lexer that the tokeniser is measured against.
generate() {
  "$out/packages/root/usr/bin/re2c" -W -o "$out/include/generated_lexer.h" benchmarks/data/lexer.re
}

if [ "${1:-}" = lua ]; then
  fetch_lua
  build_lua
else
  fetch
  build
  generate
fi
echo "rivals: ready in $out"

#!/usr/bin/env bash
# Makes the archive, unpacks it into an empty folder, checks that it holds what it should and nothing
# else, and builds and runs the client project against it.
#
#   scripts/check_package.sh    expects a finished build in build/mingw
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/mingw
client=build/client
[ -n "${wine:-}" ] || . scripts/wine_session.sh

cpack --config $build/CPackConfig.cmake >/dev/null
archive=$(ls -t $build/package/QXLibs-*.zip | head -n 1)
rm -rf build/unpacked $client
mkdir -p build/unpacked
(cd build/unpacked && cmake -E tar xf "../../$archive")
unpacked=$PWD/build/unpacked/$(basename "$archive" .zip)

# What a user gets besides the public headers, the documents and the examples.
wanted() {
  printf '%s\n' bin/QXLibs.dll bin/qxpack.exe bin/qxstack.exe bin/qxxml.exe lib/libQXLibs.dll.a \
    lib/cmake/QXLibs/QXLibs{Config,ConfigVersion,Targets,Targets-release}.cmake \
    share/qxlibs/{README.md,CHANGELOG.md,LICENSE} \
    share/qxlibs/debugger/{qxlibs.natvis,qxlibs_gdb.py} include/qx/memory/client_new.cpp
  find qx -name '*.h' ! -name '*_impl.h' ! -path qx/base/windows.h | sed 's:^:include/:'
  find docs examples -type f ! -name exports.txt ! -name CMakeLists.txt ! -name '*.args' |
    sed 's:^:share/qxlibs/:'
}
diff <(wanted | sort) <(cd "$unpacked" && find . -type f | sed 's:^\./::' | sort)

cmake -S tests/client -B $client -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64.cmake" \
  -DCMAKE_PREFIX_PATH="$unpacked" -DCMAKE_BUILD_TYPE=Release >/dev/null
ninja -C $client --quiet
cp "$unpacked/bin/QXLibs.dll" $client/
$wine $client/client.exe

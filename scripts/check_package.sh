#!/usr/bin/env bash
# Makes the archive, unpacks it into an empty folder, checks that it holds what it should and
# nothing else, all of one version, and builds and runs the client project against it.
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
  find qx -name '*.h' ! -name '*_impl.h' |
    grep -vxFf cmake/private_headers.txt | sed 's:^:include/:'
  find docs examples -type f ! -name exports.txt ! -name CMakeLists.txt ! -name '*.args' |
    sed 's:^:share/qxlibs/:'
}
diff <(wanted | sort) <(cd "$unpacked" && find . -type f | sed 's:^\./::' | sort)

# The DLL tells CHANGELOG.md's version, in numbers and in words, and so does the package for CMake.
python3 - "$unpacked" <<'END'
import re, struct, sys
top = sys.argv[1]
heading = re.search(r"^## (\d+\.\d+\.\d+)", open("CHANGELOG.md").read(), re.M)[1]
package = re.search(r'PACKAGE_VERSION "(.*)"',
                    open(f"{top}/lib/cmake/QXLibs/QXLibsConfigVersion.cmake").read())[1]
dll = open(f"{top}/bin/QXLibs.dll", "rb").read()
versions = {"CHANGELOG.md": heading, "QXLibsConfigVersion.cmake": package}
# The fixed block: a signature, its own version 1.0, then file and product, high half first.
at = dll.find(struct.pack("<II", 0xFEEF04BD, 0x10000)) + 8
if at < 8:
    sys.exit("QXLibs.dll has no version")
for i, name in enumerate(("file", "product")):
    low, high, last, third = struct.unpack_from("<4H", dll, at + 8 * i)
    versions[f"{name} version of QXLibs.dll"] = f"{high}.{low}.{third}" + f".{last}" * (last > 0)
for name in ("FileVersion", "ProductVersion"):
    start = dll.find((name + "\0").encode("utf-16-le"), at)
    text = dll[start + 2 * len(name):start + 96].decode("utf-16-le").strip("\0").split("\0")[0]
    versions[f"{name} of QXLibs.dll"] = text
if len(set(versions.values())) > 1:
    sys.exit(f"versions differ: {versions}")
print(f"version {heading} everywhere")
END

cmake -S tests/client -B $client -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64.cmake" \
  -DCMAKE_PREFIX_PATH="$unpacked" -DCMAKE_BUILD_TYPE=Release >/dev/null
ninja -C $client --quiet
cp "$unpacked/bin/QXLibs.dll" $client/
$wine $client/client.exe

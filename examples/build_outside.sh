#!/bin/sh
# build_outside.sh BUILD_DIRECTORY COMPILER: installs the build and makes the example against it: with
# find_package and either library, and with pkg-config. Every installed header must do without the
# ones that aren't installed.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/installed" >/dev/null

mkdir "$work/host"
cp "$here/embed.cpp" "$work/host"
(cd "$work/installed/include/mtf" && find . -name '*.h' | sed 's/.*/#include "&"/') >"$work/host/headers.cpp"
cat >"$work/host/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES CXX)
find_package(mtf REQUIRED)
foreach(kind shared static)
  add_executable(${kind} embed.cpp headers.cpp)
  target_link_libraries(${kind} PRIVATE mtf::mtf_${kind})
endforeach()
END
cmake -G Ninja -S "$work/host" -B "$work/host/build" -DCMAKE_PREFIX_PATH="$work/installed" \
  -DCMAKE_CXX_COMPILER="$2" >/dev/null
cmake --build "$work/host/build" >/dev/null
"$here/run_embed.sh" "$work/host/build/shared"
"$here/run_embed.sh" "$work/host/build/static"

PKG_CONFIG_PATH=$(dirname "$(find "$work/installed" -name mtf.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
"$2" -std=c++17 "$here/embed.cpp" -o "$work/by-pkg-config" $(pkg-config --cflags --libs mtf)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir mtf) "$here/run_embed.sh" "$work/by-pkg-config"

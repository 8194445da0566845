#!/usr/bin/env bash
# A plug-in builds as the documents say with the compilers, standards and generators that users have, from
# the build directories of this machine and of 32-bit ARM, and from the sources.
# Usage: matrix_test.sh BUILD ARM_BUILD
set -euo pipefail

source=$(cd "$(dirname "$0")/../.." && pwd)
native=$(realpath "$1") arm=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$source/examples/first_plugin" "$work/plugin"

# build NAME CMAKE_OPTION...
build() {
  { cmake -S "$work/plugin" -B "$work/$1" "${@:2}" && cmake --build "$work/$1"; } >"$work/log" 2>&1 ||
    { echo "FAILED: $*"; cat "$work/log"; exit 1; }
  echo "$1"
}

for compiler in g++ clang++; do
  for standard in "" 17 20; do
    build "$compiler$standard" -DCMAKE_PREFIX_PATH="$native" -DCMAKE_CXX_COMPILER=$compiler \
      ${standard:+-DCMAKE_CXX_STANDARD=$standard}
  done
done
build makefiles -G "Unix Makefiles" -DCMAKE_PREFIX_PATH="$native"
build armhf -G Ninja -DCMAKE_TOOLCHAIN_FILE="$source/cmake/toolchains/armhf.cmake" \
  -DCMAKE_PREFIX_PATH="$arm"
readelf -h "$work/armhf/libfirst_plugin.so" | grep -q 'Machine: *ARM'

for kind in plugin task app; do
  (cd "$work" && "$native/bin/tavo" new $kind my_$kind && cd my_$kind && cmake --workflow --preset default &&
    cmake --install build --prefix "$work/installed") >"$work/log" 2>&1 ||
    { echo "FAILED: tavo new $kind"; cat "$work/log"; exit 1; }
done
for file in my_task/libmy_task_task.so my_task/libtavo.so my_app/libmy_app_plugin.so; do
  [[ -n $(find "$work/installed" -path "*/$file") ]] || { echo "FAILED: no $file is installed"; exit 1; }
done
TAVO_DESK_PATH=$work/installed/share/applications "$native/bin/tavo" call my_app greet '{"name": "Ostrel"}' \
  2>/dev/null | grep -q 'Hello, Ostrel!'

cat >"$work/plugin/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(taken_in LANGUAGES CXX)
include(FetchContent)
FetchContent_Declare(tavo SOURCE_DIR $source)
FetchContent_MakeAvailable(tavo)
tavo_add_plugin(taken_in first_plugin.cpp)
CMAKE
build fetched -G Ninja
TAVO_DESK_PATH=$native/apps "$native/bin/tavo-embed" "$work/fetched/libtaken_in.so" --timeout 100 \
  >"$work/answer" 2>/dev/null
grep -qx '[0-9a-f]\{64\}' "$work/answer"

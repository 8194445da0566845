#!/usr/bin/env bash
# A plug-in builds as the documents say with the compilers, standards and generators that users have: from
# the unpacked Debian packages of this machine and of 32-bit ARM, from build directories, and from the
# sources.
# Usage: matrix_test.sh BUILD ARM_BUILD, each with its packages/
set -euo pipefail

source=$(cd "$(dirname "$0")/../.." && pwd)
build=$(realpath "$1") arm_build=$(realpath "$2")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$source/examples/first_plugin" "$work/plugin"
cp "$arm_build"/packages/*.deb "$work/plugin"
for package in "$build"/packages/*.deb; do dpkg -x "$package" "$work/native"; done
native=$work/native/usr

# build_as NAME CMAKE_OPTION...
build_as() {
  { cmake -S "$work/plugin" -B "$work/$1" "${@:2}" && cmake --build "$work/$1"; } >"$work/log" 2>&1 ||
    { echo "FAILED: $*"; cat "$work/log"; exit 1; }
  echo "$1"
}

for compiler in g++ clang++; do
  for standard in "" 17 20; do
    build_as "$compiler$standard" -DCMAKE_PREFIX_PATH="$native" -DCMAKE_CXX_COMPILER=$compiler \
      ${standard:+-DCMAKE_CXX_STANDARD=$standard}
  done
done
build_as makefiles -G "Unix Makefiles" -DCMAKE_PREFIX_PATH="$native"
build_as build-directory -DCMAKE_PREFIX_PATH="$build"

# For the device: the commands as they are printed, then with the other compiler and standards.
commands=$(sed -n 's/^       //p' "$source/docs/howto-device.md")
(cd "$work/plugin" && set -x && eval "$commands") >"$work/log" 2>&1 ||
  { echo "FAILED: $commands"; cat "$work/log"; exit 1; }
device=(-G Ninja -DCMAKE_TOOLCHAIN_FILE="$work/plugin/device/usr/share/tavo/armhf.cmake"
  -DCMAKE_PREFIX_PATH="$work/plugin/device/usr")
build_as armhf-20 "${device[@]}" -DCMAKE_CXX_STANDARD=20
for standard in 17 20; do
  build_as "armhf-clang++$standard" "${device[@]}" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_STANDARD=$standard
done
build_as armhf-build-directory -G Ninja -DCMAKE_PREFIX_PATH="$arm_build" \
  -DCMAKE_TOOLCHAIN_FILE="$source/cmake/toolchains/armhf.cmake"
for plugin in "$work"/plugin/build-device/*.so "$work"/armhf-*/*.so; do
  readelf -h "$plugin" | grep -q 'Machine: *ARM' || { echo "FAILED: $plugin is for another machine"; exit 1; }
done

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
build_as fetched -G Ninja
TAVO_DESK_PATH=$build/apps "$native/bin/tavo-embed" "$work/fetched/libtaken_in.so" --timeout 100 \
  >"$work/answer" 2>/dev/null
grep -qx '[0-9a-f]\{64\}' "$work/answer"

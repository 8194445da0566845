#!/usr/bin/env bash
# A device build sees the device's own declarations of the runtime manager, not ours.
# Usage: device_headers_test.sh SOURCE_DIRECTORY
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/include/platform/runtime_manager"
echo '#error the declarations of the device' >"$work/include/platform/runtime_manager/task.h"
cmake -G Ninja -S "$1" -B "$work/build" -DTAVO_DESK=OFF -DTAVO_TESTS=OFF \
  -DTAVO_RUNTIME_MANAGER="$work/libdevice.so" \
  -DTAVO_RUNTIME_MANAGER_INCLUDE="$work/include" >/dev/null
! cmake --build "$work/build" --target src/CMakeFiles/tavo_src.dir/manager.cpp.o >"$work/log" 2>&1
grep -q 'the declarations of the device' "$work/log"

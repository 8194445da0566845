#!/usr/bin/env bash
# What `cmake --install` leaves is enough to build a plug-in and a program of the desk, and to run
# the plug-in as the tree's own build runs it.
# Usage: installed_test.sh SOURCE_DIRECTORY BUILD_DIRECTORY CXX TOOLCHAIN [EMULATOR...]
# TOOLCHAIN is a CMake toolchain file, or empty.
set -euo pipefail

source=$1 build=$2 cxx=$3 toolchain=$4
shift 4
emulator=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
tests=$source/tests/install

fail() { echo "FAILED: $*"; exit 1; }

cmake --install "$build" --prefix "$prefix" >"$work/log" || fail "$(cat "$work/log")"

# Builds a project of its own; nothing of the source tree is on its include path.
build_project() {
  cmake -G Ninja -S "$1" -B "$2" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
    ${toolchain:+"-DCMAKE_TOOLCHAIN_FILE=$toolchain"} ${CXXFLAGS:+"-DCMAKE_CXX_FLAGS=$CXXFLAGS"} \
    >"$work/log" 2>&1 && cmake --build "$2" >"$work/log" 2>&1 || fail "$(cat "$work/log")"
}

for file in man/man1/tavo-decode.1.gz bash-completion/completions/tavo zsh/site-functions/_tavo; do
  [[ -s $prefix/share/$file ]] || fail "no $file"
done

# Every installed header, in one program that uses the desk's library.
mkdir "$work/desk_program"
cp "$tests/desk_program.cpp" "$tests/CMakeLists.txt" "$work/desk_program"
(cd "$prefix/include/tavo" && find . -name '*.h' -printf '#include <%P>\n' | sort) \
  >"$work/desk_program/all_headers.h"
build_project "$work/desk_program" "$work/desk_program/build"
[[ "$("${emulator[@]}" "$work/desk_program/build/desk_program")" == "delivered" ]] ||
  fail "the desk's program says something else"

# Tasks are started by the package's own supervisor; the error names it when it is missing.
libs=$(dirname "$(find "$prefix" -name libruntimemanager.so)")
launch() {
  LD_LIBRARY_PATH=$libs TAVO_DESK_PATH=$build/tasks TAVO_DESK_WRAPPER=${emulator[*]} \
    "${emulator[@]}" "$build/bin/c_launcher" --libs-path "$libs" "$source/README.md" 2>&1 || true
}
[[ "$(launch)" == "$(sha256sum "$source/README.md")" ]] || fail "the launcher says: $(launch)"
mv "$libs/tavo-supervisor" "$work"
[[ "$(launch)" == *"could not be started: its supervisor $libs/tavo-supervisor: "* ]] ||
  fail "without a supervisor the launcher says: $(launch)"
mv "$work/tavo-supervisor" "$libs"

# Plug-ins that link more than the library.
for plugin in digest_plugin digest_server_plugin; do
  cp -r "$source/examples/$plugin" "$work/$plugin"
  build_project "$work/$plugin" "$work/$plugin/build"
done

# The plug-in, once from the tree and once from the package, in the embedder of each.
cp -r "$source/examples/hello_plugin" "$work/hello_plugin"
build_project "$work/hello_plugin" "$work/hello_plugin/build"
hello() {
  code=0
  (cd "$source/examples/hello_plugin" &&
    "${emulator[@]}" "$1/bin/tavo-embed" "$2/libhello_plugin.so" --description hello.json \
      --libs-path /the/libraries --timeout 100) >"$work/actual" 2>"$work/errors" || code=$?
  [[ $code -eq 0 && ! -s "$work/errors" ]] || fail "exit code $code: $(cat "$work/errors")"
  diff "$tests/hello.expected" "$work/actual" || fail "the output differs"
}
hello "$build" "$build/lib"
hello "$prefix" "$work/hello_plugin/build"

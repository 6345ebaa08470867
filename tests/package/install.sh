#!/bin/sh
# install.sh BUILD CONSUMER CXX: an installed tree serves a project of its own, by CMake's package and by pkg-config.
set -eu
build=$1 consumer=$2 cxx=$3
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
cmake --install "$build" --prefix "$tree/usr" >/dev/null
[ -x "$tree/usr/bin/kvfob" ] && "$tree/usr/bin/kvfob" --version >/dev/null
grep -q '^.SH EXIT STATUS' "$tree/usr/share/man/man1/kvfob.1"
bash -n "$tree/usr/share/bash-completion/completions/kvfob"

cmake -S "$consumer" -B "$tree/build" -G Ninja -DCMAKE_PREFIX_PATH="$tree/usr" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build "$tree/build" -- --quiet
for program in shared static simulated; do "$tree/build/$program"; done

pc=$(find "$tree/usr" -name pkgconfig)
[ "$(PKG_CONFIG_PATH=$pc pkg-config --modversion KVFobLink)" = 1.0.0 ]

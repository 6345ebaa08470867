#!/bin/sh
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0
#
# build.sh SOURCES CXX: the library as a part of somebody else's build brings no program, no tests and none of what these
# need, leaves nothing in the root of that build, and comes in the form that was asked for.
set -eu
sources=$1 cxx=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# configure FOLDER OPTION...
configure() {
  folder=$1
  shift
  if command -v ccache >/dev/null; then set -- "$@" -DCMAKE_CXX_COMPILER_LAUNCHER=ccache; fi
  cmake -S "$here" -B "$work/$folder" -G Ninja -DKVFOBLINK_SOURCES="$sources" -DCMAKE_CXX_COMPILER="$cxx" "$@" >"$work/log" 2>&1 ||
    { cat "$work/log"; exit 1; }
  targets=$(ninja -C "$work/$folder" -t targets all | sed 's/: .*//')
}
absent() {
  for target in "$@"; do
    if echo "$targets" | grep -qx "\(.*/\)\?$target"; then echo "there is a target $target"; exit 1; fi
  done
}

# -Werror of the parent shows a warning in a public header; none of ours may come from our own sources.
configure fetched -DPARENT_FETCHES=ON -DBUILD_SHARED_LIBS=ON -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON \
  -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON
absent kvfob toolkit_test plain_c kvfob_help

configure added -DBUILD_SHARED_LIBS=OFF -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON -DCMAKE_CXX_FLAGS=-Werror
absent kvfob toolkit_test
cmake --build "$work/added" -- --quiet app >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
"$work/added/app"
left=$(find "$work/added" -maxdepth 1 -type f ! -name app ! -name 'CMakeCache.txt' ! -name '*.ninja' ! -name '.ninja*' \
  ! -name cmake_install.cmake ! -name compile_commands.json)
[ -z "$left" ] || { echo "in the root of the parent's build: $left"; exit 1; }

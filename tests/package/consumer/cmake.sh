#!/bin/sh
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0
#
# cmake.sh TREE CXX: a project of its own finds an installed tree by find_package, and is told what is wrong when it asks for
# what isn't there.
set -eu
tree=$1 cxx=$2
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

configure() {
  folder=$1
  shift
  cmake -S "$here" -B "$work/$folder" -G Ninja -DCMAKE_PREFIX_PATH="$tree" -DCMAKE_CXX_COMPILER="$cxx" "$@"
}
configure build >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
cmake --build "$work/build" -- --quiet
for program in shared static simulated; do "$work/build/$program"; done

# refused TEXT OPTION...: the configuration fails, and says TEXT.
refused() {
  text=$1
  shift
  if configure refused "$@" >"$work/log" 2>&1; then echo "configured: $*"; exit 1; fi
  rm -rf "$work/refused"
  tr -s ' \n' ' ' <"$work/log" | grep -qF "$text" || { cat "$work/log"; echo "does not say: $text"; exit 1; }
}
refused 'Rader is no component of KVFobLink; Static and Simulator are' -DCONSUMER_COMPONENTS=Rader
refused 'Simulator needs libsystemd, found by pkg-config (Debian: libsystemd-dev and pkg-config)' \
  -DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON
refused 'Simulator needs Mbed TLS (Debian: libmbedtls-dev)' -DMBEDCRYPTO_LIBRARY=MBEDCRYPTO_LIBRARY-NOTFOUND \
  -DCMAKE_SYSTEM_LIBRARY_PATH= -DCMAKE_IGNORE_PATH=/usr/include

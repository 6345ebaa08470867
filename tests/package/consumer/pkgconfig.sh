#!/bin/sh
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0
#
# pkgconfig.sh TREE CXX VERSION: programs are compiled against an installed tree by nothing but its pkg-config files, and
# run: with the shared library and with the static one, with the simulator and without.
set -eu
tree=$1 cxx=$2 version=$3
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$tree" "$work/shared"
cp -r "$tree" "$work/static"
find "$work/static" -name 'libKVFobLink.so*' -exec rm {} +

# try FORM SOURCE MODULE
try() {
  form=$1 source=$2 module=$3 static=
  [ "$form" = shared ] || static=--static
  PKG_CONFIG_PATH=$(find "$work/$form" -name pkgconfig)
  export PKG_CONFIG_PATH
  [ "$(pkg-config --modversion "$module")" = "$version" ] || { echo "$module is not $version"; exit 1; }
  # shellcheck disable=SC2046,SC2086  # lists of options
  "$cxx" -std=c++20 $(pkg-config --cflags "$module") "$here/$source" -o "$work/program" \
    $(pkg-config $static --libs "$module")
  LD_LIBRARY_PATH=$(pkg-config --variable=libdir "$module") "$work/program" ||
    { echo "$source, $form: ended with $?"; exit 1; }
  needs=no
  if readelf -d "$work/program" | grep -q 'NEEDED.*libKVFobLink'; then needs=yes; fi
  case $form-$needs in shared-no | static-yes) echo "$source is not linked to the $form library"; exit 1 ;; esac
  echo "$source, $form: $(pkg-config $static --libs "$module")"
}
for form in shared static; do
  try "$form" main.cpp KVFobLink
  try "$form" simulated.cpp KVFobSimulator
done

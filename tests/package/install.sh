#!/bin/sh
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0
#
# install.sh BUILD TREE: installs a build under a staging folder, as packagers do, and moves what it laid down to TREE.
set -eu
build=$1 tree=$2
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
DESTDIR=$stage cmake --install "$build" --prefix /opt/kvfob >/dev/null
rm -rf "$tree"
mv "$stage/opt/kvfob" "$tree"
left=$(find "$stage" -type f)
[ -z "$left" ] || { echo "installed elsewhere: $left"; exit 1; }

if leaks=$(grep -rlIF -e "$stage" -e "$build" -e /opt/kvfob "$tree"); then
  echo "these tell where they were built or first installed: $leaks"
  exit 1
fi
"$tree/bin/kvfob" --version | grep -q .
grep -q '^.SH EXIT STATUS' "$tree/share/man/man1/kvfob.1"
bash -n "$tree/share/bash-completion/completions/kvfob"
for document in LICENSE CHANGELOG.md docs/pitfalls.md examples/first_app.cpp; do
  [ -f "$tree/share/doc/KVFobLink/$document" ] || { echo "not installed: $document"; exit 1; }
done

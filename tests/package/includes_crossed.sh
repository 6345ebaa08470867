#!/bin/sh
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0
#
# includes_crossed.sh CHECK: the include check passes a sound tree and stops at each kind of crossing.
set -eu
check=$1
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
mkdir -p "$tree"/include/KVFobLink "$tree"/platform/linux/bus "$tree"/protocol "$tree"/toolkit "$tree"/tracker \
  "$tree"/manager "$tree"/simulator "$tree"/apps/one

put() { printf '#include %s\n' "$2" >"$tree/$1"; }
put include/KVFobLink/KVTracker.h '<memory>'
put manager/a.cpp '"tracker/a.h"'
put apps/one/a.cpp '"KVFobLink/KVTracker.h"'
put apps/one/c.cpp '"protocol/a.h"'
put tracker/a.cpp '"protocol/a.h"'
put simulator/a.cpp '"platform/linux/bus/a.h"'
"$check" "$tree"

# crossing FILE INCLUDE
crossing() {
  put "$1" "$2"
  if out=$("$check" "$tree"); then
    echo "passed: $1 includes $2"
    exit 1
  fi
  case $out in
    "$1:1: "*) rm "$tree/$1" ;;
    *) echo "does not name $1: $out"; exit 1 ;;
  esac
}
crossing protocol/b.cpp '"toolkit/a.h"'
crossing protocol/b.cpp '"KVFobLink/KVTracker.h"'
crossing toolkit/b.cpp '"tracker/a.h"'
crossing toolkit/b.cpp '"KVFobLink/KVTracker.h"'
crossing toolkit/b.cpp '<mbedtls/aes.h>'
crossing tracker/b.cpp '"manager/a.h"'
crossing tracker/b.cpp '"platform/linux/a.h"'
crossing platform/b.h '"platform/linux/a.h"'
crossing platform/linux/b.h '"KVFobLink/KVTracker.h"'
crossing platform/linux/bus/b.h '"platform/linux/a.h"'
crossing simulator/b.h '"toolkit/a.h"'
crossing simulator/b.h '"protocol/a.h"'
crossing simulator/b.h '"platform/linux/a.h"'
crossing apps/one/b.cpp '"platform/a.h"'
crossing apps/one/b.cpp '"apps/two/a.h"'
crossing include/KVFobLink/KVb.h '"platform/a.h"'
crossing include/KVFobLink/KVb.h '<unicode/regex.h>'
crossing include/KVFobLink/KVb.h '<poll.h>'

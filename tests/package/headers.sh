#!/bin/sh
# headers.sh INCLUDE CXX CC: every public header compiles alone; the plain ones in C too.
set -eu
cd "$1"
cxx=$2 cc=$3
failed=0
try() { "$@" || { echo "fails: $*"; failed=1; }; }

for compiler in "$cxx" g++ clang++; do
  command -v "$compiler" >/dev/null || continue
  case " ${done:-} " in *" $(command -v "$compiler") "*) continue ;; esac
  done="${done:-} $(command -v "$compiler")"
  try "$compiler" -std=c++20 -Wall -Wextra -Wpedantic -Werror -Wno-pragma-once-outside-header -fsyntax-only -x c++ -I. \
    KVFobLink/*.h KVFobSimulator/*.h
done
try "$cc" -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c -I. \
  KVFobLink/KVVersion.h KVFobLink/KVCrc16.h KVFobLink/KVDeviceInfo.h
exit "$failed"

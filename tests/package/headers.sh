#!/bin/sh
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0
#
# headers.sh INCLUDE CXX CC: every public header compiles alone, by each compiler that is there; the plain ones in C too.
set -eu
cd "$1"
cc=$3
compilers=$(for name in "$2" g++ clang++; do
  if path=$(command -v "$name"); then readlink -f "$path"; fi
done | sort -u)

jobs=
for compiler in $compilers; do
  "$compiler" -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c++ -I. KVFobLink/*.h KVFobSimulator/*.h &
  jobs="$jobs $!"
done
"$cc" -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c -I. \
  KVFobLink/KVVersion.h KVFobLink/KVCrc16.h KVFobLink/KVDeviceInfo.h
for job in $jobs; do wait "$job"; done

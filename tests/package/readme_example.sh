#!/bin/bash
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0
#
# readme_example.sh ROOT: the program in README.md is examples/first_app.cpp without its licence, and short.
set -eu
cd "$1"
program=$(sed '1,/^$/d' examples/first_app.cpp)
sed -n '/^```cpp$/,/^```$/p' README.md | sed '1d;/^```$/,$d' | diff - <(printf '%s\n' "$program")
lines=$(printf '%s\n' "$program" | wc -l)
[ "$lines" -le 40 ] || { echo "first_app.cpp has $lines lines"; exit 1; }

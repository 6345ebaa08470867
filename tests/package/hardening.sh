#!/bin/sh
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0
#
# hardening.sh FORTIFIED LIBRARY PROGRAM: both have the protections that the build asks for; FORTIFIED is what an
# optimised build adds, checked calls, or else nothing.
set -eu
status=0
fortified=$1
shift
# expect FILE WHAT READELF-OPTION PATTERN
expect() {
  readelf -W "$3" "$1" | grep -qE "$4" || { echo "$1: no $2"; status=1; }
}
for file in "$@"; do
  expect "$file" "read-only relocations" -l GNU_RELRO
  expect "$file" "immediate binding" -d '\(FLAGS.*NOW|BIND_NOW'
  expect "$file" "stack protector" -s __stack_chk_fail
  expect "$file" "position independence" -h 'Type:.*DYN'
  expect "$file" "fixed stack rights" -l 'GNU_STACK.* RW '
  [ -z "$fortified" ] || expect "$file" "checked calls" -s "$fortified"
  # An empty entry of the search path stands for the current folder, whosever that is.
  if readelf -dW "$file" | grep -qE 'R(UN)?PATH.*(\[:|::|:\])'; then
    echo "$file: an empty entry in the search path for libraries"
    status=1
  fi
done
exit "$status"

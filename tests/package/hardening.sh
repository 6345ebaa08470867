#!/bin/sh
# hardening.sh LIBRARY PROGRAM: both are linked with the protections that the build asks for.
set -eu
status=0
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
done
exit "$status"

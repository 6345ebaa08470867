#!/bin/sh
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0
#
# abi_planted.sh ABI BASELINE: the check passes what is the same, and refuses a library that lacks what the baseline
# has, or has it with other arguments or in another layout.
set -eu
abi=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
gzip -dc "$2" >"$work/baseline"
"$abi" compare "$work/baseline" "$work/baseline"

# refused WHAT SED: compares with a baseline as it would be had the library changed since.
refused() {
  sed "$2" "$work/baseline" >"$work/changed"
  if cmp -s "$work/baseline" "$work/changed"; then echo "nothing to change for: $1"; exit 1; fi
  if "$abi" compare "$work/changed" "$work/baseline" >/dev/null; then echo "passed: $1"; exit 1; fi
}
refused 'an operation with another argument' 's/_ZN9KVTracker8setStateEl/_ZN9KVTracker8setStateEi/g'
refused 'a plain symbol that has gone' 's/crc16_compute/crc16_computed/g'
refused 'a class of another size' "s/\(class-decl name='KVTrackerMap' size-in-bits='\)64'/\1128'/"
refused 'a virtual function in another place' \
  "s/\(<member-function [^>]*vtable-offset='\)2'/\19'/"

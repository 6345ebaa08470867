#!/bin/sh
# SPDX-FileCopyrightText: The KVFobLink authors
# SPDX-License-Identifier: Apache-2.0
#
# exports.sh LIBRARY INCLUDE: the shared library exports the plain symbols and the classes of the public headers, no more.
set -eu
versioned=$(nm -D --defined-only "$1" | cut -d ' ' -f 3 | grep -vx KVFOBLINK_1)  # the node itself
names=$(echo "$versioned" | sed 's/@.*//')
classes=$(sed -n 's/^\(class\|struct\) KVFOB_EXPORT \(KV[A-Za-z]*\).*/\2/p' "$2"/KVFobLink/*.h | sort -u)
[ -n "$names" ] && [ -n "$classes" ]

status=0
if bare=$(echo "$versioned" | grep -v '@@KVFOBLINK_1$'); then
  printf 'exported without the version node:\n%s\n' "$bare"
  status=1
fi
for plain in gen_crc16 crc16_compute dev_info_decode KVFobLinkVersionString KVFobLinkVersionNumber; do
  echo "$names" | grep -qx "$plain" || { echo "missing: $plain"; status=1; }
done
for class in KVTracker KVTrackerManager KVUtils KVCommandInter KVCommonTool KVPlatform KVLinuxPlatform; do
  echo "$names" | c++filt | grep -q "^$class::" || { echo "missing: $class"; status=1; }
done

known=$(echo "$classes" | paste -sd '|')
extra=$(echo "$names" | grep '^_Z' | c++filt |
  grep -vE "^(vtable for |VTT for |typeinfo for |typeinfo name for |non-virtual thunk to |virtual thunk to )?($known)(::|$)" || true)
extra="$extra$(echo "$names" | grep -v '^_Z' |
  grep -vxE 'gen_crc16|crc16_compute|dev_info_decode|KVFobLinkVersion(String|Number)' || true)"
internal=$(echo "$names" | c++filt | grep -E 'kv::|kvsim::' || true)
for kind in "$extra" "$internal"; do
  [ -z "$kind" ] || { printf 'internal names are exported:\n%s\n' "$kind"; status=1; }
done
exit "$status"

#!/usr/bin/env bash
# The library exports what it promises: one C symbol and our four namespaces, nothing else.
# Which ones in each namespace is script/abi's to compare.
# Usage: exports_test.sh LIBTAVO NM READELF
set -euo pipefail

library=$1 nm=$2 readelf=$3
exported=$("$nm" -D --defined-only --format=posix "$library" | cut -d ' ' -f 1 | sed 's/@.*//')

c_symbols=$(grep -v '^_Z' <<<"$exported" || true)
[[ "$c_symbols" == TAVOProcTableLoad ]] || { echo "C symbols: $c_symbols"; exit 1; }

ours='^_Z(T[VISTC]|Th[n0-9]+_|Tv[n0-9_]+_|GV|GVZ|Z)?N?K?[RO]?(5forge|5flrpc|2cw|4tavo)'
if foreign=$(grep '^_Z' <<<"$exported" | grep -vE "$ours"); then
  echo "Foreign symbols:"; c++filt <<<"$foreign"; exit 1
fi

# What hidden visibility or a wrong pattern of the map would lose first.
for symbol in _ZTVN5forge11IDispatcherE _ZTIN5forge11IDispatcherE _ZTSN5forge11IDispatcherE \
              _ZNK5forge6Buffer8ToBase64B5cxx11Ev _ZN5forge6Buffer9WriteByteEh; do
  grep -qx "$symbol" <<<"$exported" || { echo "Not exported: $symbol"; exit 1; }
done

# Service internals stay inside.
if internal=$(grep -E 'RpcClientImpl|MessageChannel|details7Manager' <<<"$exported"); then
  echo "Internals are exported:"; c++filt <<<"$internal"; exit 1
fi

dynamic=$("$readelf" -d "$library")
grep -q NODELETE <<<"$dynamic" || { echo "The library may be unloaded"; exit 1; }
! grep -E 'R(UN)?PATH.*(\[:|::|:\])' <<<"$dynamic" || { echo "The run path has an empty element"; exit 1; }
! grep -q TEXTREL <<<"$dynamic" || { echo "The library has relocations in its text"; exit 1; }

#!/usr/bin/env bash
# Holds the built shared library against its promises: exactly the listed names are exported, only
# the C library is needed, nothing of a C++ runtime is wanted, and no code runs at load time.
# usage: exports.sh libvnlib.so libvnlib.map sanitizers
set -euo pipefail
library=$1 map=$2 sanitize=${3:-}
failures=0
fail() { printf 'FAIL: %s\n' "$*"; failures=$((failures + 1)); }

# The names between "global:" and "local:", without comments and patterns.
listed=$(sed -n '/global:/,/local:/p' "$map" | sed 's/#.*//' | grep -oE '[A-Za-z_0-9]+(\*)?;' |
  grep -v '\*' | tr -d ';' | sort)
# glibc's tool chain adds no names of its own to a library with a version script but the version.
exported=$(nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort)
if ! difference=$(diff <(echo "$listed") <(echo "$exported")); then
  fail "the exported names differ from $map (<: listed, >: exported)"
  echo "$difference"
fi

soname=$(readelf -d "$library" | sed -nE 's/.*\(SONAME\).*\[(.*)\]/\1/p')
[ "$soname" = libvnlib.so.1 ] || fail "the soname is '$soname'"

if [ -z "$sanitize" ]; then
  needed=$(readelf -d "$library" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p')
  for name in $needed; do
    case $name in
      libc.so* | libpthread.so* | libc.musl-*) ;;
      *) fail "needs $name" ;;
    esac
  done
  if runtime=$(nm -D --undefined-only "$library" | awk '{ print $NF }' |
       grep -E '^(_Zn|_Zd|_ZSt|_ZNSt|__cxa_|__gxx_|_Unwind_)' | grep -v '^__cxa_finalize'); then
    fail "wants the C++ runtime: $runtime"
  fi
  if constructors=$(nm "$library" | grep -E ' [tT] _(GLOBAL__sub_[ID]_|_static_initialization)'); then
    fail "runs code at load time: $constructors"
  fi
fi

[ "$failures" = 0 ] && echo "exports: $(echo "$listed" | wc -l) names, soname $soname, as promised"
exit $((failures > 0))

#!/usr/bin/env bash
# Holds the built library's functions, variables and public records against the recorded binary
# interface. A compatible addition passes with a note; `./dev abi-update` renews the record.
# usage: abi_record_test.sh libvnlib.so include-directory record
set -euo pipefail
library=$1 include=$2 record=$3
command -v abidiff >/dev/null || { echo "SKIP: abidiff (abigail-tools) is not installed"; exit 77; }
status=0
abidiff --headers-dir2 "$include" --drop-private-types "$record" "$library" || status=$?
# abidiff's bits: 1 and 2 an error of its own, 4 a difference, 8 an incompatible one.
if [ $((status & 11)) != 0 ]; then
  echo "FAIL: the binary interface differs from the record (abidiff status $status)"
  exit 1
fi
[ "$status" = 0 ] || echo "the binary interface has grown; record it with ./dev abi-update"
echo "the binary interface is as recorded"

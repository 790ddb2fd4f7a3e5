#!/usr/bin/env bash
# Holds the built library's functions, variables and public records against the recorded binary
# interface. Only an addition passes, with a note; `./dev abi-update` renews the record.
# usage: abi_record_test.sh libvnlib.so include-directory record
set -euo pipefail
library=$1 include=$2 record=$3
command -v abidiff >/dev/null || { echo "SKIP: abidiff (abigail-tools) is not installed"; exit 77; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# Two records are compared: told to leave out private records of a library, abidiff takes all those
# of a record for private, as no header is known for them.
"$(dirname "${BASH_SOURCE[0]}")/../tools/abi_record.sh" "$library" "$include" >"$scratch/now.abi"
# Its status knows "incompatible" for little more than removed names; a moved field is a mere change.
if ! abidiff --no-added-syms "$record" "$scratch/now.abi"; then
  echo "FAIL: the binary interface differs from the record"
  exit 1
fi
abidiff "$record" "$scratch/now.abi" || echo "the binary interface has grown; record it with ./dev abi-update"
echo "what was recorded of the binary interface is as it was"

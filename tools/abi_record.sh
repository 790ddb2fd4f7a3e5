#!/usr/bin/env bash
# Prints the binary interface of a built library: its functions, variables and public records.
# usage: abi_record.sh libvnlib.so include-directory
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
abidw --headers-dir "$2" --drop-private-types --exported-interfaces-only --no-corpus-path \
  --no-comp-dir-path --no-show-locs "$1" | sed "s|$root/||g" # where a checkout lies is nobody's interface

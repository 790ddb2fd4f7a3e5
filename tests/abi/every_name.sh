#!/usr/bin/env bash
# Every exported name stands in one of the programs beside this script.
# usage: every_name.sh libvnlib.map
set -euo pipefail
here=$(dirname "${BASH_SOURCE[0]}")
missing=0
for name in $(sed -n '/global:/,/local:/p' "$1" | sed 's/#.*//' | grep -oE '[A-Za-z_0-9]+;' | tr -d ';'); do
  [ "$name" != VNLIB_1 ] || continue
  grep -qw -- "$name" "$here"/*.c || { echo "FAIL: $name is called by no program"; missing=1; }
done
exit $missing

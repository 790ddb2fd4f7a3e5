#!/usr/bin/env bash
# The tools that judge benchmarks, on measurements made up for the purpose: which peer is the best
# one, which rows miss their aims, which grow too fast.
# usage: bench_tools_test.sh source-directory
set -euo pipefail
tools=$1/tools/bench
python3 -c 'import sys; sys.exit(sys.version_info < (3, 11))' 2>/dev/null || exit 77
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# measured FILE ROW=NANOSECONDS...
measured() {
  local file=$scratch/$1 row rows=()
  shift
  for row in "$@"; do
    rows+=("{\"name\": \"${row%=*}\", \"run_type\": \"iteration\", \"time_unit\": \"ns\",
             \"real_time\": 9e9, \"cpu_time\": ${row#*=}}")
  done
  printf '{"benchmarks": [%s]}' "$(IFS=, && echo "${rows[*]}")" >"$file"
}

expect() { # expect PATTERN FILE
  grep -qE "$1" "$2" || { echo "not found: $1"; cat "$2"; exit 1; }
}

mkdir "$scratch/results" "$scratch/growth"
for pass in 0 1 2; do # the middle pass counts
  measured results/crc32c.$pass.json crc32c/vnlib/64=$((10 + 90 * (pass / 2))) crc32c/slow/64=40 \
    crc32c/isal/64=30 crc32c/byte-table/64=5 crc32c/vnlib/1024=200 crc32c/isal/1024=100
done
python3 "$tools/report.py" --json "$scratch/rows.json" --doc "$scratch/table.md" "$scratch/results" >"$scratch/table"
expect 'crc32c +64 +10\.0 +isal +3\.00 +≥ 1$' "$scratch/table" # byte-table is a bound, not a peer
expect 'crc32c +1024 +200\.0 +isal +0\.50 +≥ 1  MISSED$' "$scratch/table"
expect '64: 3\.00, 1Ki: \*\*0\.50\*\*' "$scratch/table.md"
expect '"best_peer": "isal"' "$scratch/rows.json"

measured growth/check_lock.0.json take_and_release/vnlib/10=100 take_and_release/vnlib/1000=150
python3 "$tools/growth.py" "$scratch/growth" >"$scratch/table"
expect 'take_and_release +constant +1\.50 +2 +pass' "$scratch/table"
measured growth/corelink.0.json parse_growth/vnlib/1000=1e3 parse_growth/vnlib/100000=1e7
if python3 "$tools/growth.py" "$scratch/growth" >"$scratch/table"; then exit 1; fi
expect 'parse_growth +linear +10\.00 .* FAIL' "$scratch/table" # with the square

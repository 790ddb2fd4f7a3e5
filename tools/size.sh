#!/usr/bin/env bash
# Prints what the library takes in each build, and fails when a target build exceeds its budget.
# usage: size.sh preset=build-directory...
set -euo pipefail
budget=$(dirname "${BASH_SOURCE[0]}")/size-budget
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# section_bytes LIBRARY FLAGS-PATTERN: bytes of the loaded sections whose readelf flags match.
section_bytes() {
  local name size flags total=0
  while read -r name size flags; do
    [[ $flags == *A* && $flags =~ $2 ]] || continue
    total=$((total + 16#$size))
  done < <(readelf -SW "$1" | sed -nE 's/^ *\[ *[0-9]+\] +([^ ]+) +([A-Z_0-9]+) +[0-9a-f]+ +[0-9a-f]+ +([0-9a-f]+) +[0-9a-f]+ +([A-Z]+).*/\1 \3 \4/p')
  echo "$total"
}

strip_for() { case $1 in arm-*) echo llvm-strip ;; *) echo strip ;; esac; }

status=0
for pair in "$@"; do
  preset=${pair%%=*} build=${pair#*=}
  library=$(readlink -f "$build/src/libvnlib.so")
  cp "$library" "$scratch/$preset.so"
  command -v "$(strip_for "$preset")" >/dev/null && "$(strip_for "$preset")" "$scratch/$preset.so"
  constant=$(section_bytes "$library" '^[^W]*$')
  # The dynamic linker's own tables (relro) are made read-only after loading, yet cost memory.
  writable=$(readelf -SW "$library" | sed -nE 's/^ *\[ *[0-9]+\] +(\.data|\.bss|\.tdata|\.tbss) +[A-Z_0-9]+ +[0-9a-f]+ +[0-9a-f]+ +([0-9a-f]+) .*/\2/p' |
    { total=0; while read -r size; do total=$((total + 16#$size)); done; echo "$total"; })
  relro=$(readelf -SW "$library" | sed -nE 's/^ *\[ *[0-9]+\] +(\.data\.rel\.ro|\.got|\.dynamic) +[A-Z_0-9]+ +[0-9a-f]+ +[0-9a-f]+ +([0-9a-f]+) .*/\2/p' |
    { total=0; while read -r size; do total=$((total + 16#$size)); done; echo "$total"; })
  relocations=$(readelf -rW "$library" | grep -cE '^[0-9a-f]{8}' || true)
  printf '%s\n' "$preset"
  printf '  stripped file     %8d bytes\n' "$(stat -c %s "$scratch/$preset.so")"
  printf '  text and rodata   %8d bytes\n' "$constant"
  printf '  data and bss      %8d bytes\n' "$writable"
  printf '  relocated rodata  %8d bytes\n' "$relro"
  printf '  relocations       %8d\n' "$relocations"
  printf '  constructors      %8d\n' "$(nm "$library" | grep -cE '_GLOBAL__sub_I' || true)"
  printf '  needed            %s\n' "$(readelf -dW "$library" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p' | tr '\n' ' ')"
  printf '  largest symbols\n'
  nm -S --size-sort -r "$library" | sed -n 1,10p | while read -r _ size _ name; do
    printf '    %8d %s\n' "$((16#$size))" "$(c++filt "$name")"
  done
  if read -r _ allowed_constant allowed_writable < <(grep -E "^$preset " "$budget"); then
    [ "$constant" -le "$allowed_constant" ] ||
      { echo "  OVER BUDGET: text and rodata may take $allowed_constant bytes"; status=1; }
    [ "$writable" -le "$allowed_writable" ] ||
      { echo "  OVER BUDGET: data and bss may take $allowed_writable bytes"; status=1; }
  fi
  echo
done

# The fat objects of the GNU build still tell the modules apart.
for pair in "$@"; do
  [ "${pair%%=*}" = arm-gnu ] || continue
  echo "per module (arm-gnu, before linking): text+rodata data bss"
  find "${pair#*=}/src" -name '*.o' | sort | xargs size |
    awk 'NR > 1 { n = $6; sub(/.*vnlib_objects\.dir\//, "", n); sub(/\/.*/, "", n); sub(/\..*/, "", n);
                  text[n] += $1; data[n] += $2; bss[n] += $3 }
         END { for (n in text) printf "  %-16s %8d %6d %6d\n", n, text[n], data[n], bss[n] }' | sort -k2 -nr
done
exit $status

#!/usr/bin/env bash
# Prints what the library takes in each build, in all and by module, and fails when a target build
# exceeds its budget.
# usage: size.sh preset=build-directory...
set -euo pipefail
budget=$(dirname "${BASH_SOURCE[0]}")/size-budget
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# sections LIBRARY: name, flags and bytes of each section that is loaded.
sections() {
  local name size flags
  readelf -SW "$1" |
    sed -nE 's/^ *\[ *[0-9]+\] +([^ ]+) +[A-Z_0-9]+ +[0-9a-f]+ +[0-9a-f]+ +([0-9a-f]+) +[0-9a-f]+ +([A-Z]+).*/\1 \2 \3/p' |
    while read -r name size flags; do
      [[ $flags != *A* ]] || echo "$name $flags $((16#$size))"
    done
}

# bytes 'PATTERN' <sections: the bytes of the sections whose line matches.
bytes() { awk -v pattern="$1" '$0 ~ pattern { total += $3 } END { print total + 0 }'; }

# Which module each name belongs to is known before linking: "M module name", then the linked
# library's symbols: "S name type bytes". Optimisers append .constprop.0 and the like to a name.
module_symbols() {
  local build=$1 library=$2 objects=$1/src/CMakeFiles/vnlib_objects.dir object module
  find "$objects" -name '*.o' | sort | while read -r object; do
    module=${object#"$objects"/}
    module=${module%%[/.]*}
    llvm-nm --defined-only --format=posix "$object" 2>/dev/null | sed -E "s/^([^ .]+).*/M $module \1/"
  done
  llvm-nm --defined-only --radix=d --format=posix "$library" | sed -nE 's/^([^ ]+) ([A-Za-z]) [0-9]+ ([0-9]+)$/S \1 \2 \3/p'
}

# readable <names: without what tells overloads and instances of templates apart.
readable() {
  c++filt --no-params |
    sed -E 's/\(anonymous namespace\):://g; s/ \[clone [^]]*\]//g; :again; s/<[^<>]*>|\([^()]*\)//; t again'
}

# by_module <module_symbols: a line for each module, and its three largest functions.
by_module() {
  sort -s -k1,1 -k4,4nr | awk '
    $1 == "M" { if (!($3 in module)) module[$3] = $2; next }
    {
      name = $2; sub(/\..*/, "", name)
      m = name in module ? module[name] : "tools"
      seen[m] = 1
      if ($3 ~ /[TtWw]/) {
        text[m] += $4
        if (++functions[m] <= 3) largest[m] = largest[m] " " $2 "=" $4
      } else if ($3 ~ /[Rr]/) constants[m] += $4
      else if ($3 ~ /[Bb]/) bss[m] += $4
      else data[m] += $4
    }
    END {
      for (m in seen)
        printf "%s %d %d %d %d %d%s\n", m, text[m], constants[m], data[m], bss[m], functions[m], largest[m]
    }' | sort -k2,2nr |
    awk '{ printf "  %-16s %7d %7d %6d %6d %10d ", $1, $2, $3, $4, $5, $6
           for (i = 7; i <= NF; ++i) { sub(/=/, " ", $i); printf " %s", $i (i < NF ? "," : "") }
           print "" }' |
    readable
}

# hold WHAT BYTES ALLOWED: sets the status to fail when there are too many.
hold() {
  local verdict="within the budget of"
  [ "$2" -le "$3" ] || { verdict="OVER THE BUDGET OF" && status=1; }
  printf '  %-24s %8d, %s %d\n' "$1" "$2" "$verdict" "$3"
}

status=0
for pair in "$@"; do
  preset=${pair%%=*} build=${pair#*=}
  library=$(readlink -f "$build/src/libvnlib.so")
  llvm-strip -o "$scratch/stripped" "$library"
  sections "$library" >"$scratch/sections"
  text=$(bytes ' A[^W]*X' <"$scratch/sections")
  constant=$(bytes '^\.rodata ' <"$scratch/sections")
  read_only=$(bytes ' [^W]+ [0-9]+$' <"$scratch/sections")
  data=$(bytes '^\.t?data ' <"$scratch/sections")
  bss=$(bytes '^\.t?bss ' <"$scratch/sections")
  printf '%s\n' "$preset"
  printf '  stripped file      %8d bytes\n' "$(stat -c %s "$scratch/stripped")"
  printf '  text               %8d\n' "$text"
  printf '  read-only data     %8d\n' "$constant"
  printf '  linking tables     %8d (names, hashes, versions, relocations, unwinding)\n' $((read_only - text - constant))
  printf '  read-only in all   %8d\n' "$read_only"
  printf '  data               %8d\n' "$data"
  printf '  bss                %8d\n' "$bss"
  # Made read-only once the dynamic linker is done with it, yet no two processes share it.
  printf '  relocated data     %8d\n' "$(bytes '^\.(data\.rel\.ro|got|got\.plt|dynamic) ' <"$scratch/sections")"
  printf '  relocations        %8d\n' "$(readelf -rW "$library" | grep -cE '^[0-9a-f]{8}' || true)"
  printf '  constructors       %8d\n' "$(nm "$library" | grep -cE '_GLOBAL__sub_I' || true)"
  printf '  needed             %s\n' "$(readelf -dW "$library" | sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p' | tr '\n' ' ')"
  printf '  the ten largest symbols\n'
  nm -S --size-sort -r "$library" | sed -n 1,10p | while read -r _ size _ name; do
    printf '    %8d %s\n' "$((16#$size))" "$name"
  done | readable
  if read -r _ allowed_read_only allowed_writable < <(grep -E "^$preset " "$budget"); then
    hold "read-only in all" "$read_only" "$allowed_read_only"
    hold "data and bss" $((data + bss)) "$allowed_writable"
  fi
  printf '  %-16s %7s %7s %6s %6s %10s  %s\n' module text rodata data bss functions 'the largest functions'
  module_symbols "$build" "$library" | by_module
  echo
done
exit $status

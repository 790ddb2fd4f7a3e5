#!/usr/bin/env bash
# Compiles every public header alone, twice over, as C99 and as C++20, with all warnings as errors.
# usage: headers_test.sh include-directory c-compiler c++-compiler
set -euo pipefail
include=$1 cc=$2 cxx=$3
warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -fsyntax-only)
failures=0
count=0
for header in "$include"/vnlib.h "$include"/vnlib/*.h; do
  name=${header#"$include"/}
  twice=$(printf '#include "%s"\n#include "%s"\nextern int a_translation_unit_is_never_empty;\n' "$name" "$name")
  count=$((count + 1))
  "$cc" -std=c99 "${warnings[@]}" -Wstrict-prototypes -I"$include" -x c - <<<"$twice" ||
    { echo "FAIL: $name as C99"; failures=$((failures + 1)); }
  "$cxx" -std=c++20 "${warnings[@]}" -I"$include" -x c++ - <<<"$twice" ||
    { echo "FAIL: $name as C++20"; failures=$((failures + 1)); }
done
echo "headers: $count compiled as C99 and as C++20, $failures failures"
exit $((failures > 0))

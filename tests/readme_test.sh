#!/usr/bin/env bash
# Builds the C example of README.md exactly as it stands there and compares what it prints with the
# output block that follows it.
# usage: readme_test.sh README.md include-directory libvnlib.so c-compiler
set -euo pipefail
readme=$1 include=$2 library=$3 cc=$4
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# shellcheck disable=SC2016 # these are Markdown's marks, not commands
sed -n '/^```c$/,/^```$/p' "$readme" | sed '1d;$d' >"$scratch/example.c"
# shellcheck disable=SC2016
sed -n '/^```text output$/,/^```$/p' "$readme" | sed '1d;$d' >"$scratch/expected"
[ -s "$scratch/example.c" ] && [ -s "$scratch/expected" ]
"$cc" -std=c99 -Wall -Wextra -Wpedantic -Werror -I"$include" "$scratch/example.c" "$library" \
  -Wl,-rpath,"$(dirname "$library")" ${SANITIZE:+-fsanitize="$SANITIZE"} -o "$scratch/example"
# shellcheck disable=SC2086 # a command and its options, or nothing
${EMULATOR:-} "$scratch/example" >"$scratch/printed"
diff "$scratch/expected" "$scratch/printed"
echo "the example of the README builds and prints what it says"

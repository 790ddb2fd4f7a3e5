#!/usr/bin/env bash
# Holds the #include lines of src/ against the layers of docs/architecture.md: a file may include
# its own module and the layers below its own, never a layer above or beside it.
# usage: include_graph_test.sh source-root
set -euo pipefail
root=$1
cd "$root"

# module_of PATH: src/crc32c.cpp, src/crc32c/fold.h and vnlib/crc32c.h all belong to crc32c.
module_of() {
  local path=${1#src/}
  path=${path#vnlib/}
  path=${path%%/*}
  path=${path%%.*}
  echo "${path%_lex}"
}

declare -A layer
while IFS='|' read -r _ number modules _; do
  for module in ${modules//,/ }; do layer[${module//\`/}]=${number// /}; done
done < <(sed -n '/<!-- layers -->/,/<!-- end of layers -->/p' docs/architecture.md | grep -E '^\| *[0-9]+ ')
[ ${#layer[@]} -gt 20 ] || { echo "FAIL: found only ${#layer[@]} modules in docs/architecture.md"; exit 1; }
# The one pair that knows each other: the log starts and feeds the stream, which asks for level names.
beside=" log>tellog tellog>log "

failures=0
checked=0
while IFS=: read -r file line; do
  from=$(module_of "$file")
  target=$(sed -E 's/^ *# *include "(.*)".*/\1/' <<<"$line")
  # A name without a directory is a neighbour of the file or a generated file of its module.
  [[ $target == */* ]] || [ ! -e "$(dirname "$file")/$target" ] || continue
  to=$(module_of "$target")
  [ "$from" != "$to" ] || continue
  checked=$((checked + 1))
  [ -n "${layer[$from]:-}" ] || { echo "FAIL: $file: module $from is in no layer"; failures=$((failures + 1)); continue; }
  [ -n "${layer[$to]:-}" ] || { echo "FAIL: $file: includes $target of no layer"; failures=$((failures + 1)); continue; }
  [ "${layer[$to]}" -lt "${layer[$from]}" ] || [[ $beside == *" $from>$to "* ]] ||
    { echo "FAIL: $file (layer ${layer[$from]}) includes $target (layer ${layer[$to]})"; failures=$((failures + 1)); }
done < <(grep -rHE '^ *# *include "' src --include='*.cpp' --include='*.h' --include='*.y' --include='*.l')
echo "includes: $checked between modules, $failures against the layers"
exit $((failures > 0))

#!/usr/bin/env bash
# The test programs whose code owns memory, under valgrind: no error, no block lost.
# usage: valgrind.sh build-directory
set -euo pipefail
build=$1
programs=(base32_test base64_test corelink_lex_test corelink_merge_test corelink_query_test corelink_text_test
  corelink_tree_test corelink_xml_test crc32c_test hash_test iovec_test list_sort_test queue_test
  red_black_tree_test sax_test scsi_test vnstrings_test)
for program in "${programs[@]}"; do
  [ -x "$build/tests/$program" ] || { echo "no program $program"; exit 1; }
  echo "valgrind: $program"
  valgrind -q --error-exitcode=9 --leak-check=full --errors-for-leak-kinds=definite,indirect \
    "$build/tests/$program" --gtest_brief=1 --gtest_filter='-*Million*:*Deep*:*Hostile*:*Thread*:*Huge*:*Charge*'
done

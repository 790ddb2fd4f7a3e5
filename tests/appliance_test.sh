#!/usr/bin/env bash
# The main job end to end: the appliance example on its configuration files, and on bad ones.
# usage: appliance_test.sh appliance examples-directory
set -euo pipefail
appliance=$1 examples=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() { printf 'FAIL: %s\n' "$*"; failures=$((failures + 1)); }
# expect TEXT FILE: the file has exactly this line.
expect() { grep -qxF -- "$1" "$2" || { fail "no line '$1' in $(basename "$2")"; cat "$2"; }; }

"$appliance" --update "$examples/appliance-update.corelink" --broken "$examples/appliance-broken.corelink" \
  --xml "$scratch/out.xml" "$examples/appliance.corelink" >"$scratch/out" 2>"$scratch/err" ||
  fail "exit status $?"
expect '  appliance.firmware.version     "4.2.1"' "$scratch/out"
expect '  appliance.firmware.version     "4.3.0"' "$scratch/out"
expect '  network.interfaces.0.address   "192.0.2.30"' "$scratch/out"
expect '  disks.3.capacity               4000787030016' "$scratch/out"
expect '  appliance.location.unit        26' "$scratch/out"
expect '  network.ntp.enabled            false' "$scratch/out"
expect '  shares.backup.path,shares.backup.comment,shares.backup.readonly,shares.backup.schedule' "$scratch/out"
expect '(null): syntax error' "$scratch/out"
expect "Parent was NULL" "$scratch/out"
expect 'clparse_start: parsing failed: 1' "$scratch/out"
grep -q '<description type="string">Lab \\&quot;north\\&quot; &amp; &lt;spare parts&gt; store</description>' \
  "$scratch/out.xml" || fail "the XML does not escape the description"
if command -v xmllint >/dev/null; then
  xmllint --noout "$scratch/out.xml" || fail "the XML is not well-formed"
fi
[ "$(grep -c ' NOTIC: merged .*appliance-update' "$scratch/err")" = 1 ] || fail "the merge was not logged"
members=$(grep -c ' type="' "$scratch/out.xml")
[ "$members" -ge 60 ] || fail "the configuration has only $members members"

status=0
"$appliance" "$scratch/nowhere.corelink" >"$scratch/out" 2>"$scratch/err" || status=$?
[ "$status" = 1 ] || fail "a missing file ends with status $status"
expect "appliance: cannot read $scratch/nowhere.corelink: No such file or directory" "$scratch/err"

status=0
"$appliance" "$examples/appliance-broken.corelink" >"$scratch/out" 2>&1 || status=$?
[ "$status" = 1 ] || fail "a broken file ends with status $status"

status=0
"$appliance" --nonsense >"$scratch/out" 2>&1 || status=$?
[ "$status" = 2 ] || fail "an unknown option ends with status $status"
"$appliance" --help | grep -q '^usage: appliance' || fail "no help"

"$appliance" --memdebug --hold 1 "$examples/appliance.corelink" >"$scratch/screen" 2>"$scratch/err" ||
  fail "under the memory debugger: exit status $?"
grep -q 'Count [0-9]* .*:clparse_create_node' "$scratch/screen" || fail "the screen shows no allocation sites"
exit $((failures > 0))

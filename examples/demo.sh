#!/usr/bin/env bash
# Runs the appliance example on the configuration files beside this script.
# usage: demo.sh directory-of-the-programs [options of appliance]
set -euo pipefail
programs=$1
shift
here=$(dirname "${BASH_SOURCE[0]}")
xml=$(mktemp --suffix=.xml)
trap 'rm -f "$xml"' EXIT

"$programs/appliance" --update "$here/appliance-update.corelink" \
  --broken "$here/appliance-broken.corelink" --xml "$xml" "$@" "$here/appliance.corelink"

if [ -s "$xml" ] && command -v xmllint >/dev/null; then
  xmllint --noout "$xml" && echo "xmllint: the XML document is well-formed"
fi

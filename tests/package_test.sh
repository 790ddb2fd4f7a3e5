#!/usr/bin/env bash
# Unpacks the Debian packages into a scratch root and lets a consumer use them from there.
# usage: [EMULATOR=...] package_test.sh directory-with-the-packages c-compiler c++-compiler
set -euo pipefail
packages=$1 cc=$2 cxx=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for package in "$packages"/libvnlib1_*.deb "$packages"/libvnlib-dev_*.deb; do
  dpkg-deb -x "$package" "$scratch"
done
"$(dirname "${BASH_SOURCE[0]}")/consumer_test.sh" "$scratch/usr" "$cc" "$cxx"

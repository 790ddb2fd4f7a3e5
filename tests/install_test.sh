#!/usr/bin/env bash
# Installs the library under a scratch prefix and lets a consumer use it from there.
# usage: install_test.sh build-directory c-compiler c++-compiler
set -euo pipefail
build=$1 cc=$2 cxx=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
"$(dirname "${BASH_SOURCE[0]}")/consumer_test.sh" "$scratch/prefix" "$cc" "$cxx"

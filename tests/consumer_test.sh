#!/usr/bin/env bash
# Builds and runs one consumer of an installed copy in the three ways that users do: from C with
# pkg-config, statically from C, and from C++ with find_package.
# usage: [EMULATOR=...] consumer_test.sh prefix c-compiler c++-compiler
set -euo pipefail
prefix=$1 cc=$2 cxx=$3
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cp -r "$here/consumer" "$scratch"
cd "$scratch/consumer"

libdir=$(dirname "$(find "$prefix" -name libvnlib.so)")
export PKG_CONFIG_PATH=$libdir/pkgconfig
# The copy may lie elsewhere than where it is meant to be installed.
flags() { pkg-config --define-variable=prefix="$prefix" "$@" vnlib; }

# shellcheck disable=SC2086 # an emulator and its options, or nothing
run() { ${EMULATOR:-} "$@"; }

# shellcheck disable=SC2046 # flags are words
"$cc" -std=c99 -Wall -Werror main.c $(flags --cflags) -o from_c $(flags --libs)
LD_LIBRARY_PATH=$libdir run ./from_c

# shellcheck disable=SC2046
"$cc" -std=c99 -Wall -Werror main.c $(flags --cflags) -o static_c "$libdir/libvnlib.a" -pthread
run ./static_c
if readelf -d static_c | grep -qE 'libvnlib|libstdc\+\+'; then
  echo "FAIL: the static program needs a library that it should not"
  exit 1
fi

cmake -G Ninja -S . -B out -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
  -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build out >/dev/null
run ./out/from_cxx
run ./out/from_cxx_static
echo "used with pkg-config, statically and with find_package"

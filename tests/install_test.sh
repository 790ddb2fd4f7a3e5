#!/usr/bin/env bash
# Installs the library under a scratch prefix and builds one consumer the three ways that users
# do: from C with pkg-config, from C++ with find_package, and statically from C.
# usage: install_test.sh build-directory source-root c-compiler c++-compiler
set -euo pipefail
build=$1 root=$2 cc=$3 cxx=$4
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name libvnlib.so)")
export PKG_CONFIG_PATH=$libdir/pkgconfig
# The prefix was chosen at installation, so let pkg-config find it from the file's own place.
flags() { pkg-config --define-prefix "$@" vnlib; }

cp -r "$root/tests/consumer" "$scratch/consumer"
cd "$scratch/consumer"

# shellcheck disable=SC2046 # flags are words
"$cc" -std=c99 -Wall -Werror main.c $(flags --cflags) -o from_c $(flags --libs)
LD_LIBRARY_PATH=$libdir ./from_c

# shellcheck disable=SC2046
"$cc" -std=c99 -Wall -Werror main.c $(flags --cflags) -o static_c "$libdir/libvnlib.a" -pthread
./static_c
if readelf -d static_c | grep -q 'libvnlib\|libstdc++'; then
  echo "FAIL: the static program needs a library that it should not"
  exit 1
fi

cmake -S . -B out -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
  -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
cmake --build out >/dev/null
./out/from_cxx
./out/from_cxx_static
echo "installed and used with pkg-config, find_package and statically"

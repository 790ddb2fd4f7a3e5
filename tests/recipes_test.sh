#!/usr/bin/env bash
# Holds the packages for Debian, Buildroot and Yocto against the project: version, licence, and that
# CMake knows what they configure.
# usage: recipes_test.sh repository version cmake c-compiler c++-compiler
set -euo pipefail
repository=$1 version=$2 cmake=$3 cc=$4 cxx=$5
buildroot=$repository/packaging/buildroot
recipe=$repository/packaging/yocto/recipes-support/libvnlib/libvnlib_$version.bb
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() { printf 'FAIL: %s\n' "$*"; failures=$((failures + 1)); }

# buildroot_value VARIABLE: what Buildroot would read from the package's makefile.
buildroot_value() {
  make -s -f - BR2_EXTERNAL_LIBVNLIB_PATH="$buildroot" <<MAKEFILE
define cmake-package
all: ; @echo \$\$($1)
endef
include $buildroot/external.mk
MAKEFILE
}

[ -e "$recipe" ] || fail "there is no $recipe"
[ "$(buildroot_value LIBVNLIB_VERSION)" = "$version" ] || fail "Buildroot's version is another"
[ "$(buildroot_value LIBVNLIB_SITE)" = "$(realpath "$repository")" ] || fail "Buildroot's site is elsewhere"
grep -q "^libvnlib ($version-1) " "$repository/packaging/debian/changelog" || fail "Debian's version is another"

(cd "$repository" && sha256sum --quiet -c <(sed -n 's/^sha256 *//p' "$buildroot/package/libvnlib/libvnlib.hash")) ||
  fail "Buildroot's hash of the licence is another"
echo "$(sed -nE 's/^LIC_FILES_CHKSUM = .*md5=([0-9a-f]+).*/\1/p' "$recipe")  $repository/LICENSE" |
  md5sum --quiet -c || fail "Yocto's checksum of the licence is another"

yocto_options=$(sed -n '/^EXTRA_OECMAKE/,/^"/p' "$recipe" | grep -o -- '-D[^ \\"]*')
for options in "$(buildroot_value LIBVNLIB_CONF_OPTS)" "$yocto_options"; do
  # shellcheck disable=SC2086 # a list of words
  "$cmake" -S "$repository" -B "$scratch/build" --fresh -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_COMPILER="$cxx" $options >"$scratch/log" 2>&1 || { cat "$scratch/log"; fail "cannot be configured with $options"; }
  # An option that no CMakeLists.txt reads is named in a warning.
  ! grep -A 5 'not used by the project' "$scratch/log" || fail "an option of no effect: $options"
done

[ "$failures" = 0 ] && echo "recipes: as the project is"
exit $((failures > 0))

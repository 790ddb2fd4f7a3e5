################################################################################
#
# libvnlib
#
################################################################################

LIBVNLIB_VERSION = 1.0.0
# The checkout that this external tree is a part of.
LIBVNLIB_SITE = $(realpath $(BR2_EXTERNAL_LIBVNLIB_PATH)/../..)
LIBVNLIB_SITE_METHOD = local
LIBVNLIB_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
LIBVNLIB_LICENSE = MIT
LIBVNLIB_LICENSE_FILES = LICENSE
LIBVNLIB_INSTALL_STAGING = YES
LIBVNLIB_SUPPORTS_IN_SOURCE_BUILD = NO
LIBVNLIB_DEPENDENCIES = host-bison host-flex
LIBVNLIB_CONF_OPTS = \
	-DVNLIB_BUILD_TESTS=OFF \
	-DVNLIB_BUILD_EXAMPLES=OFF \
	-DVNLIB_LTO=ON \
	-DVNLIB_PORTABLE_ONLY=ON

$(eval $(cmake-package))

################################################################################
#
# libvnlib
#
################################################################################

LIBVNLIB_VERSION = 1.0.0
LIBVNLIB_SITE = $(LIBVNLIB_OVERRIDE_SITE)
LIBVNLIB_SITE_METHOD = local
LIBVNLIB_LICENSE = MIT
LIBVNLIB_LICENSE_FILES = LICENSE
LIBVNLIB_INSTALL_STAGING = YES
LIBVNLIB_DEPENDENCIES = host-bison host-flex
LIBVNLIB_CONF_OPTS = \
	-DVNLIB_BUILD_TESTS=OFF \
	-DVNLIB_BUILD_EXAMPLES=OFF \
	-DVNLIB_LTO=ON \
	-DVNLIB_PORTABLE_ONLY=ON

$(eval $(cmake-package))

SUMMARY = "Shared utility library of a storage appliance's firmware"
DESCRIPTION = "Logging, tracked allocation, the corelink configuration language, \
containers, sockets, codecs and SCSI texts behind a plain C interface."
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=5f9a6daff7e965bb0a7bb2866c3e2c1b"

inherit cmake externalsrc

# Point this at a checkout in local.conf: EXTERNALSRC:pn-libvnlib = "/path/to/libvnlib"
EXTERNALSRC ?= "${TOPDIR}/../libvnlib"

DEPENDS = "bison-native flex-native"

EXTRA_OECMAKE = "\
    -DVNLIB_BUILD_TESTS=OFF \
    -DVNLIB_BUILD_EXAMPLES=OFF \
    -DVNLIB_LTO=ON \
    -DVNLIB_PORTABLE_ONLY=ON \
"

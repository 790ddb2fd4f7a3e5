SUMMARY = "Shared utility library of a storage appliance's firmware"
DESCRIPTION = "Logging, tracked allocation, the corelink configuration language, \
containers, sockets, codecs and SCSI texts behind a plain C interface."
HOMEPAGE = "https://libvnlib.example.org"
SECTION = "libs"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=5f9a6daff7e965bb0a7bb2866c3e2c1b"

DEPENDS = "bison-native flex-native"

# The checkout that this layer is a part of, as it was last committed. A product's build pins SRCREV.
VNLIB_CHECKOUT ?= "${@os.path.realpath(d.getVar('THISDIR') + '/../../../..')}"
SRC_URI = "git://${VNLIB_CHECKOUT};protocol=file;branch=main"
SRCREV ?= "${AUTOREV}"
PV .= "+git"

S = "${WORKDIR}/git"

inherit cmake

EXTRA_OECMAKE = "\
    -DVNLIB_BUILD_TESTS=OFF \
    -DVNLIB_BUILD_EXAMPLES=OFF \
    -DVNLIB_LTO=ON \
    -DVNLIB_PORTABLE_ONLY=ON \
"

BBCLASSEXTEND = "native nativesdk"

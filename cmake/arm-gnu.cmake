# The target with the GNU tool chain and the GNU C library: Debian's armhf (ARMv7-A, hard float).
# Programs run under qemu-arm with the C library that comes with the cross compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)

# Thumb-2 is the smaller encoding; ARMv7-A is what the appliance's processors have.
set(CMAKE_C_FLAGS_INIT "-march=armv7-a+fp -mthumb")
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a+fp -mthumb")

# Packages are found in the armhf directories of the multi-arch system, tools on the host.
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf /usr/lib/arm-linux-gnueabihf /usr)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/share/pkgconfig)

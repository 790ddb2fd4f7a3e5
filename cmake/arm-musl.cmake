# The target with a small C library: musl for armhf. Programs run under qemu-arm and find musl's
# loader where Debian installs it.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
set(musl_triple arm-linux-musleabihf)
set(musl_loader /lib/ld-musl-armhf.so.1)
set(gcc_lib_glob /usr/lib/gcc-cross/arm-linux-gnueabihf/*)
# Thumb-2 is the smaller encoding; ARMv7-A is what the appliance's processors have.
set(machine_flags "-march=armv7-a -mfloat-abi=hard -mfpu=vfpv3-d16 -mthumb")
include(${CMAKE_CURRENT_LIST_DIR}/musl-clang.cmake)

# Where LTO leaves the code generation to the linker: two passes compute ahead of a loop, or keep for
# its next round, what takes less room where it is used, and, on a processor with few registers, no
# more time. -arm-promote-constant would save more and must stay off: it may put one constant at two
# addresses, and a walk over it then never meets its end.
set(CMAKE_SHARED_LINKER_FLAGS_MINSIZEREL_INIT "-Wl,-mllvm,-disable-machine-licm -Wl,-mllvm,-disable-lsr")

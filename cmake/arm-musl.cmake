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

# Where LTO leaves the code generation to the linker, with what -Oz alone does not do: equal sequences
# of instructions become functions, and nothing is computed ahead of a loop or kept for the next round
# that takes less room where it is used. -arm-promote-constant would save more and must stay off: it
# may put one constant at two addresses, and a walk over it then never meets its end.
set(code_generation -enable-machine-outliner=always -disable-machine-licm -disable-lsr -disable-post-ra)
list(TRANSFORM code_generation PREPEND "-Wl,-mllvm,")
list(JOIN code_generation " " CMAKE_SHARED_LINKER_FLAGS_MINSIZEREL_INIT)

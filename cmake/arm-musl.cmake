# The target with a small C library: clang and the LLVM C++ headers against musl for armhf.
#
# clang's own idea of this triple's directories is not Debian's, so every header directory and every
# start file is given explicitly. Only headers of libc++ are used: nothing of it is linked.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET arm-linux-musleabihf)
set(CMAKE_CXX_COMPILER_TARGET arm-linux-musleabihf)
set(CMAKE_TRY_COMPILE_TARGET_TYPE EXECUTABLE)

set(musl_include /usr/include/arm-linux-musleabihf)
set(musl_lib /usr/lib/arm-linux-musleabihf)
file(GLOB gcc_lib_candidates /usr/lib/gcc-cross/arm-linux-gnueabihf/*)
list(GET gcc_lib_candidates -1 gcc_lib) # crtbegin, crtend and libgcc.a: integer division and the like
execute_process(COMMAND clang -print-resource-dir OUTPUT_VARIABLE clang_resources
                OUTPUT_STRIP_TRAILING_WHITESPACE)
file(GLOB libcxx_candidates /usr/lib/llvm-*/include/c++/v1)
list(GET libcxx_candidates -1 libcxx_include)

# Programs find musl's loader where Debian installs it; libraries beside the program via rpath.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)

set(machine "-march=armv7-a -mfloat-abi=hard -mfpu=vfpv3-d16 -mthumb")
set(system_headers "-nostdinc -isystem ${clang_resources}/include -isystem ${musl_include}")
# _LIBCPP_HAS_MUSL_LIBC: libc++'s headers otherwise reach for names that only glibc has.
set(CMAKE_C_FLAGS_INIT "${machine} ${system_headers}")
set(CMAKE_CXX_FLAGS_INIT
    "${machine} -D_LIBCPP_HAS_MUSL_LIBC -nostdinc++ -nostdinc -isystem ${libcxx_include} -isystem ${clang_resources}/include -isystem ${musl_include}")

set(link "-fuse-ld=lld -nostdlib -L${musl_lib}")
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "${link} -no-pie -Wl,--dynamic-linker=/lib/ld-musl-armhf.so.1 ${musl_lib}/crt1.o ${musl_lib}/crti.o ${gcc_lib}/crtbegin.o")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${link} ${musl_lib}/crti.o ${gcc_lib}/crtbeginS.o")
set(CMAKE_C_STANDARD_LIBRARIES "-lc ${gcc_lib}/libgcc.a ${gcc_lib}/crtend.o ${musl_lib}/crtn.o")
set(CMAKE_CXX_STANDARD_LIBRARIES "${CMAKE_C_STANDARD_LIBRARIES}")

set(CMAKE_FIND_ROOT_PATH ${musl_include} ${musl_lib})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

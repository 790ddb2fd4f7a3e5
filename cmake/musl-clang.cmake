# clang and the LLVM C++ headers against Debian's musl; included by the *-musl.cmake tool chain
# files, which say: musl_triple, musl_loader, gcc_lib_glob (libgcc), machine_flags.
#
# clang's own idea of this triple's directories is not Debian's, so every header directory and every
# start file is given explicitly. Only headers of libc++ are used: nothing of it is linked.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${musl_triple})
set(CMAKE_CXX_COMPILER_TARGET ${musl_triple})

set(musl_include /usr/include/${musl_triple})
set(musl_lib /usr/lib/${musl_triple})
file(GLOB gcc_lib_candidates ${gcc_lib_glob})
list(GET gcc_lib_candidates -1 gcc_lib) # libgcc.a: integer division and the like
execute_process(COMMAND clang -print-resource-dir OUTPUT_VARIABLE clang_resources
                OUTPUT_STRIP_TRAILING_WHITESPACE)
file(GLOB libcxx_candidates /usr/lib/llvm-*/include/c++/v1)
list(GET libcxx_candidates -1 libcxx_include)

set(system_headers "-nostdinc -isystem ${clang_resources}/include -isystem ${musl_include}")
set(CMAKE_C_FLAGS_INIT "${machine_flags} ${system_headers}")
# _LIBCPP_HAS_MUSL_LIBC: libc++'s headers otherwise reach for names that only glibc has.
set(CMAKE_CXX_FLAGS_INIT
    "${machine_flags} -D_LIBCPP_HAS_MUSL_LIBC -nostdinc++ -isystem ${libcxx_include} ${system_headers}")

# The start files are those of C programs. A shared library without constructors needs none.
set(link "-Wno-unused-command-line-argument -fuse-ld=lld -nostdlib -L${musl_lib}")
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "${link} -no-pie -Wl,--dynamic-linker=${musl_loader} ${musl_lib}/crt1.o ${musl_lib}/crti.o ${musl_lib}/crtn.o")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${link}")
set(CMAKE_C_STANDARD_LIBRARIES "-lc ${gcc_lib}/libgcc.a")
set(CMAKE_CXX_STANDARD_LIBRARIES "${CMAKE_C_STANDARD_LIBRARIES}")

set(CMAKE_FIND_ROOT_PATH ${musl_include} ${musl_lib})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

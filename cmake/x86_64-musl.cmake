# The host with the target's C library: differences between C libraries show here without emulation.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(musl_triple x86_64-linux-musl)
set(musl_loader /lib/ld-musl-x86_64.so.1)
set(gcc_lib_glob /usr/lib/gcc/x86_64-linux-gnu/*)
set(machine_flags "")
include(${CMAKE_CURRENT_LIST_DIR}/musl-clang.cmake)

# Tests of the repository itself: how headers and examples compile, what an installed copy offers.
function(vnlib_script_test name)
  add_test(NAME ${name} COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/${name}.sh ${ARGN})
  set_tests_properties(${name} PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77)
endfunction()

# vnlib_runnable(<variable> <target>): what a script starts to run a program: the program itself, or
# for one of another processor a script that runs it under the emulator.
function(vnlib_runnable variable target)
  set(${variable} $<TARGET_FILE:${target}> PARENT_SCOPE)
  if(emulator)
    set(script ${CMAKE_CURRENT_BINARY_DIR}/emulated/${target})
    file(GENERATE OUTPUT ${script} CONTENT "#!/bin/sh\nexec ${emulator} $<TARGET_FILE:${target}> \"$@\"\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    set(${variable} ${script} PARENT_SCOPE)
  endif()
endfunction()
list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)

vnlib_script_test(headers_test ${PROJECT_SOURCE_DIR}/include ${CMAKE_C_COMPILER} ${CMAKE_CXX_COMPILER})
vnlib_script_test(include_graph_test ${PROJECT_SOURCE_DIR})
vnlib_script_test(bench_tools_test ${PROJECT_SOURCE_DIR})
vnlib_script_test(readme_test ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/include
  $<TARGET_FILE:vnlib> ${CMAKE_C_COMPILER})
set_tests_properties(readme_test PROPERTIES ENVIRONMENT "SANITIZE=${VNLIB_SANITIZE};EMULATOR=${emulator}")
if(NOT VNLIB_SANITIZE AND NOT CMAKE_C_FLAGS MATCHES coverage AND NOT CMAKE_CROSSCOMPILING)
  vnlib_script_test(install_test ${PROJECT_BINARY_DIR} ${CMAKE_C_COMPILER} ${CMAKE_CXX_COMPILER})
  vnlib_script_test(recipes_test ${PROJECT_SOURCE_DIR} ${PROJECT_VERSION} ${CMAKE_COMMAND}
    ${CMAKE_C_COMPILER} ${CMAKE_CXX_COMPILER})
endif()
# The record is of the host's debug build: other compilers describe the same interface in other words.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL x86_64 AND CMAKE_BUILD_TYPE STREQUAL Debug AND NOT VNLIB_SANITIZE
   AND CMAKE_CXX_COMPILER_ID STREQUAL GNU AND NOT CMAKE_C_FLAGS MATCHES coverage)
  vnlib_script_test(abi_record_test $<TARGET_FILE:vnlib> ${PROJECT_SOURCE_DIR}/include
    ${PROJECT_SOURCE_DIR}/packaging/libvnlib.abi)
endif()
if(TARGET appliance)
  vnlib_runnable(appliance_command appliance)
  vnlib_script_test(appliance_test ${appliance_command} ${PROJECT_SOURCE_DIR}/examples)
endif()
if(TARGET scsi_decode)
  vnlib_runnable(scsi_decode_command scsi_decode)
  vnlib_script_test(scsi_decode_test ${scsi_decode_command})
endif()
if(TARGET remote_gui_tunnel AND NOT emulator) # it counts the threads, of which the emulator has its own
  vnlib_script_test(remote_gui_tunnel_test $<TARGET_FILE:remote_gui_tunnel> ${PROJECT_SOURCE_DIR}/examples)
  set_tests_properties(remote_gui_tunnel_test PROPERTIES RESOURCE_LOCK gui_port LABELS slow)
endif()

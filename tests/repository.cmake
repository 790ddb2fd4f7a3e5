# Tests of the repository itself: what is exported, how headers and examples compile, what an
# installed copy offers.
function(vnlib_script_test name)
  add_test(NAME ${name} COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/${name}.sh ${ARGN})
  set_tests_properties(${name} PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77)
endfunction()

vnlib_script_test(exports_test $<TARGET_FILE:vnlib> ${PROJECT_SOURCE_DIR}/src/libvnlib.map "${VNLIB_SANITIZE}")
vnlib_script_test(headers_test ${PROJECT_SOURCE_DIR}/include ${CMAKE_C_COMPILER} ${CMAKE_CXX_COMPILER})
vnlib_script_test(include_graph_test ${PROJECT_SOURCE_DIR})
vnlib_script_test(readme_test ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/include
  $<TARGET_FILE:vnlib> ${CMAKE_C_COMPILER})
set_tests_properties(readme_test PROPERTIES ENVIRONMENT "SANITIZE=${VNLIB_SANITIZE}")
if(NOT VNLIB_SANITIZE AND NOT CMAKE_C_FLAGS MATCHES coverage AND NOT CMAKE_CROSSCOMPILING)
  vnlib_script_test(install_test ${PROJECT_BINARY_DIR} ${CMAKE_C_COMPILER} ${CMAKE_CXX_COMPILER})
endif()
if(TARGET appliance)
  vnlib_script_test(appliance_test $<TARGET_FILE:appliance> ${PROJECT_SOURCE_DIR}/examples)
endif()
if(TARGET scsi_decode)
  vnlib_script_test(scsi_decode_test $<TARGET_FILE:scsi_decode>)
endif()

# One line per test program, in the order of the modules.
vnlib_test(bits)
vnlib_test(memcheck)
vnlib_fault_test(memcheck WRAP pthread_create syscall fflush poll usleep)
target_include_directories(memcheck_fault_test PRIVATE ${PROJECT_SOURCE_DIR}/src) # for the checker's walk
vnlib_test(queue)
vnlib_fault_test(queue)
vnlib_test(vnstrings)
vnlib_fault_test(vnstrings WRAP vn_memcheck_malloc vn_memcheck_free vn_memcheck_realloc)
vnlib_test(sax)
vnlib_fault_test(sax)
# The same for the ways that the library was not built with: without blocks of text, and, where the
# C library shows nothing of its buffers, character by character. The host is enough.
if(NOT CMAKE_CROSSCOMPILING)
  set_source_files_properties(../src/sax/sax.cpp PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
  foreach(way IN ITEMS sax_without_blocks sax_by_character)
    add_executable(${way}_test sax_test.cpp ../src/sax/sax.cpp)
    vnlib_warnings(${way}_test)
    target_link_libraries(${way}_test PRIVATE vnlib_static vnlib_test_support)
    target_include_directories(${way}_test PRIVATE ${PROJECT_SOURCE_DIR}/src)
    target_precompile_headers(${way}_test REUSE_FROM sax_test)
    add_test(NAME ${way} COMMAND ${way}_test)
  endforeach()
  target_compile_definitions(sax_without_blocks_test PRIVATE VNLIB_PORTABLE_ONLY=1
    $<$<BOOL:${VNLIB_HAVE_IO_READ_PTR}>:VNLIB_HAVE_IO_READ_PTR=1>)
endif()
vnlib_test(base32)
vnlib_test(base64)
vnlib_test(crc32c)
vnlib_test(iovec)
vnlib_fault_test(iovec WRAP __vn_log)
find_package(OpenSSL) # the digests' peer
if(OPENSSL_FOUND)
  vnlib_test(md5 LIBRARIES OpenSSL::Crypto)
  vnlib_test(sha1 LIBRARIES OpenSSL::Crypto)
  vnlib_test(sha256 LIBRARIES OpenSSL::Crypto)
elseif(CMAKE_CROSSCOMPILING)
  message(STATUS "No OpenSSL for the target: the digests are tested there by tests/abi alone")
else()
  message(FATAL_ERROR "The tests of the digests need OpenSSL as their peer (libssl-dev)")
endif()
# What the shared library does not export: forcing each version written for a processor.
vnlib_test_program(versions_test vnlib_static "" "" versions_test.cpp)
target_include_directories(versions_test PRIVATE ${PROJECT_SOURCE_DIR}/src)
vnlib_test(red_black_tree)
vnlib_fault_test(red_black_tree WRAP __vn_log)
target_include_directories(red_black_tree_fault_test PRIVATE ${PROJECT_SOURCE_DIR}/src) # for the walk
vnlib_test(hash)
vnlib_test(list_sort)
vnlib_test(check_lock)
vnlib_fault_test(check_lock WRAP pthread_spin_init pthread_spin_destroy pthread_spin_lock
  pthread_spin_unlock pthread_mutex_init pthread_mutex_destroy vn_memcheck_malloc vn_memcheck_free
  SOURCES ../src/check_lock/spin_fallback.cpp)
vnlib_test(scsi)
target_compile_definitions(scsi_test PRIVATE VNLIB_SCSI_TABLES="${PROJECT_SOURCE_DIR}/src/scsi")
vnlib_test(log SOURCES support/private_dev.cpp)
vnlib_fault_test(log WRAP tellog_start tellog_finish vn_vtellog openlog closelog vsyslog gmtime_r
  vn_memcheck_malloc vn_memcheck_free)
vnlib_test(tellog)
vnlib_fault_test(tellog WRAP socket bind listen accept4 shutdown syscall poll pthread_create ctime_r)
vnlib_test(corelink_query)
vnlib_test(corelink_merge)
vnlib_test(corelink_xml)
vnlib_test(corelink_text)
vnlib_fault_test(corelink_output)
vnlib_test(vnsock)
vnlib_fault_test(vnsock WRAP socket setsockopt listen getsockname getaddrinfo freeaddrinfo
  getnameinfo connect close fcntl fopen)
# Each takes a network of its own where the machine allows it; elsewhere they share the GUI's port.
vnlib_test(remote_gui RESOURCE_LOCK gui_port)
vnlib_fault_test(remote_gui RESOURCE_LOCK gui_port
  WRAP pthread_create pthread_kill accept recv send setsockopt shutdown)
vnlib_test(corelink_lex)
vnlib_test(corelink_parse TIMEOUT 300)
vnlib_test(corelink_tree)
# Looks at parts of the library that no program sees: how shared tags and lists are counted.
vnlib_fault_test(corelink WRAP vn_memcheck_malloc vn_memcheck_free vn_reference_prep TIMEOUT 300)
target_include_directories(corelink_fault_test PRIVATE ${PROJECT_SOURCE_DIR}/src)
# With the tracker on, records stand on addresses that only the library's own files are let off for;
# of a template that both need, the linker keeps the test's.
target_compile_options(corelink_fault_test PRIVATE -fno-sanitize=alignment)

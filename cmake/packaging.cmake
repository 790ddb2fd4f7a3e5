# Debian packages, made by `./dev package`: libvnlib1 (the library), libvnlib-dev (headers, static
# library, CMake and pkg-config files) and the debug symbols of the library.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libvnlib)
set(CPACK_PACKAGE_VENDOR "the libvnlib authors")
set(CPACK_PACKAGE_CONTACT "the libvnlib authors <libvnlib@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://libvnlib.example.org")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvnlib${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/dbgsym.cmake)
# Which package other packages then depend on, and that the linker's cache is renewed.
set(soname_line "libvnlib ${PROJECT_VERSION_MAJOR} libvnlib${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})")
file(WRITE ${PROJECT_BINARY_DIR}/packaging/shlibs "${soname_line}\n")
file(WRITE ${PROJECT_BINARY_DIR}/packaging/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_BINARY_DIR}/packaging/shlibs ${PROJECT_BINARY_DIR}/packaging/triggers)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "utility library of a storage appliance's firmware")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"Levelled logging that can be watched live, a tracked allocator with a
memory-debugger screen, the corelink configuration language, containers,
socket helpers, TCP tunnelled over any transport, checksums, digests and
codecs, a streaming XML parser and the texts of SCSI codes, behind a plain
C interface.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvnlib-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"This package has the headers, the static library and the CMake and
pkg-config files that are needed to build programs with libvnlib.")

if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  set(CPACK_OBJCOPY_EXECUTABLE arm-linux-gnueabihf-objcopy)
  set(CPACK_OBJDUMP_EXECUTABLE arm-linux-gnueabihf-objdump)
  # dpkg-shlibdeps finds only the cross compiler's C library here, whose package is another.
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.36)")
endif()

# The static library without its debugging information, which nobody could use without the sources.
install(CODE "execute_process(COMMAND ${CMAKE_STRIP} --strip-debug --remove-section=.comment
  \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libvnlib.a\" COMMAND_ERROR_IS_FATAL ANY)"
        COMPONENT development)

# What Debian wants beside every library: licence and changelog under usr/share/doc.
find_program(GZIP gzip REQUIRED)
set(doc_dir ${PROJECT_BINARY_DIR}/packaging)
configure_file(${PROJECT_SOURCE_DIR}/packaging/debian/copyright ${doc_dir}/copyright COPYONLY)
configure_file(${PROJECT_SOURCE_DIR}/packaging/debian/changelog ${doc_dir}/changelog.Debian COPYONLY)
execute_process(COMMAND ${GZIP} -9nkf ${doc_dir}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${doc_dir}/copyright ${doc_dir}/changelog.Debian.gz
        DESTINATION share/doc/libvnlib${PROJECT_VERSION_MAJOR} COMPONENT runtime)
install(FILES ${doc_dir}/copyright ${doc_dir}/changelog.Debian.gz
        DESTINATION share/doc/libvnlib-dev COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/libvnlib1.lintian-overrides
        DESTINATION share/lintian/overrides RENAME libvnlib1 COMPONENT runtime)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/libvnlib-dev.lintian-overrides
        DESTINATION share/lintian/overrides RENAME libvnlib-dev COMPONENT development)
include(CPack)

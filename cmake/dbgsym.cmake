# Run by cpack when the packages are made: gives the package with the debug symbols what Debian wants
# of one and CPack leaves out: checksums of the files where they will lie, the documentation of the
# library as its own, no mode bits for execution.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(NOT package MATCHES "/([^/_]+)-dbgsym_[^/]*\\.ddeb$")
    continue()
  endif()
  set(library ${CMAKE_MATCH_1})
  set(root ${CPACK_TEMPORARY_DIRECTORY}/dbgsym)
  file(REMOVE_RECURSE ${root})
  execute_process(COMMAND dpkg-deb -R ${package} ${root} COMMAND_ERROR_IS_FATAL ANY)
  file(MAKE_DIRECTORY ${root}/usr/share/doc)
  file(CREATE_LINK ${library} ${root}/usr/share/doc/${library}-dbgsym SYMBOLIC)
  execute_process(
    COMMAND sh -c "find usr -type f -exec chmod 644 {} + && find usr -type f -exec md5sum {} + >DEBIAN/md5sums"
    WORKING_DIRECTORY ${root} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz -b ${root} ${package}
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()

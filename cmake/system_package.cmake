# Read by cpack for each kind of package: those of a system own an empty /var/lib/korvalen.
if(CPACK_GENERATOR STREQUAL DEB OR CPACK_GENERATOR STREQUAL RPM)
  list(APPEND CPACK_INSTALL_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/state_directory.cmake)
endif()

# What `cmake --install` puts where. Every file finds the others relative to itself, so the prefix may be moved.

include(CMakePackageConfigHelpers)
find_program(GZIP_COMMAND gzip REQUIRED)

set(korvalen_config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/KorvalenInstall)
set(korvalen_doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/korvalen-install)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

install(TARGETS ${korvalen_programs} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS korvalen_install EXPORT KorvalenInstallTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY src/korvalen DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")

# The library is packed without the debug symbols that the executable's symbol file holds.
if(KORVALEN_STATIC)
  install(CODE "execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-debug --remove-section=.comment --enable-deterministic-archives
    \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libkorvalen_install.a\"
    COMMAND_ERROR_IS_FATAL ANY)")
endif()

# For CMake: find_package(KorvalenInstall 1 CONFIG REQUIRED), target Korvalen::install.
install(EXPORT KorvalenInstallTargets NAMESPACE Korvalen:: DESTINATION ${korvalen_config_dir})
configure_package_config_file(cmake/KorvalenInstallConfig.cmake.in KorvalenInstallConfig.cmake
  INSTALL_DESTINATION ${korvalen_config_dir})
write_basic_package_version_file(KorvalenInstallConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/KorvalenInstallConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/KorvalenInstallConfigVersion.cmake
  DESTINATION ${korvalen_config_dir})

# For everybody else: pkg-config korvalen-install.
file(RELATIVE_PATH korvalen_up_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" korvalen_up_to_prefix "${korvalen_up_to_prefix}")
configure_file(cmake/korvalen-install.pc.in korvalen-install.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/korvalen-install.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Made by gzip -n, without a name or a time.
function(install_gzipped source name directory)
  set(zipped ${CMAKE_CURRENT_BINARY_DIR}/${name}.gz)
  add_custom_command(OUTPUT ${zipped}
    COMMAND ${GZIP_COMMAND} -9 -n -c ${source} > ${zipped} DEPENDS ${source} VERBATIM)
  add_custom_target(gzip_${name} ALL DEPENDS ${zipped})
  install(FILES ${zipped} DESTINATION ${directory})
endfunction()

foreach(program ${korvalen_programs})
  install_gzipped(${CMAKE_CURRENT_SOURCE_DIR}/docs/${program}.8 ${program}.8 ${CMAKE_INSTALL_MANDIR}/man8)
endforeach()
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${korvalen_doc_dir})
install(DIRECTORY docs examples DESTINATION ${korvalen_doc_dir} PATTERN "*.8" EXCLUDE)

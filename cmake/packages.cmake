# Packages of everything that is installed, made by cpack: .tar.gz to unpack anywhere, .deb and .rpm.

# What Debian's packages must hold beside the product's own files. The dates are those of SOURCE_DATE_EPOCH.
string(TIMESTAMP korvalen_year "%Y" UTC)
string(TIMESTAMP korvalen_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(korvalen_maintainer "Korvalen installer team <team@korvalen.invalid>")
set(korvalen_admin_copyright "")
if(TARGET korvalen_admin)
  file(READ cmake/admin_copyright korvalen_admin_copyright)
endif()
configure_file(cmake/copyright.in copyright @ONLY)
configure_file(cmake/changelog.in changelog @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/copyright DESTINATION ${korvalen_doc_dir})
install_gzipped(${CMAKE_CURRENT_BINARY_DIR}/changelog changelog ${korvalen_doc_dir})

set(CPACK_GENERATOR TGZ DEB RPM)
set(CPACK_PACKAGE_NAME korvalen-install)
set(CPACK_PACKAGE_VENDOR "Korvalen installer team")
set(CPACK_PACKAGE_CONTACT ${korvalen_maintainer})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_DESCRIPTION "Writes the product's configuration file, patches the launch scripts of ENVI
and IDL, and deploys the product's extensions into them. An uninstall script
is kept along the way. A second program shows beforehand what would change.
The install library for other programs is here too.")
set(CPACK_PACKAGE_FILE_NAME korvalen-install-${PROJECT_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})

# The state directory of korvalen_admin is the system's packages', not the archive's, which has no place of its own. It is
# left when the package goes and something is in it, and a line says so.
if(TARGET korvalen_admin)
  set(korvalen_state_is_left "/var/lib/korvalen is left: it holds the record of installations and the bytes to take them back;\
 remove it when nothing is installed any more")
  configure_file(cmake/postrm.in postrm @ONLY FILE_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  configure_file(cmake/postun.in postun @ONLY)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/postrm)
  set(CPACK_RPM_POST_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_BINARY_DIR}/postun)
  set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_SOURCE_DIR}/cmake/system_package.cmake)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "g++, cmake, pkg-config")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(NOT KORVALEN_STATIC)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE "All rights reserved")
set(CPACK_RPM_PACKAGE_GROUP Applications/System)
set(CPACK_RPM_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
# What was built is packed as it is, and directories that the system owns stay the system's.
set(CPACK_RPM_SPEC_MORE_DEFINE "%define __os_install_post %{nil}\n%define _build_id_links none")
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /var /var/lib /usr/share/doc /usr/share/man /usr/share/man/man8
  /usr/share/bash-completion /usr/share/bash-completion/completions /usr/share/zsh /usr/share/zsh/site-functions
  /usr/share/fish /usr/share/fish/vendor_completions.d
  /usr/${CMAKE_INSTALL_LIBDIR}/cmake /usr/${CMAKE_INSTALL_LIBDIR}/pkgconfig)

include(CPack)

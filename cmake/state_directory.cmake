# Run by cpack in the directory that becomes the package.
set(korvalen_top ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
file(MAKE_DIRECTORY ${korvalen_top}/var/lib/korvalen)
file(CHMOD ${korvalen_top}/var ${korvalen_top}/var/lib ${korvalen_top}/var/lib/korvalen
  DIRECTORY_PERMISSIONS ${CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})

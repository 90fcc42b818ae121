# The program korvalen_admin. It alone needs libraries beyond the standard one, all of headers only. A plain build without
# them goes without the program; a build with KORVALEN_ADMIN does not.

option(KORVALEN_ADMIN "Fail when what korvalen_admin needs is missing, instead of leaving it out" OFF)
# Read here, so that CMake never calls it unused.
set(korvalen_admin_is_demanded ${KORVALEN_ADMIN})

# Debian's package of each header.
set(korvalen_admin_headers CLI/CLI.hpp libcli11-dev nlohmann/json.hpp nlohmann-json3-dev xxhash.h libxxhash-dev
  dtl/dtl.hpp libdtl-dev)
set(korvalen_admin_lacks "")
while(korvalen_admin_headers)
  list(POP_FRONT korvalen_admin_headers header package)
  string(MAKE_C_IDENTIFIER "KORVALEN_HAS_${header}" found)
  find_path(${found} ${header})
  mark_as_advanced(${found})
  if(NOT ${found})
    list(APPEND korvalen_admin_lacks "${header} (${package})")
  endif()
endwhile()

if(korvalen_admin_lacks)
  list(JOIN korvalen_admin_lacks ", " korvalen_admin_lacks)
  if(korvalen_admin_is_demanded)
    message(FATAL_ERROR "korvalen_admin cannot be built: it lacks ${korvalen_admin_lacks}")
  endif()
  message(STATUS "Without korvalen_admin, which lacks ${korvalen_admin_lacks}")
  return()
endif()

file(GLOB admin_sources CONFIGURE_DEPENDS src/admin/*.cpp)
list(REMOVE_ITEM admin_sources ${CMAKE_CURRENT_SOURCE_DIR}/src/admin/main.cpp)
add_library(korvalen_administration STATIC ${admin_sources})
set_source_files_properties(src/admin/command_line.cpp PROPERTIES
  COMPILE_DEFINITIONS "KORVALEN_VERSION=\"${PROJECT_VERSION}\"")
target_compile_definitions(korvalen_administration PRIVATE _FILE_OFFSET_BITS=64)
target_link_libraries(korvalen_administration PUBLIC korvalen_installation PRIVATE korvalen_options korvalen_instruments)

add_executable(korvalen_admin src/admin/main.cpp)
target_link_libraries(korvalen_admin PRIVATE korvalen_administration korvalen_options korvalen_instruments)

# How this project's own code is compiled; nothing of it reaches those who link the library.

option(KORVALEN_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
option(KORVALEN_HARDENED "Build with the usual hardening of a program that runs as root" OFF)
option(KORVALEN_STATIC "Link the executable statically, strip it, and make the build independent of its directory" OFF)
set(KORVALEN_SANITIZERS "" CACHE STRING "Sanitizers to build with, comma-separated")
option(KORVALEN_COVERAGE "Instrument for coverage" OFF)
option(KORVALEN_TRAPS "Stop at undefined behaviour by a trap, without a library that reports it" OFF)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(korvalen_options INTERFACE)
target_compile_options(korvalen_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wnon-virtual-dtor
  -Woverloaded-virtual -Wformat=2 -Wundef $<$<BOOL:${KORVALEN_WARNINGS_AS_ERRORS}>:-Werror>)
# In an optimized build GCC 12 sees overlapping copies inside std::string where a short literal is put into one.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(korvalen_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:-Wno-restrict>)
endif()

if(KORVALEN_HARDENED)
  target_compile_options(korvalen_options INTERFACE
    -fstack-protector-strong -fstack-clash-protection -fcf-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2
    -D_GLIBCXX_ASSERTIONS)
  target_link_options(korvalen_options INTERFACE
    $<IF:$<BOOL:${KORVALEN_STATIC}>,-static-pie,-pie> -Wl,-z,relro,-z,now -Wl,-z,noexecstack)
endif()

if(KORVALEN_STATIC)
  target_compile_options(korvalen_options INTERFACE -g
    -ffile-prefix-map=${CMAKE_BINARY_DIR}=build -ffile-prefix-map=${CMAKE_SOURCE_DIR}=.)
  target_link_options(korvalen_options INTERFACE -static-pie -Wl,--build-id=sha1)
  # Archives without times, owners and modes.
  set(CMAKE_CXX_ARCHIVE_CREATE "<CMAKE_AR> qcD <TARGET> <LINK_FLAGS> <OBJECTS>")
  set(CMAKE_CXX_ARCHIVE_FINISH "<CMAKE_RANLIB> -D <TARGET>")
endif()

# What looks at src/ while it runs. The tests are compiled without it, and so alike in every build.
add_library(korvalen_instruments INTERFACE)
if(KORVALEN_SANITIZERS)
  target_compile_options(korvalen_instruments INTERFACE
    -fsanitize=${KORVALEN_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(korvalen_instruments INTERFACE -fsanitize=${KORVALEN_SANITIZERS})
endif()
if(KORVALEN_TRAPS)
  target_compile_options(korvalen_instruments INTERFACE -fsanitize=undefined -fsanitize-undefined-trap-on-error)
endif()
if(KORVALEN_COVERAGE)
  # To watch the scopes of temporaries, the address sanitizer would add branches that no test can take, beside each
  # condition that makes one. The fuzzers watch them.
  # Counts of what the system's headers define are asked for by nobody.
  target_compile_options(korvalen_instruments INTERFACE
    --coverage -fprofile-exclude-files=/usr/include/.* -fno-sanitize-address-use-after-scope)
  # Confined children end by _exit, and would leave no counts.
  target_link_options(korvalen_instruments INTERFACE --coverage -Wl,--wrap=_exit)
  add_library(korvalen_counts STATIC tests/coverage/counts_at_exit.cpp)
  target_link_libraries(korvalen_instruments INTERFACE korvalen_counts)
endif()

# The executables ship stripped; the debug symbols of each stay in a file beside it, which debuggers find by its name.

foreach(program ${korvalen_programs})
  add_custom_command(TARGET ${program} POST_BUILD
    COMMAND ${CMAKE_OBJCOPY} --only-keep-debug ${program} ${program}.debug
    COMMAND ${CMAKE_STRIP} --strip-all --remove-section=.comment ${program}
    COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=${program}.debug ${program}
    BYPRODUCTS ${program}.debug
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
    VERBATIM)
endforeach()

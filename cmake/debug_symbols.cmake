# The executable ships stripped; its debug symbols stay in a file beside it, which debuggers find by its name.

add_custom_command(TARGET korvalen_installer POST_BUILD
  COMMAND ${CMAKE_OBJCOPY} --only-keep-debug korvalen_installer korvalen_installer.debug
  COMMAND ${CMAKE_STRIP} --strip-all --remove-section=.comment korvalen_installer
  COMMAND ${CMAKE_OBJCOPY} --add-gnu-debuglink=korvalen_installer.debug korvalen_installer
  BYPRODUCTS korvalen_installer.debug
  WORKING_DIRECTORY ${CMAKE_BINARY_DIR}
  VERBATIM)

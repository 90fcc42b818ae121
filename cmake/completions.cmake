# Completions, where the shells look for them.

install(FILES completions/bash/korvalen_installer DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
install(FILES completions/zsh/_korvalen_installer DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/site-functions)
install(FILES completions/fish/korvalen_installer.fish DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/fish/vendor_completions.d)
if(TARGET korvalen_admin)
  install(FILES completions/bash/korvalen_admin DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
  install(FILES completions/zsh/_korvalen_admin DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/site-functions)
  install(FILES completions/fish/korvalen_admin.fish DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/fish/vendor_completions.d)
endif()

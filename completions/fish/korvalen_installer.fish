# Completion of korvalen_installer for fish.

complete -c korvalen_installer -f
complete -c korvalen_installer -n '__fish_is_first_arg' -l help -d 'Print what the arguments are'
complete -c korvalen_installer -n '__fish_is_first_arg' -l version -d 'Print the version'
complete -c korvalen_installer -n 'test (count (commandline -opc)) -lt 3' -a '(__fish_complete_directories)'
complete -c korvalen_installer -n 'test (count (commandline -opc)) -eq 3' -a local -d 'The local layout'

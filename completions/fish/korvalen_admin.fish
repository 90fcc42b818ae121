# Completion of korvalen_admin for fish.

set -l commands plan install verify uninstall
set -l codes empty-backup installer-complains missing-script no-idl not-deployed nounset quorin-core second-name

complete -c korvalen_admin -f
complete -c korvalen_admin -n "not __fish_seen_subcommand_from $commands" -l help -d 'Print the usage'
complete -c korvalen_admin -n "not __fish_seen_subcommand_from $commands" -l version -d 'Print the version'
complete -c korvalen_admin -n "not __fish_seen_subcommand_from $commands" -a plan -d 'Show every change that an installation would make'
complete -c korvalen_admin -n "not __fish_seen_subcommand_from $commands" -a install -d 'Install all or nothing, and put it on record'
complete -c korvalen_admin -n "not __fish_seen_subcommand_from $commands" -a verify -d 'Check that an installation stands as it was left'
complete -c korvalen_admin -n "not __fish_seen_subcommand_from $commands" -a uninstall -d 'Bring back exactly what was before'
complete -c korvalen_admin -n "__fish_seen_subcommand_from $commands" -a '(__fish_complete_directories)'
complete -c korvalen_admin -n "__fish_seen_subcommand_from $commands" -l local -d 'The local layout: nothing goes to /etc'
complete -c korvalen_admin -n "__fish_seen_subcommand_from $commands" -l json -d 'One JSON object on standard output'
complete -c korvalen_admin -n "__fish_seen_subcommand_from $commands" -l color -x -a 'auto always never' -d Colors
complete -c korvalen_admin -n "__fish_seen_subcommand_from $commands" -l help -d 'Print the usage'
complete -c korvalen_admin -n '__fish_seen_subcommand_from install' -l force -x -a "$codes" -d 'Install in spite of a warning'
complete -c korvalen_admin -n '__fish_seen_subcommand_from uninstall' -l plan -d 'Show all of it and touch nothing'

# Behind bench/statistics.awk and bench/tables.awk. Reads what bench/install prints and writes tables: what it costs to
# install, verify and uninstall with korvalen_admin beside the installer alone, and how many bytes are kept for that.
#
# Every number is the median over the rounds. A ratio is the median of the rounds'.

$1 == "kept" { kept[$2, $3] = $5 }

END {
  program_count = split("installer install verify uninstall", programs)
  label["installer"] = "installer"
  label["install"] = "install"
  label["verify"] = "verify"
  label["uninstall"] = "uninstall"
  for (i = 1; i <= tree_count; ++i) {
    print_table(trees[i])
    printf "In /var/lib/korvalen behind an install: %.1f KiB\n\n", kept[trees[i]] / 1024
  }
}

# The documented ones: a second for each of ENVI's three launch scripts.
function waits(peer) { return peer ~ /-(installer|install)$/ ? 3 : 0 }

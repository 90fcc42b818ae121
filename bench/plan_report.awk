# Behind bench/statistics.awk and bench/tables.awk. Reads what bench/plan prints and writes tables, growth and targets:
# what the plan of an installation costs beside the installation. Ends with status 1 when a target is missed.
#
# Every number is the median over the rounds. A ratio or a difference is the median of the rounds'.

END {
  program_count = split("plan installer again", programs)
  label["plan"] = "plan"
  label["installer"] = "installer"
  label["again"] = "plan of the next"
  for (i = 1; i <= tree_count; ++i)
    print_table(trees[i])
  for (i = 1; i <= preset_count; ++i)
    check_targets(presets[i])
  exit missed > 0
}

# The documented ones: a second for each of ENVI's three launch scripts. A plan waits for none.
function waits(peer) { return peer ~ /-installer$/ ? 3 : 0 }

function difference(tree, peer, other,    round, values) {
  for (round = 1; round <= rounds; ++round)
    values[round] = cpu[tree, peer, round] - cpu[tree, other, round]
  return median(values, rounds)
}

function check_targets(preset,    plan, installer, i, peak, tree, growth, more) {
  printf "Targets of the plan, build/%s\n\n", preset
  plan = preset "-plan"
  installer = preset "-installer"
  split("tmpfs disk", places)
  for (i = 1; i <= 2; ++i) {
    tree = "samples" SUBSEP places[i]
    more = 1000 * difference(tree, plan, installer)
    check(more <= 20, sprintf("%s: %.1f ms of CPU time beyond the installer's; at most 20", name_of(tree), more))
    check(wall_of(tree, plan) <= 0.5, sprintf("%s: %.3f s of wall time; at most 0.5", name_of(tree), wall_of(tree, plan)))
  }
  tree = "files" SUBSEP 10000
  check(ratio(tree, plan, installer) <= 2.5,
    sprintf("10000 files: %.2f times the installer's CPU time; at most 2.5 (and %.2f times with all in place already)",
      ratio(tree, plan, installer), ratio(tree, preset "-again", installer)))
  growth = cpu_growth(plan, "files")
  check(growth + 0 > 0 && growth + 0 <= 1.1, sprintf("growth over files: exponent %s; at most 1.1", growth))
  for (i = 1; i <= tree_count; ++i) {
    peak = max(peak, max_peak(trees[i], plan))
    peak = max(peak, max_peak(trees[i], preset "-again"))
  }
  check(peak < 64, sprintf("peak memory of its largest process over all trees: %.1f MiB; below 64", peak))
  print ""
}

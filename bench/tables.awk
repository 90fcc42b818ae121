# What bench/plan_report.awk and bench/install_report.awk share, behind bench/statistics.awk: the table of a tree, with a
# line for each program of each preset. Whoever reads this fills `programs`, `program_count` and the `label` of each.

BEGIN { preset_count = split("release static", presets) }

function name_of(tree,    parts) {
  split(tree, parts, SUBSEP)
  return parts[1] == "samples" ? "samples on the " (parts[2] == "disk" ? "disk" : "tmpfs") : tree_name(tree)
}

function print_table(tree,    i, j, peer, other) {
  printf "%s\n\n%-32s %9s %11s %9s %8s %8s %9s\n", name_of(tree), "", "CPU s", "x installer", "wall s", "own MiB", "max MiB", "calls"
  for (i = 1; i <= preset_count; ++i)
    for (j = 1; j <= program_count; ++j) {
      peer = presets[i] "-" programs[j]
      other = presets[i] "-installer"
      printf "%-32s %9.4f %11.2f %9.4f %8.1f %8.1f %9d\n", label[programs[j]] ", build/" presets[i], cpu_of(tree, peer),
        ratio(tree, peer, other), wall_of(tree, peer), own_peak[tree, peer], max_peak(tree, peer), calls[tree, peer]
    }
  print ""
}

function max(a, b) { return a > b ? a : b }

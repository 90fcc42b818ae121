# Behind bench/statistics.awk. Reads what bench/run prints and writes the tables, the growth and the targets; with
# -v plot=FILE also the CPU seconds by number of files, for bench/plot.gp. Ends with status 1 when a target is missed.
#
# Every number is the median over the rounds. A ratio is the median of the rounds' ratios.

END {
  label["release"] = "installer, build/release"
  label["static"] = "installer, build/static"
  label["install"] = "(a) install, one a file"
  label["install-t"] = "(b) install -t, one a directory"
  label["cmake"] = "(c) cmake --install"
  label["rsync"] = "(d) rsync -a"
  label["cat"] = "cat SOURCE >TARGET"
  label["cp"] = "cp SOURCE TARGET"
  tool_count = split("release static", tools)

  for (i = 1; i <= tree_count; ++i)
    print_table(trees[i])
  for (i = 1; i <= tool_count; ++i)
    print_growth(tools[i])
  for (i = 1; i <= tool_count; ++i)
    check_targets(tools[i])
  if (plot != "")
    write_plot()
  exit missed > 0
}

# The documented ones: a second for each of ENVI's three launch scripts.
function waits(peer) { return peer == "release" || peer == "static" ? 3 : 0 }

function print_table(tree,    names, count, i, peer) {
  printf "%s\n\n", tree_name(tree)
  printf "%-32s %9s %9s %9s %8s %8s %10s %9s\n", "", "CPU s", "x static", "wall s", "own MiB", "max MiB", "processes", "calls"
  count = split(peers_of[tree], names, " ")
  for (i = 1; i <= count; ++i) {
    peer = names[i]
    printf "%-32s %9.4f %9.2f %9.4f %8.1f %8.1f %10d %9d\n", label[peer], cpu_of(tree, peer), ratio(tree, peer, "static"),
      wall_of(tree, peer), own_peak[tree, peer], max_peak(tree, peer), processes[tree, peer], calls[tree, peer]
  }
  print ""
}

function print_growth(tool,    i, peak, low, high) {
  low = 1e9
  for (i = 1; i <= tree_count; ++i) {
    peak = own_peak[trees[i], tool]
    low = peak < low ? peak : low
    high = peak > high ? peak : high
  }
  printf "Growth, %s\n\n", label[tool]
  printf "an empty tree takes %.4f CPU seconds; what is added to them grows with the exponent\n", cpu_of("files" SUBSEP 0, tool)
  printf "  over files  %s\n", cpu_growth(tool, "files")
  printf "  over bytes  %s\n", cpu_growth(tool, "bytes")
  printf "own peak memory over all trees: %.2f to %.2f MiB\n\n", low, high
}

function check_targets(tool,    i, tree, most, peak, large, peer, samples) {
  printf "Targets, %s\n\n", label[tool]
  most = "files" SUBSEP 10000
  check(ratio(most, "install", tool) >= 30,
    sprintf("10000 files: (a) takes %.1f times its CPU time; at least 30", ratio(most, "install", tool)))
  check(ratio(most, tool, "install-t") <= 1.3,
    sprintf("10000 files: it takes %.2f times the CPU time of (b); at most 1.3", ratio(most, tool, "install-t")))
  check_ahead("cmake", tool)
  check_ahead("rsync", tool)
  large = "bytes" SUBSEP 1000000000
  check(ratio(large, tool, "cat") <= 1.2,
    sprintf("1 GB: it takes %.2f times the CPU time of cat; at most 1.2 (and %.2f times that of cp)", ratio(large, tool, "cat"),
      ratio(large, tool, "cp")))
  for (i = 1; i <= tree_count; ++i)
    if (max_peak(trees[i], tool) > peak)
      peak = max_peak(trees[i], tool)
  check(peak < 6, sprintf("peak memory of its largest process: %.1f MiB; below 6", peak))
  samples = 1000 * wall_of("samples" SUBSEP "tmpfs", tool)
  check(samples <= 40, sprintf("samples: %.1f ms beyond the waits; at most 40 (%.1f ms on the disk)", samples,
    1000 * wall_of("samples" SUBSEP "disk", tool)))
  print ""
}

function check_ahead(peer, tool,    size, met, text) {
  met = 1
  for (size = 100; size <= 10000; size *= 10) {
    met = met && ratio("files" SUBSEP size, peer, tool) > 1
    text = text sprintf(" %.2f", ratio("files" SUBSEP size, peer, tool))
  }
  check(met, sprintf("100, 1000 and 10000 files: %s takes%s times its CPU time; more than 1", label[peer], text))
}

function write_plot(    i, j, parts, names, count, columns) {
  columns = "release static install install-t cmake rsync"
  count = split(columns, names, " ")
  printf "files" >plot
  for (j = 1; j <= count; ++j)
    printf " \"%s\"", label[names[j]] >plot
  for (i = 1; i <= tree_count; ++i) {
    split(trees[i], parts, SUBSEP)
    if (parts[1] != "files" || parts[2] == 0)
      continue
    printf "\n%d", parts[2] >plot
    for (j = 1; j <= count; ++j)
      printf " %.6f", cpu_of(trees[i], names[j]) >plot
  }
  print "" >plot
}

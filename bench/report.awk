# Reads what bench/run prints and writes the tables, the growth and the targets; with -v plot=FILE also the CPU seconds
# by number of files, for bench/plot.gp. Ends with status 1 when a target is missed.
#
# Every number is the median over the rounds. A ratio is the median of the rounds' ratios.

$1 == "time" {
  cpu[$2, $3, $4, $5] = $6
  wall[$2, $3, $4, $5] = $7 - waits($4)
  if ($5 > rounds)
    rounds = $5
}

$1 == "count" {
  if (!(($2, $3) in peers_of))
    trees[++tree_count] = $2 SUBSEP $3
  peers_of[$2, $3] = peers_of[$2, $3] " " $4
  processes[$2, $3, $4] = $6
  calls[$2, $3, $4] = $7
  own_peak[$2, $3, $4] = $8 / 1024
  other_peak[$2, $3, $4] = $9 / 1024
}

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

function median(values, count,    i, j, value) {
  for (i = 2; i <= count; ++i) {
    value = values[i]
    for (j = i - 1; j > 0 && values[j] > value; --j)
      values[j + 1] = values[j]
    values[j + 1] = value
  }
  return count % 2 ? values[(count + 1) / 2] : (values[count / 2] + values[count / 2 + 1]) / 2
}

function cpu_of(tree, peer,    round, values) {
  for (round = 1; round <= rounds; ++round)
    values[round] = cpu[tree, peer, round]
  return median(values, rounds)
}

function wall_of(tree, peer,    round, values) {
  for (round = 1; round <= rounds; ++round)
    values[round] = wall[tree, peer, round]
  return median(values, rounds)
}

# How many times the CPU time of `other` the peer takes.
function ratio(tree, peer, other,    round, values) {
  for (round = 1; round <= rounds; ++round)
    values[round] = cpu[tree, peer, round] / cpu[tree, other, round]
  return median(values, rounds)
}

function tree_name(tree,    parts) {
  split(tree, parts, SUBSEP)
  return parts[1] == "files" ? parts[2] " files of 4 KiB" : "one file of " parts[2] / 1000000 " MB"
}

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

function max_peak(tree, peer) {
  return own_peak[tree, peer] > other_peak[tree, peer] ? own_peak[tree, peer] : other_peak[tree, peer]
}

# The exponent of a power law through the points, by least squares.
function exponent(x, y, count,    i, sx, sy, sxx, sxy) {
  for (i = 1; i <= count; ++i) {
    sx += log(x[i])
    sy += log(y[i])
    sxx += log(x[i]) ^ 2
    sxy += log(x[i]) * log(y[i])
  }
  return (count * sxy - sx * sy) / (count * sxx - sx ^ 2)
}

# What the empty tree costs is taken off first. A size that adds less than half of that says nothing of growth.
function cpu_growth(tool, kind,    i, parts, start, added, count, x, y, sizes) {
  start = cpu_of("files" SUBSEP 0, tool)
  for (i = 1; i <= tree_count; ++i) {
    split(trees[i], parts, SUBSEP)
    added = cpu_of(trees[i], tool) - start
    if (parts[1] != kind || parts[2] == 0 || added < start / 2)
      continue
    x[++count] = parts[2]
    y[count] = added
    sizes = sizes " " parts[2]
  }
  if (count < 2)
    return "not known"
  return sprintf("%.2f (from%s %s)", exponent(x, y, count), sizes, kind)
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

function check(met, text) {
  printf "%-7s %s\n", met ? "met" : "MISSED", text
  missed += !met
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

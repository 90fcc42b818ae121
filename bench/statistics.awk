# What bench/report.awk and bench/plan_report.awk share: reading what was measured, medians and growth. Whoever reads this
# says by waits() how long a peer waits.

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

function check(met, text) {
  printf "%-7s %s\n", met ? "met" : "MISSED", text
  missed += !met
}

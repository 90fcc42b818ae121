# Draws the file named by `data`: a row for each number of files, a column for each peer.
set terminal svg size 720,480 font "sans-serif,13" background "white"
set title "CPU time of one installation (files of 4 KiB, tmpfs)"
set logscale xy
set xlabel "files"
set ylabel "CPU seconds (user + system, all processes)"
set format x "%.0f"
set grid
set key left top
set style data linespoints
plot for [column = 2:7] data using 1:column title columnheader(column) linewidth (column <= 3 ? 3 : 1.5)

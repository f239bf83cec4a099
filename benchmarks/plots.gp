# SPDX-License-Identifier: Apache-2.0
# Draws the two plots from the data that a run leaves in `directory`.
set datafile separator tab
set terminal svg size 900,480 font "sans-serif,13" background "white"
set grid ytics lc rgb "#dddddd"
set border 3
set tics nomirror

# Each archive twice, the library and the floor, both in percent of the floor.
set output directory."/install-steps.svg"
set title "Where the time of an install goes (the floor's is 100 %)"
set style data histograms
set style histogram rowstacked
set style fill solid 0.9 border lc rgb "white"
set boxwidth 0.75
set key outside right invert
set yrange [0:*]
set ylabel "% of the floor's time"
set xtics rotate by 20 right
array steps[6] = ["sweep, record, count", "unzip tool", "walk and modes", \
                  "flush to disk", "exchange, removal", "saved copy"]
array colors[6] = ["#4e79a7", "#bab0ac", "#59a14f", "#e15759", "#f28e2b", "#b07aa1"]
plot for [step = 1:6] directory."/steps.dat" using (column(step + 1)):xtic(1) \
  title steps[step] lc rgb colors[step]

set output directory."/services.svg"
set title "Cost against the number of services"
set style data linespoints
set key top left noinvert inside
set logscale xy
set format y "%g"
set xtics norotate
set xlabel "services"
set ylabel "milliseconds"
set yrange [*:*]
set xrange [7:15000]
plot directory."/installs.dat" using (real(strcol(1))):2 title "install of tiny" lw 2 pt 7 lc rgb "#4e79a7", \
  directory."/installs.dat" using (real(strcol(1))):3 title "its floor" dt 2 pt 6 lc rgb "#4e79a7", \
  directory."/lookups.dat" using (real(strcol(1))):2 title "lookup, miss" lw 2 pt 7 lc rgb "#e15759", \
  directory."/lookups.dat" using (real(strcol(1))):3 title "its raw loop" dt 2 pt 6 lc rgb "#e15759"

# SPDX-License-Identifier: Apache-2.0
# Calls per second and processor time of each over payload size, from Save.tsv and Log.tsv.
set terminal svg size 900,700 font "sans,12" background "white"
set output "calls.svg"
set logscale xy
set grid
set key top right
set xtics ("300 B" 300, "4 KiB" 4096, "64 KiB" 65536, "1 MiB" 1048576, "16 MiB" 16777216)
set xrange [200:30000000]
set multiplot layout 2,2 title "32 calls under way: daemon beside limit"
do for [method in "Save Log"] {
  set title method.": calls/s"
  plot method.".tsv" using 1:2 with linespoints title "limit", "" using 1:3 with linespoints title "daemon"
}
set key top left
do for [method in "Save Log"] {
  set title method.": server CPU per call, µs"
  plot method.".tsv" using 1:4 with linespoints title "limit", "" using 1:5 with linespoints title "daemon"
}

# Draws what "table.py --data" prints: gnuplot -c growth.gnuplot DATA > growth.svg
set terminal svg size 960,540 dynamic font "sans-serif,13" background "#ffffff"
set multiplot layout 2,3
set logscale x 10
set format x "10^{%T}"
set autoscale xfix
set border 3 lc rgb "#57606a"
set tics nomirror scale 0.5
set grid ytics lt 1 lw 0.5 lc rgb "#d0d7de"
set style data linespoints
set linetype 2 lc rgb "#0969da" lw 2 pt 7 ps 0.5
set linetype 3 lc rgb "#bc4c00" lw 2 pt 7 ps 0.5
set linetype 4 lc rgb "#0969da" lw 2 pt 7 ps 0.5 dt 2
set linetype 5 lc rgb "#bc4c00" lw 2 pt 7 ps 0.5 dt 2
set key bmargin center horizontal maxcols 2 samplen 1 width -4
unset mxtics

# From 0 to above the largest value of the columns, by four or five round steps.
step(max) = 10 ** floor(log10(max)) * (max < 2 * 10 ** floor(log10(max)) ? 0.5 : \
                                       max < 5 * 10 ** floor(log10(max)) ? 1 : 2)
fit(max) = sprintf("set ytics %g; set yrange [0:%g]", \
                   step(max), step(max) * ceil(1.05 * max / step(max)))

operations = "'after messages' 'many in flight' 'round trip' 'one of many'"
titles = "'Messages, one in flight' 'Calls in flight' 'Methods, in one process' \
          'Clients, all but one idle'"
counts = "'messages so far' 'calls in flight' 'methods of the server' 'clients, each with a task'"
set ylabel "a call [µs]"
do for [i = 1:4] {
  set autoscale y
  stats ARG1 index word(operations, i) using 2 nooutput
  eval fit(STATS_max)
  set title word(titles, i)
  set xlabel word(counts, i)
  plot ARG1 index word(operations, i) using 1:2 notitle lt 2
}

set ylabel "memory [MiB]"
do for [i = 1:4:3] {
  set autoscale y
  stats ARG1 index word(operations, i) using ($3 > $4 ? $3 / 1024 : $4 / 1024) nooutput
  eval fit(STATS_max)
  set title i == 1 ? "Memory by messages" : "Memory by clients"
  set xlabel word(counts, i)
  plot for [column = 3:6] ARG1 index word(operations, i) using 1:(column(column) / 1024) \
       title word("'client private' 'client heap' 'task private' 'task heap'", column - 2) \
       lt word("2 4 3 5", column - 2) + 0
}
unset multiplot

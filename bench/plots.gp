# Draws the CSV files of `ryn_bench --csv`.
#   gnuplot -e "csv='DIR'; out='DIR'" plots.gp        SVG; with -e "format='png'" PNG
if (!exists("format")) format = "svg"
if (!exists("csv")) csv = "."
if (!exists("out")) out = csv
if (format eq "svg") {
  set terminal svg size 960,560 font "Helvetica,13" background rgb "white"
} else {
  set terminal pngcairo size 960,560 font "Helvetica,12" background rgb "white"
}
set datafile separator comma

# A row has the same colour in every plot: the library blue, other queues grey to red, the rest apart.
array names[11] = ["library", "channel", "raw", "raw-floor", "raw-naive", "posix-mq", "seqpacket", \
                   "sdbus-p2p", "zeromq", "nng", "sdbus-daemon"]
array colours[11] = ["#0050b5", "#5aa9e6", "#777777", "#b58900", "#e69f00", "#c1440e", "#2a9d4a", \
                     "#c77dcf", "#1b9e9e", "#6b8e23", "#6a2c91"]
array titles[11] = ["library", "library's channel, no JSON", "raw queue, no JSON", \
                    "raw queue, StyledWriter", "raw queue, toStyledString", "POSIX message queue", \
                    "UNIX SOCK\\_SEQPACKET", "sd-bus peer to peer", "ZeroMQ", "nng", "sd-bus, bus daemon"]
width(i) = i == 1 ? 3.5 : 1.8

set grid linecolor rgb "#dddddd" linetype 1 linewidth 1
set border 3 linecolor rgb "#666666"
set tics nomirror
set key outside right center Left reverse samplen 2 spacing 1.2

# Columns: latency.csv  mode row title part microseconds
#          sweep.csv    mode row title bytes records microseconds
#          results.csv  work mode msgmnb row title metric median low high
latency = csv."/latency.csv"
sweep = csv."/sweep.csv"
results = csv."/results.csv"
is_row(i) = strcol(1) eq mode && strcol(2) eq names[i]
is_times(i) = strcol(2) eq mode && strcol(4) eq names[i] && strcol(6) eq "times_limit"
times(i, n) = is_times(i) ? column(n) : NaN

do for [mode in "pinned free"] {
  where = mode eq "pinned" ? "both processes on one core" : "unpinned"

  # The rows that ran, the library last so that it is drawn on top.
  rows = ""
  set xrange [*:*]
  set yrange [*:*]
  do for [i = 11:1:-1] {
    stats latency using (is_row(i) ? 1 : 0) nooutput
    if (STATS_sum > 0) { rows = rows." ".i }
  }
  if (words(rows) > 0) {
    set output out."/latency-".mode.".".format
    set title "How long a round trip takes, ".where
    set xlabel "microseconds (logarithmic); further left is better"
    set ylabel "share of calls that take longer"
    set logscale xy
    set yrange [0.0005:1]
    set xtics ("2" 2, "5" 5, "10" 10, "20" 20, "50" 50, "100" 100, "200" 200, "500" 500, \
               "1 ms" 1000, "2 ms" 2000, "5 ms" 5000)
    set ytics ("all" 1, "half" 0.5, "1 in 10" 0.1, "1 in 100" 0.01, "1 in 1000" 0.001)
    plot for [row in rows] latency using (is_row(int(row)) ? $5 : NaN):(1 - $4) with lines \
      linewidth width(int(row)) linecolor rgb colours[int(row)] title titles[int(row)]
    unset logscale
    set xtics autofreq
    set ytics autofreq

    set output out."/ratio-".mode.".".format
    set title "Round trip as a multiple of the raw queue without JSON, ".where
    set xlabel "times the raw queue: median and range over the rounds; shorter is better"
    unset ylabel
    unset key
    set xrange [0:*]
    set yrange [11.6:0.4]
    set ytics ()
    do for [row in rows] { set ytics add (titles[int(row)] int(row)) }
    set style fill solid 0.85 noborder
    plot for [row in rows] results using (times(int(row), 7) / 2):(int(row)):(times(int(row), 7) / 2):(0.36) \
        with boxxyerror linecolor rgb colours[int(row)], \
      for [row in rows] results \
        using (times(int(row), 7)):(int(row)):(times(int(row), 8)):(times(int(row), 9)) \
        with xerrorbars pointtype 0 linewidth 1.2 linecolor rgb "#333333", \
      for [row in rows] results using (times(int(row), 9)):(int(row)):(sprintf("  %.2f", $7)) \
        with labels left
    set key
    set ytics autofreq
  }

  rows = ""
  set xrange [*:*]
  set yrange [*:*]
  do for [i = 11:1:-1] {
    stats sweep using (is_row(i) ? 1 : 0) nooutput
    if (STATS_sum > 0) { rows = rows." ".i }
  }
  if (words(rows) > 0) {
    set output out."/sweep-".mode.".".format
    set title "Round trip by size of the request, ".where
    set xlabel "bytes of request text (a record of the queue holds 1025)"
    set ylabel "microseconds, median"
    set xrange [0:16400]
    set yrange [0:*]
    set xtics 2050
    plot for [row in rows] sweep using (is_row(int(row)) ? $4 : NaN):6 \
      with linespoints pointtype 7 pointsize 0.5 \
      linewidth width(int(row)) linecolor rgb colours[int(row)] title titles[int(row)]
    set xtics autofreq
  }
}

# Bars for bench/chart: columns 2 and 3 of `figures` are gigabytes a second, warm and cold.
set terminal svg size 760,380 font "sans-serif,13" background "white"
set datafile separator "\t"
set xrange [0:*]
set yrange [-0.7:*]
set xlabel "GB a second, of a toolchain's tree; longer is faster"
set border 1
set tics nomirror
set ytics scale 0
set grid xtics linecolor "#dddddd"
set key right bottom
set style fill solid
plot figures using (0.5 * $2):0:(0.5 * $2):(0.18):yticlabels(1) with boxxyerror notitle linecolor "white", \
    "" using (0.0):($0 + 0.2):(0.0):2:($0 + 0.02):($0 + 0.38) with boxxyerror title "in memory" linecolor "#1f77b4", \
    "" using (0.0):($0 - 0.2):(0.0):3:($0 - 0.38):($0 - 0.02) with boxxyerror title "from the disk" linecolor "#9ecae1", \
    "" using 2:($0 + 0.2):(sprintf(" %.2f", $2)) with labels left notitle, \
    "" using 3:($0 - 0.2):(sprintf(" %.2f", $3)) with labels left notitle

# Draws results.png from the three data files bench.py writes; called with
# -e "out='...'; standard='...'; scale='...'; cost='...'".
set terminal pngcairo size 1100,1400 font "sans,10"
set output out
set multiplot layout 3,1 margins 0.09,0.91,0.06,0.97 spacing 0,0.12
set style fill solid 0.8 border -1
set grid ytics
set key inside top left horizontal maxcols 3 opaque
set xtics rotate by -15 nomirror
set offsets 0.5, 0.5, graph 0.3, 0  # headroom for the key

set title "Run time against the floor of the fixed waits (median; label: run time / floor)"
set ylabel "seconds"
set yrange [0:*]
set boxwidth 0.35
plot standard using ($0-0.18):2:xtic(1) with boxes lc rgb "#9e9e9e" title "floor (fixed waits)", \
     '' using ($0+0.18):3 with boxes lc rgb "#1f77b4" title "run time", \
     '' using ($0+0.18):3:(sprintf("%.3f", $3/$2)) with labels offset 0,0.8 notitle

set title "Discovery at scale: cameras found by one discovery, % of those present"
set ylabel "% found"
set yrange [0:150]
set ytics 0,20,100
set boxwidth 0.19
plot scale using ($0-0.3):2:xtic(1) with boxes lc rgb "#1f77b4" title "tool, first enumeration (median)", \
     '' using ($0-0.3):2:3:4 with yerrorbars lc rgb "black" pt 0 title "tool, min-max", \
     '' using ($0-0.1):7 with boxes lc rgb "#9467bd" title "tool, 2 MiB receive buffer", \
     '' using ($0+0.1):5 with boxes lc rgb "#ff7f0e" title "arv-tool-0.8", \
     '' using ($0+0.3):6 with boxes lc rgb "#2ca02c" title "arv-tool-0.8 --gv-allow-broadcast-discovery-ack"

set title "Cost of the tool (median)"
set ylabel "CPU time, user + sys (s)"
set y2label "peak resident memory (MiB)"
set yrange [0:*]
set y2range [0:*]
set ytics autofreq nomirror
set y2tics
set boxwidth 0.35
plot cost using ($0-0.18):2:xtic(1) with boxes lc rgb "#1f77b4" title "CPU time", \
     '' using ($0+0.18):3 axes x1y2 with boxes lc rgb "#d62728" title "peak RSS"

unset multiplot

# One family's chart: CPU and latency of each program, stream by stream.
# Called with -e "data='FILE'; chart='FILE'; other='NAME'; latency='TEXT'; spins=0 or 1".
# Spinning costs so much more that its chart has a logarithmic scale.
set terminal svg size 960,400 font "sans-serif,12" background "white"
set output chart
set multiplot layout 1,2 margins 0.06,0.98,0.27,0.90 spacing 0.08
set style data histograms
set style histogram clustered gap 1
set style fill solid noborder
set boxwidth 0.9
set grid ytics linecolor "#dddddd"
set border 3
set tics nomirror
set key below vertical maxrows 2 samplen 1 font ",10"

set title "CPU seconds per GB".(spins ? ", logarithmic" : "")
if (spins) set logscale y
set yrange [spins ? 1 : 0:*]
plot data using 2:xtic(1) title "tidewell" linecolor "#1f6f8b", \
     data using 3 title "bare loop" linecolor "#99a8b2", \
     data using 4 title other linecolor "#e0a458"

unset logscale
set yrange [0:*]
set title latency
plot data using 5:xtic(1) title "tidewell" linecolor "#1f6f8b", \
     data using 6 title "bare loop" linecolor "#99a8b2", \
     data using 7 title other linecolor "#e0a458"
unset multiplot

# One family's chart: CPU and latency of each program, stream by stream.
# Called with -e "data='FILE'; chart='FILE'; other='NAME'; latency='TEXT'".
set terminal svg size 900,380 font "sans-serif,12" background "white"
set output chart
set multiplot layout 1,2 margins 0.07,0.98,0.16,0.80 spacing 0.09
set style data histograms
set style histogram clustered gap 1
set style fill solid border -1
set boxwidth 0.9
set grid ytics linecolor "#dddddd"
set border 3
set tics nomirror
set yrange [0:*]
set key above horizontal

set title "CPU seconds per GB"
plot data using 2:xtic(1) title "tidewell" linecolor "#1f6f8b", \
     data using 3 title "bare loop" linecolor "#99a8b2", \
     data using 4 title other linecolor "#e0a458"

set title latency
plot data using 5:xtic(1) title "tidewell" linecolor "#1f6f8b", \
     data using 6 title "bare loop" linecolor "#99a8b2", \
     data using 7 title other linecolor "#e0a458"
unset multiplot

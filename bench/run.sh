#!/bin/sh
# Builds the benchmarks, runs them all and puts the figures into docs/performance.md: the
# tables between its two marker lines, the charts beside it. Options (--rounds N,
# --seconds S) go to tidewell_bench.
set -eu
cd "$(dirname "$0")/.."

document=docs/performance.md
results=build/bench-results

draw() {
    gnuplot -e "data='$results/$1.dat'; chart='docs/performance-$1.svg'; other='$2'; latency='$3'; spins=$4" \
        bench/chart.gp
}

# Keeps the document's own text, which stands outside the markers.
replace_tables() {
    awk -v tables="$results/tables.md" '
        /<!-- figures: end -->/ { inside = 0 }
        !inside { print }
        /<!-- figures: begin -->/ {
            inside = 1
            while ((getline line < tables) > 0) print line
        }' "$document" >"$results/performance.md"
    cat "$results/performance.md" >"$document"
}

cmake --preset release -DTIDEWELL_BENCHMARKS=ON >/dev/null
cmake --build --preset release --target tidewell_bench >/dev/null
build/bench/tidewell_bench "$results" "$@"
draw decoder "bare loop, spinning" "Median latency above the fastest, us" 1
draw encoder "bare loop, plain scheduler" "Median latency, device to wire, us" 0
replace_tables
echo "Written: $document"

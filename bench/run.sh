#!/bin/sh
# Builds the benchmarks, runs them and puts the figures into docs/performance.md: each
# chapter between its two marker lines, the charts beside it. Chapters and options go to
# tidewell_bench; a chapter that is not measured stays as it is.
set -eu
cd "$(dirname "$0")/.."

document=docs/performance.md
results=build/bench-results

draw() {
    [ -f "$results/$1.dat" ] || return 0
    gnuplot -e "data='$results/$1.dat'; chart='docs/performance-$1.svg'; other='$2'; latency='$3'; spins=$4" \
        bench/chart.gp
}

# Keeps the document's own text, which stands outside the markers.
replace_chapter() {
    awk -v chapter="$1" -v table="$results/$1.md" '
        $0 == "<!-- " chapter ": end -->" { inside = 0 }
        !inside { print }
        $0 == "<!-- " chapter ": begin -->" {
            inside = 1
            while ((getline line < table) > 0) print line
        }' "$document" >"$results/performance.new"
    cat "$results/performance.new" >"$document"
}

cmake --preset release -DTIDEWELL_BENCHMARKS=ON >/dev/null
cmake --build --preset release --target tidewell_bench >/dev/null
rm -rf "$results"
build/bench/tidewell_bench "$results" "$@"
draw decoder "bare loop, spinning" "Median latency above the fastest, us" 1
draw encoder "bare loop, plain scheduler" "Median latency, device to wire, us" 0
for table in "$results"/*.md; do
    replace_chapter "$(basename "$table" .md)"
done
echo "Written: $document"

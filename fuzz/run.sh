#!/bin/sh
# Builds the fuzzers with clang and runs each for some seconds (60). What they find new is
# kept in build-fuzz/; an input that breaks something is named in the output.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
dir=build-fuzz

[ -f $dir/build.ninja ] || cmake -B $dir -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DTIDEWELL_FUZZERS=ON >/dev/null
ninja --quiet -C $dir fuzzers
for fuzzer in "$dir"/fuzz/*_fuzzer; do
    name=$(basename "$fuzzer" _fuzzer)
    found=$dir/fuzz/found_$name
    log=$found.log
    echo "$name, $seconds s"
    "$fuzzer" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=1024 -max_len=4096 -print_final_stats=1 \
        -artifact_prefix="$found/" "$found" "fuzz/corpus/$name" >"$log" 2>&1 || { tail -n 40 "$log"; exit 1; }
    grep -o 'cov: [0-9]*' "$log" | tail -n 1
    grep 'number_of_executed_units' "$log"
done

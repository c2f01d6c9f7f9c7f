#!/bin/bash
# Fuzzes the journal of undecided threats: arbitrary bytes as its file, checked against what the
# journal promises (tests/journalpromises.h).
#   scripts/fuzz.sh [SECONDS]     (default 60)
# Builds the target with clang and libFuzzer, ASan and UBSan in build-fuzz/ (a build that accepts
# any checksum, so that the fuzzer gets past it), starts from the committed seeds and regression
# cases (tests/fuzz/) with the record syntax as a dictionary, and prints executions, coverage and
# findings. A finding is kept in build-fuzz/findings/; copy it into tests/fuzz/regressions/, where
# the ordinary suite runs it, once the cause is fixed. Exits non-zero on a finding.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-60}
build=$top/build-fuzz
# clang, libFuzzer and the sanitizer runtimes of the release's default clang (deps.sh finds which).
"$top/scripts/deps.sh" fuzz
cd "$top"
cmake --preset fuzz > "$build.configure.log" 2>&1 || { cat "$build.configure.log"; exit 1; }
rm -f "$build.configure.log"
cmake --build --preset fuzz -j 2 > "$build.build.log" 2>&1 || { tail -n 40 "$build.build.log"; exit 1; }
rm -f "$build.build.log"
# The corpus grows in the build folder; the committed seeds are read, never written.
mkdir -p "$build/corpus" "$build/findings"
log=$build/fuzz.log
status=0
"$build/tests/fuzz_journal" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 -print_final_stats=1 \
    -dict="$top/tests/fuzz/journal.dict" -artifact_prefix="$build/findings/" \
    "$build/corpus" "$top/tests/fuzz/corpus" "$top/tests/fuzz/regressions" > "$log" 2>&1 || status=$?
last=$(grep -E '^#[0-9]+' "$log" | tail -n 1)
echo "fuzzed for $seconds s: $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") executions" \
     "($(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")/s)," \
     "coverage $(grep -o 'cov: [0-9]*' <<< "$last" | cut -d' ' -f2) edges, $(grep -o 'ft: [0-9]*' <<< "$last" | cut -d' ' -f2) features," \
     "corpus $(grep -o 'corp: [0-9]*' <<< "$last" | cut -d' ' -f2) inputs"
findings=$(find "$build/findings" -type f | wc -l)
if [ "$status" -ne 0 ] || [ "$findings" -ne 0 ]; then
    grep -E 'ERROR|promise broken|SUMMARY' "$log" | head -n 20
    echo "findings: $findings, in $build/findings/ (the whole log: $log)"
    exit 1
fi
echo "findings: none"

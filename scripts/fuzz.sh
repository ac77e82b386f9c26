#!/usr/bin/env bash
# fuzz.sh MINUTES: lets each fuzz target run for so long on all processors, from the committed inputs
# on. What it finds is kept in build/fuzz/found, new inputs in build/fuzz/corpus. Called by `./run
# fuzz`, which has built the targets.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/lib.sh
minutes=$1

# Prints the last line of figures that libFuzzer has written: inputs, edges, executions a second.
figures() {
    grep -E '^#[0-9]+: cov:' "$1" | tail -n 1 |
        sed -E 's/^#([0-9]+): cov: ([0-9]+) ft: [0-9]+ corp: ([0-9]+) exec\/s:? ([0-9]+).*/\1 executions, \2 edges, \3 inputs, \4 executions a second/'
}

fuzz() {
    local target=$1 log=build/fuzz/$1.log
    mkdir -p "build/fuzz/corpus/$target" build/fuzz/found
    if ! build/fuzz/fuzz/fuzz_"$target" -fork="$(nproc)" -max_total_time=$((minutes * 60)) \
        -max_len=2000 -timeout=60 -rss_limit_mb=4096 -artifact_prefix="build/fuzz/found/$target-" \
        "build/fuzz/corpus/$target" "fuzz/corpus/$target" >"$log" 2>&1; then
        tail -n 60 "$log"
        fail "$target: a finding, see build/fuzz/found and $log"
    fi
    printf '%s: %s, no finding\n' "$target" "$(figures "$log")"
}

for target in receiver sender calls; do
    fuzz "$target"
done

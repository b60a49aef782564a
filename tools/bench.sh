#!/bin/bash
# Measures the road of an alert against its baseline, in one run, and prints what the road may cost beside what it costs.
# Fails when it costs more. Arguments go to the benchmark program in place of that, as in
# tools/bench.sh --benchmark_filter=text_check
set -euo pipefail
root="$(dirname "$(readlink -f "$0")")/.."
"$root/tools/build.sh" release zel_bench

program="$root/build/release/bench/zel_bench"
export ZEL_LOG_FILE=/dev/null
[ $# -eq 0 ] || exec "$program" "$@"

# The runs of all sizes alternate, so that a slow moment of the machine does not fall on one of them alone.
"$program" --benchmark_filter='^(road|baseline)/' --benchmark_format=csv --benchmark_repetitions=15 --benchmark_min_time=0.05 \
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true 2>/dev/null |
    awk -F, '
        /_median/ { split($1, part, "[/_\"]+"); name = part[1] == "" ? 2 : 1; time[part[name], part[name + 1]] = $4 }
        /,true,/ { print; exit failed = 1 }
        function line(what, value, most) {
            printf "%-52s %5.2f  (at most %.1f)%s\n", what, value, most, (value > most) ? "  TOO MUCH" : ""
            if (value > most) failed = 1
        }
        function growth(what) { return (time[what, 10000] / 10000) / (time[what, 100] / 100) }
        END {
            split("1 15 500 10000", sizes, " ")
            for (i = 1; i in sizes; i++) {
                size = sizes[i]
                printf "%6d events: road %10.1f us, baseline %10.1f us\n", size, time["road", size], time["baseline", size]
            }
            for (i = 1; i in sizes; i++) line("road / baseline at " sizes[i] " events", time["road", sizes[i]] / time["baseline", sizes[i]], 1.6)
            line("an event at 10000 / at 100, road / baseline", growth("road") / growth("baseline"), 1.2)
            printf "(the baseline itself: an event at 10000 costs %.2f times one at 100)\n", growth("baseline")
            exit failed
        }'

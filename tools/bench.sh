#!/bin/bash
# Measures the built plug-in from bus to bus, all processor time of the process, beside a baseline in the same run: parse,
# one look-up for each key, fill, size, serialise, free. Fails when a ratio is above its limit.
#
#   tools/bench.sh                  the ratios and their limits
#   tools/bench.sh all              every measure of bench/bus_road.cpp; docs/performance.md says what they mean
#   tools/bench.sh MEASURE[=N]...   some of them, as in tools/bench.sh hits latency=5
#   tools/bench.sh text             single functions on texts
set -euo pipefail
root="$(dirname "$(readlink -f "$0")")/.."
build="$root/build/release"
all=(road rate latency hits refused recovery full_queues long_run log_off)

# What road / baseline may be at so many events. The distance to the measured ratio is for a machine that others share.
limits="1:1.45 15:1.25 500:1.2 10000:1.45"

"$root/tools/build.sh" release bus_road zel_bench
measure() { "$build/bench/bus_road" "$build/agent" "$build/standin/scripted/libscripted.so" "$@"; }

case "${1-}" in
    "") ;;
    text) exec env ZEL_LOG_FILE=/dev/null "$build/bench/zel_bench" ;;
    all) measure "${all[@]}"; exit ;;
    *) measure "$@"; exit ;;
esac

# A slow moment of the machine can spoil one run; a slow plug-in spoils all.
judge() {
    awk -v limits="$limits" '
        BEGIN { n = split(limits, rows, " "); for (i = 1; i <= n; i++) { split(rows[i], row, ":"); most[row[1]] = row[2] } }
        $1 == "road" {
            match($0, /ratio [0-9.]+/)
            ratio = substr($0, RSTART + 6, RLENGTH - 6)
            bad = ratio + 0 > most[$2] + 0
            print $0 "  (at most " most[$2] ")" (bad ? "  TOO SLOW" : "")
            judged++
            failed += bad
        }
        END { exit failed > 0 || judged != n }'
}
for attempt in 1 2 3; do
    if measure road | judge; then exit 0; fi
    echo "bench.sh: a ratio is above its limit in run $attempt of 3" >&2
done
exit 1

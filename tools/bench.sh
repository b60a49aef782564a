#!/bin/bash
# Measures the built plug-in from bus to bus, all processor time of the process, beside a baseline in the same run: parse,
# one look-up for each key, fill, size, serialise, free. Fails when a ratio is above its limit.
#
#   tools/bench.sh                  the ratios and their limits
#   tools/bench.sh all              every measure of bench/bus_road.cpp; docs/performance.md says what they mean
#   tools/bench.sh MEASURE[=N]...   some of them, as in tools/bench.sh hits latency=5
#   tools/bench.sh text             single functions on texts
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"
build="$build/release"
all=(road rate latency hits refused recovery full_queues long_run log_off)

# What road / baseline may be at so many events. The distance to the measured ratio is for a machine that others share.
limits="1:1.45 15:1.25 500:1.2 10000:1.5"

"$root/tools/build.sh" release bus_road zel_bench
measure() { "$build/bench/bus_road" "$build/agent" "$build/standin/scripted/libscripted.so" "$@"; }

case "${1-}" in
    "") ;;
    text) exec env ZEL_LOG_FILE=/dev/null "$build/bench/zel_bench" ;;
    all) measure "${all[@]}"; exit ;;
    *) measure "$@"; exit ;;
esac

# A slow moment of the machine spoils a run, a slow plug-in spoils all: of three runs the best one of each size counts.
runs="$(mktemp)"
trap 'rm -f "$runs"' EXIT
judge() {
    awk -v limits="$limits" '
        BEGIN { n = split(limits, rows, " "); for (i = 1; i <= n; i++) { split(rows[i], row, ":"); most[row[1]] = row[2] } }
        $1 == "road" && match($0, /ratio [0-9.]+/) {
            ratio = substr($0, RSTART + 6, RLENGTH - 6) + 0
            if (!($2 in best) || ratio < best[$2]) { best[$2] = ratio; line[$2] = $0 }
        }
        END {
            for (i = 1; i <= n; i++) {
                split(rows[i], row, ":")
                bad = !(row[1] in best) || best[row[1]] > most[row[1]]
                failed += bad
                print line[row[1]] "  (at most " most[row[1]] ")" (bad ? "  TOO SLOW" : "")
            }
            exit failed > 0
        }' "$runs"
}
for _ in 1 2 3; do
    measure road >>"$runs"
    if report="$(judge)"; then
        echo "$report"
        exit 0
    fi
done
echo "$report"
echo "bench.sh: in three runs a ratio was always above its limit; what the road does more than before is in its latest changes" >&2
exit 1

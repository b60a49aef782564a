#!/bin/bash
# Searches how many events a second the built plug-in bears on this machine, for several loads, and puts the table between the
# marks of docs/performance.md. Takes some four minutes. Only on a machine with nobody else on it are the figures those of the plug-in: the
# last column says how much of it other programs used.
#
#   tools/capacity.sh            builds zelhost and writes the table
#   tools/capacity.sh --print    prints it instead
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"

page="$root/docs/performance.md"
case "${1-}" in
    '') ;;
    --print) page=- ;;
    *)
        echo "capacity.sh: unknown argument '$1' (usage: tools/capacity.sh [--print])" >&2
        exit 2
        ;;
esac
"$root/tools/build.sh" release zelhost agent
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# row NAME OPTIONS...: searches, and keeps the result as a line of name, tab and JSON.
row() {
    echo "capacity.sh: $1" >&2
    printf '%s\t' "$1" >>"$work/rows"
    "$build/release/agent/bin/zelhost" load --find-capacity --no-log --seconds 1 --json "${@:2}" >>"$work/rows" || {
        echo "capacity.sh: the search of '$1' failed" >&2
        exit 1
    }
}
row 'the usual mix of kinds'
row 'the usual mix, queues of 500 entries' --queue-max 500
row 'alerts of 1 event' --mix graded=1 --events 1
row 'alerts of 15 events' --mix graded=1 --events 15
row 'alerts of 15 events, none traced' --mix graded=1 --events 15 --trc-times 0
row 'alerts of 15 events, 10 ms a trace' --mix graded=1 --events 15 --trace-cost 10
row 'alerts of 500 events' --mix graded=1 --events 500

python3 - "$work/rows" "$page" <<'END'
import json, sys

lines = ["| Load | Events a second | Latency, median and p99 | Alarm worker, an event | Trace worker, a trace | Other programs used |",
         "|---|---|---|---|---|---|"]
for row in open(sys.argv[1]):
    name, text = row.split("\t", 1)
    load = json.loads(text)
    latency, times, machine = load["latency_ms"], load["processor_us"], load["machine"]
    trace = f'{times["trace_worker_per_trace"]:.0f} us' if load["trace_rate"] else "none"
    lines.append(f'| {name} | {load["capacity"]:.0f} | {latency["median"]:.1f} and {latency["p99"]:.1f} ms | '
                 f'{times["alarm_worker_per_event"]:.0f} us | {trace} | '
                 f'{machine["used_by_others"]:.1f} of {machine["processors"]} processors; '
                 f'load average {machine["load_average_before"]:.1f} |')
table = "".join(line + "\n" for line in lines)
if sys.argv[2] == "-":
    sys.exit(print(table, end=""))
begin, end = "<!-- capacity -->\n", "<!-- end capacity -->\n"
with open(sys.argv[2]) as file:
    text = file.read()
if text.count(begin) != 1 or text.count(end) != 1 or text.index(begin) > text.index(end):
    sys.exit(f"capacity.sh: docs/performance.md needs the lines '{begin.strip()}' and '{end.strip()}', once each")
with open(sys.argv[2], "w") as file:
    file.write(text[:text.index(begin)] + begin + table + text[text.index(end):])
END

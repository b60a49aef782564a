#!/bin/bash
# Sets up, builds, and runs zelhost on the demo scenario: outgoing events as JSON lines on standard output, a summary at
# the end on standard error. With arguments they go to zelhost in place of the demo: ./run.sh run --help
set -euo pipefail
root="$(dirname "$(readlink -f "$0")")"

"$root/tools/setup.sh"
"$root/tools/build.sh" release agent

agent="$root/build/release/agent"
[ $# -eq 0 ] || exec "$agent/bin/zelhost" "$@"

# Messages carry the agent's id, which the agent finds in its environment.
export agentid="${agentid:-demo-agent}"

# The trace module puts each alert off once, so that its chain comes after a retry, 15 seconds later. The cache is set small,
# so that the DNS hits of the demo fill it and its batch of duplicates goes out.
log="$root/build/release/demo.log"
echo "log of the plug-in at level debug: $log" >&2
echo "the demo takes some 15 seconds: a trace that is not ready is tried again after that time" >&2
exec "$agent/bin/zelhost" run --root "$agent" --input "$root/scenarios/demo.jsonl" --log "$log" --log-level debug \
    --not-ready 1 --set zelreshdl:cache:cache_size=10 --set zelreshdl:cache:die_num=100

#!/bin/bash
# Sets up, builds, and runs zelhost on the demo scenario: outgoing events as JSON lines on standard output, a summary at
# the end on standard error. With arguments they go to zelhost in place of the demo: ./run.sh run --help
set -euo pipefail
root="$(dirname "$(readlink -f "$0")")"

"$root/tools/setup.sh"
"$root/tools/build.sh" release agent

agent="$root/build/release/agent"
[ $# -eq 0 ] || exec "$agent/bin/zelhost" "$@"

# The cache is set small, so that the ten DNS hits of the demo fill it and the batch of duplicates goes out.
log="$root/build/release/demo.log"
echo "log of the plug-in at level debug: $log" >&2
exec "$agent/bin/zelhost" run --root "$agent" --input "$root/scenarios/demo.jsonl" --log "$log" --log-level debug \
    --set zelreshdl:cache:cache_size=10 --set zelreshdl:cache:die_num=100

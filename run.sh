#!/bin/bash
# Sets up, builds, and runs zelhost on the demo scenario: outgoing events as JSON lines on standard output; what happens, and a
# summary at the end, on standard error. With arguments they go to zelhost in place of the demo: ./run.sh run --help
#
# ZEL_BUILD_DIR  folder in place of build/
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/tools/common.sh"

"$root/tools/setup.sh"
"$root/tools/build.sh" release agent

agent="$build/release/agent"
[ $# -eq 0 ] || exec "$agent/bin/zelhost" "$@"

# Messages carry the agent's id, which the agent finds in its environment.
export agentid="${agentid:-demo-agent}"

# A second demo at the same time has a log of its own.
log="$build/release/demo.log"
exec {lock}>"$log.lock"
flock -n "$lock" || log="$build/release/demo.$$.log"

# The trace module puts each alert off once, so that its chain comes after a retry, 15 seconds later. The cache is set small,
# so that the DNS hits of the demo fill it and its batch of duplicates goes out.
say "playing scenarios/demo.jsonl for some 15 seconds: a trace that is not ready is tried again after that time"
status=0
"$agent/bin/zelhost" run --root "$agent" --input "$root/scenarios/demo.jsonl" --log "$log" --log-level debug \
    --not-ready 1 --set zelreshdl:cache:cache_size=10 --set zelreshdl:cache:die_num=100 || status=$?

cat >&2 <<END

What to look at next:
  the plug-in's log of this demo          $log
  the behaviour chains as a picture       ./run.sh >demo.jsonl && ./run.sh graph demo.jsonl -o chain.html
  what became of one alert                ./run.sh explain --all $(printf %q "$log")
  all other questions                     ./run.sh --help and docs/zelhost.md
END
exit "$status"

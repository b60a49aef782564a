#!/bin/bash
# What docs/integrate.md shows is what comes out: the smallest host in a whole folder and in a broken one, and the blocks of the page.
#   integrate.sh AGENT_FOLDER
agent=$(readlink -f "$1")
root=$(readlink -f "$(dirname "$0")/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export agentid=A-1 ZEL_LOG_LEVEL=info
failed=0

fail() {
    echo "integrate.sh: $1" >&2
    failed=1
}

# The lines of a block of the page, without those of the reader: the command and what was left out.
block() { sed -n "/^<!-- $1 -->\$/,/^<!-- end $1 -->\$/s/^    //p" "$root/docs/integrate.md" | grep -vE '^(\$ |\.\.\.$)'; }

# The texts of a log as the page shows them: without time, process and place, and with the folder of the page.
texts() { sed -E "s/^.*\[zelreshdl\] \[[^]]*\] //; s|$2|/opt/agent|" "$1"; }

# The size of a message depends on a file of the machine, whose size it tells.
without_sizes() { sed -i -E 's/^(invoke buf size:)[0-9]+$/\1/' "$@"; }

# comes_in_order BLOCK FILE: every line of the block is in the file, in the order of the page.
comes_in_order() {
    block "$1" >"$work/page"
    [ -s "$work/page" ] || fail "the page has no block '$1'"
    without_sizes "$work/page" "$2"
    awk 'FNR == NR { page[++lines] = $0; next } $0 == page[next_line + 1] { next_line++ }
        END { if (next_line < lines) { print "no line: " page[next_line + 1]; exit 1 } }' "$work/page" "$2" >&2 ||
        fail "the block '$1' is not what comes out"
}

nm -D --undefined-only "$agent/reshdl/bin/libzelreshdl.so" | awk '$2 ~ /^(zel_|get_agent_path)/ { print $2 }' | sort >"$work/needed"
block "support functions" | tr -s ' ' '\n' | sort | diff - "$work/needed" >&2 || fail "the plug-in needs other functions (>) than the page says (<)"

cp -a "$agent" "$work/agent"
find "$work/agent" -name '*.debug' -delete
cc -std=c11 -Wall -Wextra -Werror -o "$work/smallest_host" "$root/docs/examples/smallest_host.c" || exit 1

ZEL_LOG_FILE=$work/log "$work/smallest_host" "$work/agent" </dev/null || fail "the smallest host answers $?"
texts "$work/log" "$work/agent" | sed '/^start handled event/q' >"$work/started"
block "log of a good start" | diff - "$work/started" >&2 || fail "the log of a good start (>) is not that of the page (<)"
tail -n 1 "$work/log" | grep -q 'stop work thread!$' || fail "the smallest host does not stop the plug-in"
"$agent/bin/zelhost" status --root "$work/agent" 2>&1 | sed "s|$work/agent|/opt/agent|" >"$work/out"
comes_in_order "whole folder" "$work/out"

grep -m 1 '^{"event":1536,' "$root/scenarios/demo.jsonl" >"$work/alert.jsonl"
"$agent/bin/zelhost" run --root "$work/agent" --input "$work/alert.jsonl" --log "$work/run.log" --log-level info >"$work/out" 2>&1 ||
    fail "a run with one alert answers $?"
texts "$work/run.log" "$work/agent" >"$work/out"
comes_in_order "log of an alert" "$work/out"

rm "$work/agent/reshdl/lib/libzeltrc.so"
"$agent/bin/zelhost" status --root "$work/agent" >"$work/out" 2>&1 && fail "status takes a folder without the trace module for whole"
sed -i "s|$work/agent|/opt/agent|" "$work/out"
comes_in_order "folder without the trace module" "$work/out"
ZEL_LOG_FILE=$work/broken.log "$work/smallest_host" "$work/agent" </dev/null
[ $? -eq 1 ] || fail "the smallest host starts without the trace module"
"$work/smallest_host" "$work/nothing" </dev/null 2>"$work/err"
[ $? -eq 1 ] && grep -q "^smallest_host: $work/nothing/lib/liblumutil.so: " "$work/err" || fail "the smallest host does not say what is missing"
exit $failed

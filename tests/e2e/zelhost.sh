#!/bin/bash
# Runs zelhost: exit codes, what it says on standard error, and what it makes of the demo.
#   zelhost.sh PROGRAM DEMO_SCENARIO
. "$(dirname "$0")/zelhost_lib.sh"

export agentid=A-1
expect 1 "$work/none" run --root "$work/none" --input /dev/null
expect 1 "$work/none" run --input "$work/none"
expect 3 "2" run --input <(printf '{"event":1541,"text":"x"}\ngarbage\n{"event":1542,"text":"y"}\n')
printed 2 '{"event":769,'
expect 4 "" run --not-ready 1 --max-wait 1 --input <(grep '^{"event":1538' "$demo")

# The object of each event type has a place in the chain. The documents differ in rule and GUID, or they would be repeats.
seeds=("$(dirname "$demo")"/../fuzz/corpus/alert/event_??.json)
for seed in "${seeds[@]}"; do
    number=$(basename "$seed" | tr -cd 0-9)
    printf '{"event":1536,"alert":%s}\n{"do":"wait"}\n' "$(sed "s/R-100/R-$number/; s/-1111-/-11$number-/" "$seed")"
done >"$work/types.jsonl"
expect 0 "" run --input "$work/types.jsonl" --idle-ms 20 --events 770 --log-level error
printed ${#seeds[@]} '"edge_list":[{'

expect 0 "the host's own count agrees" run --input "$demo" --set zelreshdl:cache:cache_size=10 \
    --set zelreshdl:cache:die_num=100
printed 20 '{"event":769,'
printed 16 '{"event":770,'
printed 1 '{"event":771,'
printed 7 '{"event":2305,'
printed 2 '{"callback":8,'
printed 1 '{"callback":10,'
printed 1 '{"report":"zelreshdl"'
printed 1 '"dup_alerts":'
printed 1 '"err_code":"ERROR_CODE_TRACE_FILTERED"'

# An agent whose own libraries stand in the place of stand-ins: they lack what the stand-ins offer a host. A name of the same
# length is written over each such function's, so that it is not found; and the trace module counts in a library of its own.
own() {
    sed -i "s/$2/$3/g" "$work/agent/$1"
}
cp -a "$(dirname "$host")/.." "$work/agent"
lib=reshdl/lib
own lib/liblumutil.so zel_log_set_tap zel_log_own_tap
expect 0 "liblumutil.so is not the stand-in" run --root "$work/agent" --input "$demo" --log-level error
printed 20 '{"event":769,'
! grep -q "difference" "$work/err" || fail "a difference is shown without the log"
own $lib/libzelbpmgr.so zelbpmgr_collect zelbpmgr_own_one
own $lib/libzelcount.so zeltrc_get_counts zeltrc_own_counts
expect 3 "libzelbpmgr.so is not the stand-in" run --root "$work/agent" --input "$demo" --log-level error
printed 20 '{"event":769,'
! grep -q "statistics, summed" "$work/err" || fail "statistics are shown that nobody collected"

cp -a "$(dirname "$host")/../lib/." "$work/agent/lib"
cp "$(dirname "$host")/../$lib/libzelcount.so" "$work/agent/$lib/"
cp "$work/agent/$lib/libzelcount.so" "$work/agent/$lib/libzelown00.so"
own $lib/libzelown00.so libzelcount libzelown00
own $lib/libzeltrc.so libzelcount libzelown00
expect 3 "libzeltrc.so is not the stand-in" run --root "$work/agent" --input "$demo" --log-level error
grep -q "17 finished, 0 failed, 0 dropped, 0 waiting" "$work/err" || fail "traces are not followed by the log alone"
[ "$(grep -c "is not the stand-in" "$work/err")" -eq 2 ] || fail "what is not known is not said once"
exit $failed

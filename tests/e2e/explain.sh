#!/bin/bash
# Explains what became of alerts in runs of its own.
#   explain.sh PROGRAM DEMO_SCENARIO
. "$(dirname "$0")/zelhost_lib.sh"

# A trace takes so long that the eliminator sheds two of five alerts.
shed=acd93dde-9687-5968-be1f-6cf60ed5faa0
expect 0 "2 dropped" run --trace-cost 1500 --input "$(dirname "$demo")/shed.jsonl" --log "$work/shed.log" \
    --record "$work/shed.record"
for files in shed.log shed.record "shed.log $work/shed.record"; do
    expect 0 "" explain $shed $work/$files
    printed 1 " s  shed: all waiting traces together were predicted to take "
    printed 1 "and the limit is 60000 ms; its own would have taken "
    printed 1 "its turn has come: it is dropped without a trace"
    printed 1 "end: reported, trace shed"
    expect 0 "" explain --all $work/$files
    printed 2 "       2  reported, trace shed"
    printed 1 "every line was placed"
done
expect 0 "" explain --json ACD93 "$work/shed.log"
printed 1 "{\"guid\":\"$shed\",\"event\":1536,"
expect 0 "" explain --all --json - <"$work/shed.log"
printed 1 '"reasons":[{"end":"reported, trace shed","count":2,'

# The demo has each of the other roads. A log does not name the alert that was repeated, the record does.
expect 0 "done" run --input "$demo" --not-ready 0 --log "$work/demo.log" --record "$work/demo.record"
expect 0 "" explain --all "$work/demo.log"
cp "$work/out" "$work/all"
printed 1 "      14  reported and traced (1281: 10, 1536: 2, 1538: 1, 1793: 1)"
printed 1 "every line was placed"
expect 0 "" explain 7c5fb053 "$work/demo.log"
printed 1 "a log does not tell of which alert; a record does"
expect 0 "" explain 7c5fb053 "$work/demo.record"
printed 1 "end: reported as a repeat, without a trace: of b6d3f55c-5f07-5bb1-8e5d-e9892ad9858d"

# Line ends of another system, lines of others, bytes of no text, and a last line that is cut off.
sed 's/$/\r/' "$work/demo.log" >"$work/crlf.log"
expect 0 "" explain --all "$work/crlf.log"
cmp -s "$work/out" "$work/all" || fail "other line ends change the answer"
{ cat "$work/demo.log"; printf 'who cares\n\xff\xfe\x1b[31m\n'; head -c 120 "$work/demo.log"; } >"$work/mixed.log"
expect 0 "" explain --all "$work/mixed.log"
printed 1 "lines could not be placed; the first: $work/mixed.log:"
! grep -q $'\x1b' "$work/out" || fail "a terminal would obey the output"

# What cannot be answered.
expect 1 "the nearest is $shed" explain acd93ddf "$work/shed.log"
expect 1 "is the beginning of " explain a "$work/shed.log"
expect 1 "holds no line of the plug-in's log and is no record" explain --all "$demo"
expect 1 "cannot open" explain --all "$work/none"
expect 2 "GUID is missing" explain
grep -v DEBUG "$work/demo.log" >"$work/info.log"
expect 0 "holds no line of level DEBUG, so it does not tell when the workers took an alert" explain 7c5fb053 "$work/info.log"
exit $failed

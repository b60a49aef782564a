#!/bin/bash
# zelhost load: options, what it measures as JSON, the account, the picture, the search, and how it ends early.
#   load.sh PROGRAM
. "$(dirname "$0")/zelhost_lib.sh"

# says TEXT ARGUMENTS...: exit status 2, and the text on standard error.
says() {
    local text=$1
    shift
    expect 2 "zelhost: load: $text" load "$@"
}
says '--mix: "alerts" is no kind of event' --mix alerts=1
says '--mix: "alert" is not of the form KIND=SHARE' --mix alert
says '--mix: at least one share must be above 0' --mix alert=0
says '--rate: "0" is not a number from 0.001 to 1000000' --rate 0
says '--seconds: ' --seconds 0
says '--threads: "65" is not a number from 1 to 64' --threads 65
says '--events: ' --events 0
says '--plot: the name must end with .svg' --plot picture.png
says '--set: ' --set nonsense
expect 1 'is no agent folder' load --root "$work/none"

# measured ARGUMENTS...: the account closes, and standard error, which is no terminal, gets nothing.
measured() {
    "$host" load "$@" >"$work/out" 2>"$work/err"
    local got=$?
    [ $got -eq 0 ] && [ ! -s "$work/err" ] || fail "exit status $got, or something on standard error"
}

# holds EXPRESSION: it is true of the JSON line, in Python, where `l` is the line.
holds() {
    python3 -c 'import json, sys; l = json.load(open(sys.argv[1])); sys.exit(not eval(sys.argv[2]))' "$work/out" "$1" 2>"$work/err" ||
        fail "not so: $1"
}

measured --rate 500 --seconds 1 --json --seed 5 --plot "$work/load.svg"
[ "$(wc -l <"$work/out")" -eq 1 ] || fail "not one line"
holds 'l["settled"] and l["failed"] == [] and l["checks"] > 40 and l["wrong_calls"] == 0'
holds '(l["seed"], l["asked_rate"], l["threads"], l["queue_max"], l["idle_sleep_ms"]) == (5, 500, 2, 100, 5)'
holds 'l["in"] == sum(e["in"] for e in l["events"]) and not any(e["difference"] for e in l["events"])'
holds '0 < l["latency_ms"]["median"] <= l["latency_ms"]["p99"] <= l["latency_ms"]["highest"]'
holds 'l["processor_us"]["alarm_worker_per_event"] > 0 and l["processor_us"]["trace_worker_per_trace"] > 0'
holds 'l["resident_kib_highest"] > 0 and l["traces"]["open"] == 0 and l["statistics"]["recvAlarmCount"] > 0'
python3 -c 'import sys, xml.etree.ElementTree as t; sys.exit(not t.parse(sys.argv[1]).getroot().tag.endswith("}svg"))' \
    "$work/load.svg" 2>"$work/err" || fail "the picture is no SVG"
for word in 'events a second' 'ms to the first report' 'event queue' seconds; do
    grep -q "$word" "$work/load.svg" || fail "the picture lacks '$word'"
done

# Without gnuplot nothing is published and no picture is left.
PATH=/nowhere "$host" load --plot "$work/none.svg" >"$work/out" 2>"$work/err"
[ $? -eq 1 ] && [ ! -s "$work/out" ] && [ ! -e "$work/none.svg" ] || fail "a load without its picture"
[ "$(cat "$work/err")" = 'zelhost: --plot needs gnuplot, which is not there; install the package gnuplot-nox' ] ||
    fail "not said what to install"

# As fast as it goes, queues are full, and what they refuse is in the account. One kind alone is what --mix names.
measured --seconds 1 --mix graded=1 --events 30 --queue-max 50 --trace-cost 20 --max-wait 100 --json
holds 'l["failed"] == [] and l["refused"] > 0 and l["queue_max"] == 50 and l["longest_queues"]["trc"] >= 50'
holds '[(e["event"], e["others"]["shed, queue full"]) for e in l["events"]] == [(1536, l["refused"])]'
holds 'l["backlog_ms"]["count"] > 0 and l["backlog_ms"]["measured_highest"] >= l["backlog_ms"]["measured_mean"] > 0'

# Without the log the plug-in's own figures say what was refused.
measured --seconds 1 --mix graded=1 --events 30 --queue-max 50 --trace-cost 20 --no-log --json
holds 'l["failed"] == [] and l["checks"] == 9 and l["refused"] > 0 and l["in"] == l["refused"] + l["given_out"]["first_reports"]'
holds 'l["latency_ms"]["count"] > 0 and "backlog_ms" not in l and list(l["longest_queues"]) == ["bus"]'

# The same, for people.
measured --seconds 0.5 --rate 300
printed 1 'load: 300 events a second; seed 1, 2 threads, mix as usual'
printed 1 'checks hold'
printed 0 'WRONG'
printed 0 'DIFFERENCE'

# The search ends with a rate that was borne. A trace that sleeps for 5 ms allows 200 a second, and the queue takes some more.
measured --find-capacity --seconds 0.5 --mix graded=1 --events 1 --trace-cost 5 --json
holds '0 < l["capacity"] < 300 and l["refused"] == 0 and any(s["fault"] for s in l["steps"])'
holds 'l["failed"] == [] and (l["steps"][-1]["rate"], l["steps"][-1]["fault"]) == (l["capacity"], "")'

# What has no end in time, and a signal.
expect 4 '--max-wait sets the longest wait' load --seconds 0.2 --rate 50 --mix alert=1 --not-ready 1 --max-wait 1 --json
holds 'not l["settled"] and l["failed"] == []'
for argument in '' --find-capacity; do
    "$host" load --seconds 60 --rate 100 $argument >"$work/out" 2>"$work/err" &
    until [ -n "$(ls /proc/$!/task | sed 1,4d)" ]; do :; done
    kill -INT $!
    wait $!
    [ $? -eq 0 ] || fail "a signal makes exit status $?"
    printed 1 'stopped by a signal'
    printed 0 'WRONG'
done

# A reader that has enough.
"$host" load --seconds 0.2 --rate 100 2>"$work/err" | head -c 1 >"$work/out"
[ "${PIPESTATUS[0]}" -eq 0 ] && [ ! -s "$work/err" ] || fail "a closed pipe does not end quietly"
exit $failed

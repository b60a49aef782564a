#!/bin/bash
# What zelhost run shows while it runs: input that is followed, filters, lines for people, metrics, forms of the summary, and
# outputs that end.
#   zelhost_run.sh PROGRAM DEMO_SCENARIO
. "$(dirname "$0")/zelhost_lib.sh"
export agentid=A-1

# --- which lines, and how many ---

demo_run() {
    local code=$1 text=$2
    shift 2
    expect "$code" "$text" run --input "$demo" --log "$work/log" --idle-ms 50 "$@"
}
# lines COUNT: that many output lines in all.
lines() {
    [ "$(wc -l <"$work/out")" -eq "$1" ] || fail "$(wc -l <"$work/out") lines instead of $1"
}
demo_run 0 "the host's own count agrees" --events 770,771
printed 15 '{"event":770,'
printed 1 '{"event":771,'
lines 16
demo_run 0 "" --level critical --events 769
printed 12 '"risk_level":"VORN_RISK_LEVEL_CRITICAL"'
lines 12
demo_run 0 "" --level high
printed 0 '"risk_level":"VORN_RISK_LEVEL_MID"'
printed 5 '"risk_level":"VORN_RISK_LEVEL_HIGH"'
printed 0 '{"event":2305,'
printed 2 '{"callback":8,'
demo_run 0 "ended by --limit" --limit 3
lines 3
expect 2 "--events" run --events 769,5
expect 2 "--level" run --level loud
expect 2 "--limit" run --limit 0
expect 2 "--summary" run --summary xml

# --- the summary and advice ---

said=$("$host" run --input "$demo" --log "$work/log" --summary none 2>&1 >"$work/out")
[ -z "$said" ] || fail "something is said with --summary none"
expect 3 "skipped" run --log "$work/log" --summary json --input <(printf '\xef\xbb\xbf{"event":1541,"text":"x"}\r\ngarbage\n')
tail -n 1 "$work/err" | python3 -c '
import json, sys
end = json.load(sys.stdin)
assert (end["result"], end["lines"], end["skipped"], end["shown"]) == ("done", 2, 1, 1), end
assert end["events"] == [{"event": 1541, "name": "brute force", "in": 1, "reported": 1, "repeats": 0, "others": {},
                          "difference": 0}], end
assert end["given_out"]["first_reports"] == 1 and end["traces"]["open"] == 0, end
assert end["statistics"]["recvAlarmCount"] == 1, end' || fail "the summary as JSON"
env -u agentid "$host" run --input "$demo" >/dev/null 2>"$work/err"
[ "$(grep -c agentid "$work/err")" -eq 1 ] || fail "a missing agentid is not said once"
[ "$(grep -c 'ERROR.*Unknown event!' "$work/err")" -eq 3 ] || fail "the log is not on standard error"
grep -qF "($(grep -c '\[ERROR\]' "$work/err") errors," "$work/err" || fail "the errors of the summary are not those of the log"

# --- lines for people ---

demo_run 0 "" --pretty --color always
printed 3 $'\033[1;31mcritical\033[0m \033[36mIOA-LNX-1001+2'
demo_run 0 "" --pretty --metrics "$work/metrics"
! grep -q $'\033' "$work/out" || fail "colours where nobody asked for them"
printed 1 "lost      -        -               -                  not decoded: IOA alert"
printed 1 "php-fpm8.2[1880]   trace follows: Coin miner b6d3f55c"
printed 1 "php-fpm8.2[1880]   chain of 8 vertices, 7 edges: Coin miner b6d3f55c"

# --- metrics ---

# metric LINE: that line stands in the metrics.
metric() {
    grep -qxF -- "$1" "$work/metrics" || fail "no metric $1"
}
metric 'zelhost_events_unreported_total{event="1536",reason="not decoded"} 1'
metric 'zelhost_given_out_total{kind="first_reports"} 21'
metric 'zelhost_running 0'
[ "$(ls "$work" | grep -c tmp)" -eq 0 ] || fail "a temporary file is left"
expect 1 "no regular file" run --input /dev/null --metrics /dev/null
expect 1 "$work/none" run --input /dev/null --metrics "$work/none/metrics"

# --- outputs that end ---

demo_run 1 "No space left on device" --output /dev/full
"$host" run --input "$demo" --log "$work/log" 2>"$work/err" | head -n 1 >"$work/out"
[ "${PIPESTATUS[0]}" -eq 0 ] || fail "a closed pipe is a failure"
! grep -q "cannot" "$work/err" || fail "a closed pipe gives a message"
lines 1

# --- input that is followed ---

# eventually CONDITION...: it holds before a minute has passed.
eventually() {
    local deadline=$((SECONDS + 60))
    until "$@"; do
        if [ $SECONDS -ge $deadline ]; then
            fail "not in time: $*"
            return
        fi
    done
}
reported() {
    [ "$(grep -c "\"alert_json\":\"$2\"" "$work/out")" -eq "$1" ]
}
# follow INPUT ARGUMENTS...: starts a run in the background.
follow() {
    local input=$1
    shift
    rm -f "$work/metrics"
    "$host" run --follow --input "$input" --log "$work/log" --metrics "$work/metrics" "$@" >"$work/out" 2>"$work/err" &
    run=$!
    eventually [ -e "$work/metrics" ] # a signal finds the run from now on
}
# ended TEXT: the run ends with exit status 0, and its summary begins so.
ended() {
    wait "$run"
    local got=$?
    [ $got -eq 0 ] || fail "exit code $got of a run that follows"
    grep -qF "zelhost: $1" "$work/err" || fail "no '$1' at the end of a run that follows"
}
event() {
    printf '{"event":1541,"text":"%s"}' "$1"
}

event one >"$work/growing"
follow "$work/growing"
echo >>"$work/growing"
eventually reported 1 one
event two >>"$work/growing"
echo >>"$work/growing"
eventually reported 1 two
eventually grep -qxF "zelhost_input_lines_total 2" "$work/metrics"
metric "zelhost_running 1"
event three >"$work/growing"
eventually grep -qF "was cut" "$work/err"
echo >>"$work/growing"
eventually reported 1 three
event four >>"$work/growing"
event five >"$work/next"
echo >>"$work/next"
mv "$work/next" "$work/growing"
eventually reported 1 four
eventually reported 1 five
grep -qF "is another file now" "$work/err" || fail "a replaced file is not said"
kill -TERM "$run"
ended "stopped by a signal"

mkfifo "$work/pipe"
follow "$work/pipe" --limit 3
event one >"$work/pipe"
eventually reported 1 one
exec 8>"$work/pipe"
event two >&8
echo >&8
eventually reported 1 two
event three >&8
exec 8>&-
ended "ended by --limit"

follow "$work/pipe"
kill -INT "$run"
ended "stopped by a signal"

mkfifo "$work/in"
exec 8<>"$work/in"
"$host" run --follow --log "$work/log" <"$work/in" >"$work/out" 2>"$work/err" 8>&- &
run=$!
event one >&8
echo >&8
eventually reported 1 one
exec 8>&-
ended "done"
exit $failed

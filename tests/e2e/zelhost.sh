#!/bin/bash
# Runs zelhost: exit codes, what it says on standard error, and what it makes of the demo.
#   zelhost.sh PROGRAM DEMO_SCENARIO
host=$1
demo=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

fail() {
    echo "zelhost.sh:${BASH_LINENO[1]}: $1" >&2
    sed 's/^/  /' "$work/err" >&2
    failed=1
}

# expect CODE TEXT ARGUMENTS...: the exit code, and a text on standard error.
expect() {
    local code=$1 text=$2
    shift 2
    "$host" "$@" >"$work/out" 2>"$work/err"
    local got=$?
    [ $got -eq "$code" ] || fail "exit code $got instead of $code"
    grep -qF -- "$text" "$work/err" || fail "no '$text' on standard error"
}

# printed COUNT TEXT: that many output lines begin so.
printed() {
    local got
    got=$(grep -cF -- "$2" "$work/out")
    [ "$got" -eq "$1" ] || fail "$got lines with $2 instead of $1"
}

export agentid=A-1
expect 2 "subcommand" frobnicate
expect 2 "" run --log-level loud
expect 1 "$work/none" run --root "$work/none" --input /dev/null
expect 1 "$work/none" run --input "$work/none"
expect 3 "2" run --input <(printf '{"event":1541,"text":"x"}\ngarbage\n{"event":1542,"text":"y"}\n')
printed 2 '{"event":769,'
expect 4 "" run --not-ready 1 --max-wait 1 --input <(grep '^{"event":1538' "$demo")

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
exit $failed

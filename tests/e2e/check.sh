#!/bin/bash
# Runs zelhost check: one row for each input, with the exit code and what must stand in the output.
#   check.sh PROGRAM DEMO_SCENARIO [MEGABYTES]    MEGABYTES of the longest line; 200 by default
host=$1
demo=$2
megabytes=${3:-200}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failed=0

fail() {
    echo "check.sh:${BASH_LINENO[1]}: $1" >&2
    sed 's/^/  /' out err | cut -c1-300 >&2
    failed=1
}

# expect CODE ARGUMENTS...: the exit code; `says TEXT` then looks for a whole line of the output, `tells TEXT` for a text on
# standard error.
expect() {
    local code=$1
    shift
    timeout 200 "$host" check "$@" >out 2>err
    local got=$?
    [ $got -eq "$code" ] || fail "exit code $got instead of $code"
}
says() { grep -qxF -- "$1" out || fail "no line '$1'"; }
tells() { grep -qF -- "$1" err || fail "no '$1' on standard error"; }
empty() { [ ! -s out ] || fail "there is output"; }

# A good document on one line, and one over lines with a fault in it.
event='{"version":1,"type":7,"SubjectPid":4,"SubjectTid":9,"SubjectCmd":"c","SubjectCreateTime":9,"SubjectUser":"r",'
event+='"SubjectGuid":"g","SubjectImage":"/i","OpTime":1,"FilePath":"/t"}'
good='{"risk_level":"high","threat_score":7,"total_score":8,"verify_score":0,"verify_total_score":0,"count":1,"hash":7,'
good+='"engine_ver":"e","engine_rule_ver":"r","alert_type":3,"rule":[{"rule_id":"R","status":"Enable","mitre_id":"T",'
good+='"rule_desc":"d","score":5,"version":"v","rule_name":"n","internal_id":"i","event":['$event']}],"Guid":"g"}'
bad=${good/'"SubjectPid":4'/'"SubjectPid":"4"'}
pretty=${bad//,/$',\n  '}
literal=${bad//\"/\\\"}

expect 1 "$demo"
says '8 documents: 4 accepted, 1 repeat, 1 skipped, 2 refused, 1 warning'
says "$demo:16:603: refused: \"SubjectCmd\" holds the byte 0x01, which no message may carry"
says '  the agent logs: ERROR get json value error. / GetJsonInfo failed!'
expect 0 <(printf '%s' "$good")
says '1 document: 1 accepted'

# The form of a refusal, in a line, in a literal of a script and in a document over lines; columns count in the file.
printf '# one\n\n%s\r\n{"event":1538,"text":"%s"}\n{"event":1536,"hex":"00"}\n{"do":"wait"}\n{"event":2304,"text":"x"}\n' \
    "$bad" "$literal" >lines
expect 1 lines
says 'lines:3:342: refused: "SubjectPid" is a string, a number is needed'
says '  rule[0].event[0].SubjectPid'
says '  ..."type":7,"SubjectPid":"4","SubjectTid":9,"SubjectCmd":"c",...'
says '                           ^~~'
says '  the agent logs: ERROR SubjectPid is not 0x00000008. / GetRawEventInfoEx error. / ...'
says 'lines:4:430: refused: "SubjectPid" is a string, a number is needed'
says '                               ^~~~~'
says '2 documents: 2 refused'
printf '\xef\xbb\xbf%s' "$pretty" >pretty
expect 1 pretty
says 'pretty:21:16: refused: "SubjectPid" is a string, a number is needed'
says '1 document: 1 refused'

# Which document is where: the first line decides.
printf '{"a":\n%s\n' "$good" >cut_first
expect 1 cut_first
says '1 document: 1 refused'
printf '{"a"\n%s\n' "$good" >cut_first
expect 1 cut_first
says '2 documents: 1 accepted, 1 refused'
printf '%s\n%s' "$good" "${bad:0:200}" >cut_last
expect 1 cut_last
says 'cut_last:2:200: refused: the text that begins here does not end'

# Bytes of all kinds: no control byte reaches the terminal, and the caret stands under its place.
printf '{"a":"\xe4\xb8\xad\xe4\xba\x8c\x1b[31m\xff\t" x}' | expect 1
says '<stdin>:1:22: refused: a comma or the object'\''s closing bracket is needed here'
says '  {"a":"中二\x1b[31m\xff\x09" x}'
says '                              ^'
head -c 100000 /dev/urandom >binary
expect 1 binary
! grep -q $'\e' out || fail "an escape byte in the output"
printf '{"a":\0 1}\n' | expect 1
says '<stdin>:1:6: refused: a NUL byte ends the document before its JSON is complete'

# --strict, --quiet and the other forms.
printf '%s\n' "${good/'"Guid"'/'"x":1,"Guid"'}" >odd
expect 0 odd
says 'odd:1:489: warning: nothing reads "x"'
expect 1 --strict odd
says 'odd:1:489: refused by --strict: nothing reads "x"'
expect 0 --quiet odd
empty
expect 1 --quiet --format json "$demo"
[ "$(wc -l <out)" -eq 2 ] || fail "not only the refusals"
printf '%s\n%s\n' "$good" "$bad" | expect 1 --format json
says '{"source":"<stdin>","document":1,"verdict":"accepted","guid":"g","line":null,"column":null,"offset":null,"path":null,"reason":null,"log":[],"warnings":[]}'
says '{"source":"<stdin>","document":2,"verdict":"refused","guid":"g","line":2,"column":342,"offset":341,"path":"rule[0].event[0].SubjectPid","reason":"\"SubjectPid\" is a string, a number is needed","log":["ERROR SubjectPid is not 0x00000008.","ERROR GetRawEventInfoEx error.","ERROR GetRawEventInfo failed!","ERROR GetRuleInfoEx error.","ERROR GetRuleInfo failed!","ERROR GetJsonInfo failed!"],"warnings":[]}'
printf '{"\xff\xe4\xb8\xad":1}\n' | expect 1 --format json --log-level debug
python3 - out <<'PY' || fail "no valid JSON"
import json, sys
assert json.loads(open(sys.argv[1], "rb").read().decode("utf-8"))["verdict"] == "refused"
PY
printf '%s\n' "${bad/'"e"'/'"中"'}" | expect 1 --format sarif
python3 - out <<'PY' || fail "no valid SARIF"
import json, sys
run = json.load(open(sys.argv[1]))["runs"][0]
region = run["results"][0]["locations"][0]["physicalLocation"]["region"]
rules = [rule["id"] for rule in run["tool"]["driver"]["rules"]]
assert rules[run["results"][0]["ruleIndex"]] == run["results"][0]["ruleId"] == "refused"
assert region == {"startLine": 1, "startColumn": 342, "endColumn": 345, "byteOffset": 343, "byteLength": 3}, region
PY
fatal=${good/'"type":7'/'"type":9,"PostTime":1,"PreTime":0'}
printf '%s\n%s\n' "$fatal" "$good" | expect 1
says "2 documents: 1 accepted, 1 refused (1 would end the agent's process)"
expect 0 --color always odd
grep -q $'\e\[1;33mwarning:' out || fail "no colour"

# Files that are none, and outputs that take nothing.
expect 2 none odd
tells 'none: No such file'
says '1 document: 1 accepted, 1 warning'
expect 2 .
tells 'Is a directory'
expect 0 /dev/null
tells '/dev/null holds no alert document'
expect 2 --format yaml odd
mkfifo fifo
printf '%s\n' "$good" >fifo &
expect 0 fifo
yes "$bad" | head -n $((megabytes * 500)) >many
expect 1 many
says "$((megabytes * 500)) documents: $((megabytes * 500)) refused"
timeout 200 "$host" check many 2>err | head -n 1 >out
[ "${PIPESTATUS[0]}" -eq 0 ] && [ ! -s err ] || fail "a closed pipe does not end it quietly"
if [ -e /dev/full ]; then
    timeout 200 "$host" check many >/dev/full 2>err
    [ $? -eq 1 ] || fail "a full disk is not seen"
    tells 'No space left'
fi
{ printf '{"a":"'; head -c ${megabytes}000000 /dev/zero | tr '\0' x; printf '"}\n'; } >long
expect 1 long
says '  {"a":"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx...'

# A signal ends it in the middle, with what it knows.
mkfifo slow
"$host" check slow >out 2>err &
pid=$!
exec 3>slow
printf '%s\n' "$good" >&3
until [ -e /proc/$pid ] && grep -q S "/proc/$pid/stat" && [ "$(ls -l /proc/$pid/fd | grep -c slow)" -gt 0 ]; do :; done
kill -TERM $pid
wait $pid
[ $? -eq 1 ] || fail "a signal does not end it"
tells 'stopped by a signal'
exec 3>&-
exit $failed

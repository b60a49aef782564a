#!/bin/bash
# Records runs and plays them again.
#   replay.sh PROGRAM DEMO_SCENARIO
. "$(dirname "$0")/zelhost_lib.sh"
records="$(dirname "$demo")/records"

# A record that is put there is a test from then on.
for record in "$records"/*.record; do
    expect 0 "" replay "$record" --compare
    printed 1 "all that came out is what the record has"
    ! grep -q departed "$work/err" || fail "$(basename "$record"): departed"
done

# The same bytes, from the first to the last, as often as it is played.
agentid=A-7 expect 0 "done" run --input "$demo" --record "$work/demo.record"
cp "$work/out" "$work/demo.out"
for round in 1 2 3; do
    expect 0 "" replay "$work/demo.record"
    cmp -s "$work/out" "$work/demo.out" || fail "round $round: other bytes"
    [ ! -s "$work/err" ] || fail "round $round: departed"
done
expect 0 "" replay "$work/demo.record" --speed 20 --output "$work/slow.out" --log "$work/slow.log"
cmp -s "$work/slow.out" "$work/demo.out" || fail "other bytes at another speed"
grep -q "start handle kov!" "$work/slow.log" || fail "no log of a replay"
expect 0 "" replay "$work/demo.record"
grep -q '"agent_id":"A-7"' "$work/out" || fail "not the agent id of the record"

# A difference is found: one digit of a GUID that the plug-in made, in the message of a port scan.
python3 - "$work/demo.record" "$work/other.record" <<'END'
import gzip, re, struct, sys
record = open(sys.argv[1], "rb").read()
at = record.index(b"\n") + 1
out = record[:at]
while at < len(record):
    size = struct.unpack("<I", record[at:at + 4])[0]
    entry = gzip.decompress(record[at + 4:at + 4 + size])
    at += 4 + size
    # The event's id and source, and then its GUID: field 3, 36 characters.
    entry = re.sub(rb"(\x08\x81\x06\x10\x84\x0c\x1a\x24.{35}).", rb"\1-", entry, flags=re.S)
    packed = gzip.compress(entry)
    out += struct.pack("<I", len(packed)) + packed
open(sys.argv[2], "wb").write(out)
END
expect 1 "" replay "$work/other.record" --compare
printed 1 "first difference: number"
printed 1 "guid: "
printed 1 "NOT all that came out is what the record has"

# Killed in the midst of a run: what is complete is played.
mkfifo "$work/pipe"
"$host" run --input "$work/pipe" --record "$work/killed.record" >/dev/null 2>&1 &
run=$!
exec 3>"$work/pipe"
grep '^{"event":15' "$demo" >&3
for _ in $(seq 600); do
    [ "$(stat -c %s "$work/killed.record" 2>/dev/null || echo 0)" -lt 4000 ] || break
    sleep 0.1
done
kill -9 $run
wait $run 2>/dev/null || true
exec 3>&-
expect 0 "was cut" replay "$work/killed.record" --compare
printed 1 "all that came out is what the record has"
head -c 3000 "$work/demo.record" >"$work/cut.record"
expect 0 "was cut" replay "$work/cut.record" --compare
{ head -c 9000 "$work/demo.record"; printf '\xff\xff\xff'; tail -c +9004 "$work/demo.record"; } >"$work/bad.record"
expect 0 "is damaged" replay "$work/bad.record" --compare

# What is no record, or cannot be one.
expect 1 "cannot read the record $work/none" replay "$work/none"
expect 1 "is no record" replay "$demo"
expect 1 "is no record" replay "$work"
sed '1s/1$/0/' "$work/demo.record" >"$work/old.record"
expect 1 "is a record of version 0, and this zelhost reads version 1: record it again" replay "$work/old.record"
expect 1 "cannot write the record $work/none/x" run --input /dev/null --record "$work/none/x"
expect 1 "cannot write the record /dev/full" run --input /dev/null --record /dev/full
expect 2 "--speed" replay "$work/demo.record" --speed fast
expect 2 "--speed" replay "$work/demo.record" --speed 0
expect 2 "FILE" replay
expect 1 "is no agent folder" replay "$work/demo.record" --root "$work"
exit $failed

#!/bin/bash
# Holds zelhost status against real starts: for each agent folder of a table, most of them broken, its verdict, its log lines
# and its settings must be those of a start in that folder.
#   status.sh ZELHOST START_ONCE
host=$1
start=$2
whole=$(cd "$(dirname "$host")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/agent
# Some 65 copies are made of it, which need no debug information.
cp -a "$whole" "$work/whole"
whole=$work/whole
find "$whole" -name '*.debug' -delete
ulimit -c 0
failed=0
export agentid=A-1 ZEL_LOG_LEVEL=info

fail() {
    echo "status.sh: $name: $1" >&2
    failed=1
}

# The lines of a section of the status, without their indent.
section() { sed -n "/^$1/,/^\$/s/^  //p" "$work/out"; }

# What a start would write at level info, from the settings in the status.
settings_line() {
    value() { awk -v key="$1" '$1 == key { printf "%s", $2 }' "$work/out"; }
    printf 'queue max:%s, interval:%s, trace val:%s, trc time:%s, trc times:%s, ioa match queue size:%s, ' \
        "$(value config.queue_max)" "$(value config.interval)" "$(value config.trace_val)" "$(value config.trc_time)" \
        "$(value config.trc_times)" "$(value config.ioa_match_queue_size)"
    printf 'disable scan scenario limit:%s, alert_filter_switch:%s\nmax skip behavior level: %s\n' \
        "$(value config.disable_scan_scenario_limit)" \
        "$(grep -c "absent.*alert_filter_disable_flag" "$work/out")" "$(value trace_setting.skip_behavior_level)"
}

# Compares the status of $root with a start. $1: the exit code of both, $2: a text in the status.
compare() {
    find "$root" -printf '%p %s %T@\n' 2>/dev/null | sort >"$work/before"
    ZEL_LOG_FILE=$work/never "$host" status --root "$root" >"$work/out" 2>"$work/err"
    local status=$?
    find "$root" -printf '%p %s %T@\n' 2>/dev/null | sort | diff "$work/before" - >&2 || fail "the folder is changed"
    [ ! -e "$work/never" ] || fail "a log is written"
    [ $status -eq "$1" ] || fail "exit code $status instead of $1"
    cat "$work/out" "$work/err" | grep -qF -- "$2" || fail "no '$2' in the status"

    ZEL_LOG_FILE=$work/log "$start" "$root" 2>/dev/null
    local started=$(($? > 0))  # a signal is a failure, too
    [ $started -eq $status ] || fail "status answers $status, a start $started"
    "$host" run --root "$root" --input /dev/null --idle-ms 1 --log "$work/run_log" >/dev/null 2>&1
    local ran=$(($? > 0))
    [ $ran -eq $status ] || fail "status answers $status, a run $ran"
    touch "$work/log"
    sed -nE 's/^.*\[(ERROR|WARN)\]\t\[zelreshdl\] \[[^]]*\] /\1 /p' "$work/log" >"$work/logged"
    section "errors and warnings" | sed 's/^WARN  /WARN /' | diff "$work/logged" - >&2 || fail "the log (<) differs"
    if [ $started -eq 0 ]; then
        settings_line | while read -r line; do
            grep -qF "$line" "$work/log" || echo "the log has no: $line"
        done >"$work/differs"
        [ ! -s "$work/differs" ] || fail "$(cat "$work/differs")"
    fi
    rm -f "$work/log" "$work/run_log"
}

# row NAME CODE TEXT COMMAND: runs the command in a copy of the whole folder, then compares.
row() {
    name=$1
    rm -rf "$root"
    cp -a "$whole" "$root"
    (cd "$root" && eval "$4")
    compare "$2" "$3"
}
# For commands: a section with values, and a name of a function that is written over.
ini() { printf '\n[%s]\n' "$2" >>"reshdl/config/$1.ini"; printf '%b\n' "${@:3}" >>"reshdl/config/$1.ini"; }
own() { sed -i "s/$2/$3/g" "$1"; }
lib=reshdl/lib
pure='printf "[advthreats_module]\nenable=%s\n" 0 >config/zel_pure_mode.ini'

# One for each row of the table that the bus is given, and one for each key of the files as they are staged.
subscriptions=$(sed -n '/kNormalTable\[\]/,/^};/p' "$(dirname "$0")/../../src/plugin/zelreshdl_engine.cpp" | grep -c event_id::)
settings=$(cat "$whole/reshdl/config/zelreshdl.ini" "$whole/reshdl/config/zeltrc.ini" | sed '/^\[standin\]/,$d' | grep -c '^[a-z_]*=')
row "whole folder" 0 "a start would succeed: full operation, $subscriptions subscriptions, tracing on" true
unset agentid
row "no agent id" 0 "ERROR get agentid from env error !" true
export agentid=A-1

# Settings.
row "no settings" 0 "missing: the file cannot be read: No such file or directory; counts as 0" "rm reshdl/config/zelreshdl.ini"
row "empty settings" 0 "100  default: no such key; counts as 0, outside 50 to 500" ": >reshdl/config/zelreshdl.ini"
row "settings are a folder" 0 "it is a folder" "rm reshdl/config/zelreshdl.ini; mkdir reshdl/config/zelreshdl.ini"
row "unreadable settings" 0 "a start would succeed" "chmod 0 reshdl/config/*.ini"
row "binary settings" 0 "tracing off (trc_times is 0)" "printf '\0\377[config\nqueue_max=\1=70\r\n' >reshdl/config/zelreshdl.ini"
row "no number" 0 '100  default: "abc" counts as 0, outside 50 to 500' "ini zelreshdl config queue_max=abc trc_times=abc"
row "bytes in a value" 0 '"\xff\x01" counts as 0' "ini zelreshdl config 'queue_max=\0377\01'"
row "hexadecimal" 0 '64  file: "0x40" counts as 64' "ini zelreshdl config queue_max=0x40 trc_times=0x4"
row "octal" 0 '64  file: "0100" counts as 64' "ini zelreshdl config queue_max=0100 trc_time=010"
row "negative" 0 '"-1" counts as 18446744073709551615, outside' "ini zelreshdl config queue_max=-1 interval=-1"
row "overflow" 0 "outside 0 to 16" "ini zelreshdl config queue_max=99999999999999999999 trc_times=4294967304"
row "below the limits" 0 "100  default: 49, outside 50 to 500" "ini zelreshdl config queue_max=49 interval=0"
row "at the limits" 0 "500  file" "ini zelreshdl config queue_max=500 interval=1 trc_times=16 trace_val=0"
row "byte-order mark and CRLF" 0 "60  file" "printf '\357\273\277[config]\r\nqueue_max=60\r\n' >reshdl/config/zelreshdl.ini"
row "cut off" 0 "7  file" "printf '[config]\ntrc_times=7' >reshdl/config/zelreshdl.ini"
row "cache" 0 'default: "x" counts as 0, outside 10 to 5000' "ini zelreshdl cache cache_size=x die_num=101"
row "no trace settings" 0 "2  default: the file cannot be read" "rm reshdl/config/zeltrc.ini"
row "no trace level" 0 "2  default: no such key" ": >reshdl/config/zeltrc.ini"
row "trace level outside" 0 "2  default: 6, outside 0 to 5" "ini zeltrc trace_setting skip_behavior_level=6"
row "trace level of 33 bits" 0 '"4294967297" counts as 1' "ini zeltrc trace_setting skip_behavior_level=4294967297"
row "trace settings are a folder" 0 "it is a folder" "rm reshdl/config/zeltrc.ini; mkdir reshdl/config/zeltrc.ini"
row "no version" 0 "version 3.7.2.20 (built in)" "rm config/agent_cfg.json"
row "garbled version" 0 "version 3.7.2.20 (built in)" "echo '{\"version\":' >config/agent_cfg.json"

# Pure mode needs no modules.
row "pure mode" 0 "pure mode, 2 subscriptions, no tracing" "$pure"
row "pure mode without modules" 0 "not used in pure mode" "$pure; rm $lib/libzelds.so $lib/libzeltrc.so"
row "pure mode without a bus" 1 "mb dll open failed!0x84ce0015" "$pure; rm $lib/liblummb.so"
row "pure mode without a key" 0 "has no enable in section" ": >config/zel_pure_mode.ini"
row "pure mode is a folder" 0 "pure mode, 2 sub" "mkdir config/zel_pure_mode.ini"
row "pure mode off" 0 "full operation (enable=7 in" "printf '[advthreats_module]\nenable=7' >config/zel_pure_mode.ini"

# Libraries.
for file in lib/libzel_bpsdk.so $lib/libodaipc.so $lib/libzelbpmgr.so $lib/libzellxadapter.so; do
    row "without $file" 0 "tracing on; without the " "rm $file"
done
row "SDK is a text" 0 "ERROR dll open zel_bpsdk failed, errcode:0x84ce0015" "echo text >lib/libzel_bpsdk.so"
row "SDK without a function" 0 "without zel_bp_init" "own lib/libzel_bpsdk.so zel_bp_init zel_bp_none"
row "manager without a function" 0 "without register_report_cb" "own $lib/libzelbpmgr.so register_report_cb register_report_no"
row "no bus" 1 "ERROR mb dll open failed!0x84ce0015" "rm $lib/liblummb.so"
row "bus is a text" 1 "ERROR LoadMbDll failed!" "echo text >$lib/liblummb.so"
row "bus is a folder" 1 "cannot read file data: Is a directory" "rm $lib/liblummb.so; mkdir $lib/liblummb.so"
row "bus without a function" 1 "ERROR mb dll_get_addr failed!0x84ce0015" "own $lib/liblummb.so DllGetClassObject DllGetClassNothin"
row "no data store" 1 "ERROR ds dll open failed!0x84ce0015" "rm $lib/libzelds.so"
row "data store without a function" 1 "without ds_update_db" "own $lib/libzelds.so ds_update_db ds_update_no"
row "no trace module" 1 "ERROR zeltrc dll open failed!0x84ce0015" "rm $lib/libzeltrc.so"
row "trace module is empty" 1 "file too short" ": >$lib/libzeltrc.so"
row "trace module needs a library" 1 "libzelcount.so: cannot open" "rm $lib/libzelcount.so"
row "trace module without a function" 1 "without trace_event_uninit" "own $lib/libzeltrc.so trace_event_uninit trace_event_nothin"
row "no bus and no modules" 1 "the log would say" "rm $lib/*"
row "no support functions" 1 "the support functions cannot be loaded" "rm lib/liblumutil.so"
row "support functions lack one" 1 "undefined symbol: zel_mutex_init" "own lib/liblumutil.so zel_mutex_init zel_mutex_none"
row "no plug-in" 1 "the plug-in cannot be loaded" "rm reshdl/bin/libzelreshdl.so"
row "plug-in is a text" 1 "the plug-in cannot be loaded" "echo text >reshdl/bin/libzelreshdl.so"
row "plug-in without an export" 1 "the plug-in cannot be loaded" "own reshdl/bin/libzelreshdl.so plugin_init plugin_none"
row "empty folder" 1 "the support functions cannot be loaded" "rm -r *"
row "no folder" 1 "is no folder; name an agent folder with --root" "rm -r ../agent"
row "a file in place of the folder" 1 "is no folder" "rm -r ../agent; echo text >../agent"

# What a start would wait for, and outputs.
for file in reshdl/config/zelreshdl.ini config/agent_cfg.json $lib/liblummb.so reshdl/bin/libzelreshdl.so; do
    name="FIFO in place of $file"
    rm -rf "$root"
    cp -a "$whole" "$root"
    rm "$root/$file"
    mkfifo "$root/$file"
    timeout 20 "$host" status --root "$root" >"$work/out" 2>"$work/err"
    [ $? -eq 1 ] && grep -q "$file is a FIFO" "$work/err" || fail "$(cat "$work/err")"
done
for path in lib/liblumutil.so $lib/libzeltrc.so; do
    row "start of $path" 1 "$path ends the process (" "truncate -s 10000 $path"
done
row "start of an unused module" 0 "libzeltrc.so ends the process (" "$pure; truncate -s 10000 $lib/libzeltrc.so"
row "start of the adapter" 0 "libzellxadapter.so ends the process (" "truncate -s 8000 $lib/libzellxadapter.so"
name=output
for form in --color=auto --json; do
    "$host" status $form >/dev/full 2>"$work/err"
    [ $? -eq 1 ] && [ "$(grep -c "cannot write standard output: No space left" "$work/err")" -eq 1 ] ||
        fail "a full disk is not said once"
done
"$host" status 2>"$work/err" | head -c 1 >/dev/null
[ "${PIPESTATUS[0]}" -eq 0 ] && [ ! -s "$work/err" ] || fail "a closed pipe is said"
"$host" status --color always | grep -q $'\033' || fail "no colours"
! "$host" status | grep -q $'\033' || fail "colours in a file"

name=JSON
rm -rf "$root"
cp -a "$whole" "$root"
(cd "$root" && rm $lib/libzelds.so && ini zelreshdl config 'queue_max=\0377"' trc_times=99)
"$host" status --json --root "$root" >"$work/out"
[ $? -eq 1 ] || fail "the exit code is not 1"
python3 - "$work/out" "$subscriptions" "$settings" <<'PYTHON' || fail "not as expected"
import json, sys
status = json.loads(open(sys.argv[1], encoding="utf-8").read())
setting = {row["key"]: row for row in status["settings"]}
library = {row["path"]: row for row in status["agent_libraries"] + status["libraries"]}
assert not status["starts"] and status["root"].endswith("/agent") and not status["pure_mode"] and status["tracing"]
assert status["failure"]["log"] == ["ERROR ds dll open failed!0x84ce0015", "ERROR load moudle failed!"], status["failure"]
assert status["failure"]["reason"] == "ds dll open failed!0x84ce0015"
assert status["subscription"][:3] == [1536, 1793, 1281] and len(status["subscription"]) == int(sys.argv[2])
assert setting["queue_max"]["text"] == '\\xff"' and setting["queue_max"]["from"] == "default"
assert (setting["trc_times"]["value"], setting["trc_times"]["from"]) == (8, "default")
assert (setting["interval"]["value"], setting["interval"]["from"], setting["interval"]["reason"]) == (5, "file", "")
assert len(setting) == int(sys.argv[3])
store, trace = library["reshdl/lib/libzelds.so"], library["reshdl/lib/libzeltrc.so"]
assert store["required"] and not store["complete"] and "No such file" in store["reason"]
assert trace["complete"] and trace["reason"] is None and len(trace["functions"]) == 7
assert [row["path"] for row in status["flags"] if row["present"]] == []
PYTHON
"$host" status --json --root "$root/none" >"$work/out" 2>"$work/err"
[ $? -eq 1 ] || fail "the exit code without a folder is not 1"
python3 - "$work/out" <<'PYTHON' || fail "not as expected without a folder"
import json, sys
status = json.loads(open(sys.argv[1], encoding="utf-8").read())
assert not status["starts"] and "is no folder" in status["failure"]["reason"] and status["failure"]["log"] == []
PYTHON
exit $failed

#!/bin/bash
# The pages of docs/add/ agree with their examples, and tools/check_adding notices when they do not.
check="$(readlink -f "$(dirname "$0")")/../tools/check_adding"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

fail() {
    echo "adding.sh: $1" >&2
    sed 's/^/  /' "$work/err" >&2
    failed=1
}

"$check" --pages 2>"$work/err" || fail "a page of docs/add does not agree with its example"
"$check" --pages nothing 2>"$work/err"
[ $? -eq 2 ] && grep -q "unknown page 'nothing'" "$work/err" || fail "an unknown page goes unnoticed"

# spoiled TEXT CHANGE FILE: with the sed script CHANGE on that file the check fails and says so.
spoiled() {
    rm -rf "$work/add"
    cp -r "$(dirname "$check")/../docs/add" "$work/add"
    sed -i -E "$2" "$work/add/$3"
    "$check" --pages --folder "$work/add" setting 2>"$work/err"
    [ $? -eq 1 ] && grep -qF -- "$1" "$work/err" || fail "no '$1'"
}
spoiled 'touches src/pipeline/settings.h, which the page does not list' '/^- `src\/pipeline\/settings.h`/d' setting.md
spoiled 'lists src/nothing.cpp, which the example does not touch' '$a - `src/nothing.cpp`' setting.md
spoiled 'the page shows a line that the example does not add' 's/"busy_val", 50, 1,/"busy_val", 50, 2,/' setting.md
spoiled 'the example does not apply' 's/^ (.*"trc_time", )15/ \116/;s/^ (.*"trace_val", )50/ \151/' examples/setting.patch
spoiled 'no command of the page runs a test' '/^\$ ctest/d' setting.md
spoiled 'docs/add/examples/setting.patch is missing or empty' 'd' examples/setting.patch
spoiled 'docs/add/setting.md is missing or empty' 'd' setting.md
exit $failed

#!/bin/bash
# Command lines of zelhost graph with their exit status and what they say; then its pages in a headless Chromium, driven by a
# script: search, zoom, keyboard, details, and texts that would like to be more than text.
#   graph_page.sh PROGRAM CHAIN
host=$(readlink -f "$1")
chain=$(readlink -f "$2")
script=$(dirname "$(readlink -f "$0")")/graph_page_test.js
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

fail() {
    echo "graph_page.sh: $1" >&2
    failed=1
}

# expect CODE TEXT ARGUMENTS...: the exit status, and a text on standard error; none may be there if the text is empty.
expect() {
    local code=$1 text=$2 got
    shift 2
    "$host" graph "$@" >"$work/out" 2>"$work/err"
    got=$?
    [ $got -eq "$code" ] || fail "graph $*: exit status $got instead of $code"
    if [ -n "$text" ]; then grep -qF -- "$text" "$work/err"; else [ ! -s "$work/err" ]; fi ||
        fail "graph $*: says '$(head -n 1 "$work/err")' instead of '$text'"
}

cd "$work" || exit 1
mkdir folder
mkfifo pipe
: >empty
head -c 300 "$chain" >cut
{ echo '{"event":770'; cat "$chain"; } >broken_line
sed 's/"message":{.*/"message":{"threat":{"alert_guid":"G"}}}/' "$chain" >no_chain
expect 0 "" "$chain"
head -n 1 out | grep -qx "digraph chain {" || fail "no DOT on standard output"
expect 0 "" - -o chain.dot <"$chain"
cmp -s out /dev/null && cmp -s chain.dot <("$host" graph "$chain") || fail "the file differs from standard output"
expect 0 "" --guid b6d3f55c-5f07-5bb1-8e5d-e9892ad9858d "$chain" -o chain.svg
expect 0 "" "$chain" -o chain.png
cat "$chain" >pipe &
expect 0 "" pipe
expect 3 "broken_line, line 1 skipped: no valid JSON at byte" broken_line
expect 1 "none" none
expect 1 "cannot read folder" folder
expect 1 "empty is empty" empty
expect 1 "cut, line 1 skipped" cut
expect 1 'the trace of alert "G" has no vertex' no_chain
cat no_chain "$chain" >chain_behind
expect 0 "" chain_behind
cmp -s out chain.dot || fail "a trace without a chain hides the one behind it"
expect 1 "no line of event 770 with the GUID X" --guid X "$chain"
expect 1 "neither lines as zelhost run writes them nor a serialised message" "$host"
"$host" graph "$chain" >/dev/full 2>err
[ $? -eq 1 ] && grep -qF "No space left on device" err || fail "a full disk is not told"
expect 1 "cannot open the output folder/none/c.svg" "$chain" -o folder/none/c.svg
expect 2 "chain.pdf does not end in .dot" "$chain" -o chain.pdf
"$host" graph "$chain" 2>err | :
[ ! -s err ] || fail "a closed pipe is not quiet: $(cat err)"

# drive PAGE: the title of the page after the script. It carries the word that lets a page's own script run.
drive() {
    local nonce
    nonce=$(grep -o 'nonce-[0-9a-f]*' "$1" | head -n 1)
    sed -i '/<\/body>/d; /<\/html>/d' "$1"
    { printf '<script nonce="%s">' "${nonce#nonce-}"; cat "$script"; echo '</script></body></html>'; } >>"$1"
    HOME=$work timeout 50 chromium --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --no-first-run \
        --user-data-dir="$work/profile" --window-size=1300,900 --dump-dom "file://$1" 2>"$work/browser.log" |
        sed -n 's/.*<title>\(.*\)<\/title>.*/\1/p' | head -n 1
}

# passes PAGE COUNT
passes() {
    local title
    title=$(drive "$1")
    [ "$title" = "passed $2 checks" ] || fail "${1##*/}: ${title:-no title, $(tail -n 3 "$work/browser.log")}"
}

"$host" graph "$chain" -o "$work/demo.html" || fail "no page of the demo's chain"
[ "$(stat -c %s "$work/demo.html")" -lt 2000000 ] || fail "the page is larger than 2 MB"
grep -qE '(src|href|action)="?(https?:|//)|@import|url\(' "$work/demo.html" && fail "the page asks for something from elsewhere"
passes "$work/demo.html" 30

cat >"$work/evil.jsonl" <<'EVIL'
{"event":770,"message":{"threat":{"alert_name":"\"><script>intruder=1</script>\\N\\L &lt;b&gt;<img src=x onerror=intruder=2>"},"trace_event":{"file_create_list":[{"node_id":1,"file_path":"\"><script>intruder=1</script>\\N\\L &lt;b&gt;<img src=x onerror=intruder=2>","file_type":"</svg><script>intruder=3</script>","link_target":"]]>--><b>{{data}}</b>"}]}}}
EVIL
"$host" graph "$work/evil.jsonl" -o "$work/evil.html" || fail "no page of a hostile chain"
passes "$work/evil.html" 6
exit $failed

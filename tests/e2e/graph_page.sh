#!/bin/bash
# Opens pages of zelhost graph in a headless Chromium and lets a script drive them: search, zoom, keyboard, details, and texts
# that would like to be more than text.
#   graph_page.sh PROGRAM CHAIN
host=$1
chain=$2
script=$(dirname "$(readlink -f "$0")")/graph_page_test.js
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

fail() {
    echo "graph_page.sh: $1" >&2
    failed=1
}

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

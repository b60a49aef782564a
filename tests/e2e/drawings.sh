#!/bin/bash
# The pictures of the pages are those of their sources, and what the sources name is there. Planted faults show that the check notices.
#   drawings.sh
root=$(readlink -f "$(dirname "$0")/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

"$root/tools/draw_docs" --check || failed=1

mkdir "$work/tools" "$work/docs"
cp "$root/tools/draw_docs" "$work/tools/"
cp -r "$root/src" "$work/"

# notices TEXT FILE SED: the check of a copy whose file was changed so fails, and says the text.
notices() {
    rm -rf "$work/docs"/*
    cp -r "$root/docs/drawings" "$root/docs/images" "$work/docs/"
    sed -i "$3" "$work/docs/$2"
    "$work/tools/draw_docs" --check >"$work/out" 2>&1
    [ $? -eq 1 ] && grep -qF -- "$1" "$work/out" && return
    echo "drawings.sh: '$3' in $2 is not noticed with '$1':" >&2
    cat "$work/out" >&2
    failed=1
}
notices "docs/images/locks.svg is not what docs/drawings/locks.dot makes" drawings/locks.dot 's/fontsize=11/fontsize=12/'
notices "docs/images/locks.svg is not what docs/drawings/locks.dot makes" images/locks.svg 's/SiblingModules/CousinModules/'
notices "src/ has no name 'SiblingModules::latch_'" drawings/locks.dot 's/SiblingModules::mutex_/SiblingModules::latch_/'
notices "src/ has no name 'Sanpshot'" drawings/classes.dot 's/Snapshot/Sanpshot/'
notices "src/ has no name 'TracePruner::Push'" drawings/sequence_alert.signalling 's/TraceEliminator::Push/TracePruner::Push/'
notices "src/ has no log text 'alert trace done, guid:'" drawings/sequence_kov.signalling 's/alert trace success/alert trace done/'
notices "src/ has no event 1555" drawings/alert_road.dot 's/"1536"/"1555"/'
exit $failed

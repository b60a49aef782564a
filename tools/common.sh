# Sourced by run.sh, test.sh and the scripts of this folder; not run by itself. Sets `root`, the project's folder, and `build`.
# shellcheck shell=bash

root="$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/..")"

# Everything that the scripts make lies below this folder: ZEL_BUILD_DIR, or build/ of the project. A relative path counts from
# where the first script was called.
build="$(realpath -m -- "${ZEL_BUILD_DIR:-$root/build}")"
export ZEL_BUILD_DIR="$build"

# An error ends the script with one line. What goes well is told in lines of the same form.
say() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; }
fail() {
    say "$*"
    exit 1
}

make_build_folder() {
    mkdir -p -- "$1" 2>/dev/null && [ -w "$1" ] ||
        fail "cannot write to $1; set ZEL_BUILD_DIR to a folder that you may write to"
}

# take_turn NAME WHAT: returns when no other script holds the lock NAME, which this one then keeps until it ends. Says that it
# waits. A lock that a killed script held is free, once its children have ended, too.
take_turn() {
    local lock
    make_build_folder "$(dirname "$build/$1")"
    exec {lock}>"$build/$1"
    flock -n "$lock" && return
    say "$2 in this folder already; waiting for its end"
    flock "$lock"
}

# follow LOG WHAT: copies standard input to LOG, and shows how many of the steps that ninja counts are done: on a terminal in a line
# that replaces itself, otherwise in a line each half minute.
follow() {
    local line done all shown=$SECONDS
    while IFS= read -r line; do
        printf '%s\n' "$line"
        [[ "$line" =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
        done="${BASH_REMATCH[1]}" all="${BASH_REMATCH[2]}"
        if [ -t 2 ]; then
            printf '\r%s: step %d of %d, %d:%02d minutes\e[K' "$2" "$done" "$all" $((SECONDS / 60)) $((SECONDS % 60)) >&2
        elif [ $((SECONDS - shown)) -ge 30 ]; then
            shown=$SECONDS
            say "$2: step $done of $all, $((SECONDS / 60)):$(printf %02d $((SECONDS % 60))) minutes"
        fi
    done >>"$1"
    [ ! -t 2 ] || printf '\r\e[K' >&2
}

#!/bin/bash
# Configures and builds a preset (release, debug, coverage, asan, tsan, fuzz) or some of its targets. The chatter goes to
# build/PRESET/build.log; its end is shown when the build fails. A second build of the same preset waits for the first.
#
#   tools/build.sh PRESET [TARGET...]
#
# ZEL_JOBS       number of compilers at a time; without it one for each processor
# ZEL_BUILD_DIR  folder in place of build/
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"

preset="${1-}"
if [[ ! "$preset" =~ ^(release|debug|coverage|asan|tsan|fuzz)$ ]]; then
    echo "build.sh: unknown preset '$preset' (usage: tools/build.sh release|debug|coverage|asan|tsan|fuzz [TARGET...])" >&2
    exit 2
fi
shift
jobs="${ZEL_JOBS:-$(nproc)}"
[[ "$jobs" =~ ^[1-9][0-9]*$ ]] || fail "ZEL_JOBS is '$jobs'; it must be a number of compilers, 1 or more"

take_turn "$preset/build.lock" "a build of '$preset' runs"
log="$build/$preset/build.log"
: >"$log"

# A second checkout, such as the clean clone of a check before a push, finds what this one has compiled. Who has no compiler cache
# gets one below the build folder.
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$root}" CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"
if [ -z "${CCACHE_DIR-}" ] && [ ! -d "${HOME-}/.cache/ccache" ] && [ ! -d "${HOME-}/.ccache" ]; then
    export CCACHE_DIR="$build/ccache"
fi

explain_failure() {
    tail -n 60 "$log" >&2
    fail "the build of preset '$preset' failed; all of its output is in $log"
}

first=
[ -e "$build/$preset/build.ninja" ] || first=", which takes some $((16 / jobs + 2)) minutes the first time"
say "building '$preset'$first; log: $log"
cd "$root"
cmake --preset "$preset" -B "$build/$preset" >>"$log" 2>&1 || explain_failure
ninja -C "$build/$preset" -j "$jobs" "$@" 2>&1 | follow "$log" "building '$preset'" || explain_failure

#!/bin/bash
# Configures and builds a preset (release, debug, coverage, asan, tsan, fuzz) or some of its targets. The chatter goes to
# build/PRESET/build.log; its end is shown when the build fails. ZEL_JOBS is the number of compilers at a time.
#
#   tools/build.sh PRESET [TARGET...]
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."

preset="${1-}"
if [[ ! "$preset" =~ ^(release|debug|coverage|asan|tsan|fuzz)$ ]]; then
    echo "build.sh: unknown preset '$preset' (usage: tools/build.sh release|debug|coverage|asan|tsan|fuzz [TARGET...])" >&2
    exit 2
fi
shift
log="build/$preset/build.log"
mkdir -p "build/$preset"
echo "building $preset, log in $PWD/$log" >&2

# A second checkout, such as the clean clone of a check before a push, finds what this one has compiled.
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$PWD}" CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"

if ! { cmake --preset "$preset" && ninja -C "build/$preset" -j "${ZEL_JOBS:-$(nproc)}" "$@"; } >"$log" 2>&1; then
    tail -n 60 "$log" >&2
    echo "build.sh: the build of preset '$preset' failed, see $PWD/$log" >&2
    exit 1
fi

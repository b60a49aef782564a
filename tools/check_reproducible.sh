#!/bin/bash
# Builds the agent folder (release) twice from the last commit, in two folders whose paths differ in length and without the
# compiler cache, and compares all files of the two byte by byte, the .debug files among them. Names each file that differs,
# with the first section that does. Two full builds take several minutes.
#
#   tools/check_reproducible.sh              the whole agent folder
#   tools/check_reproducible.sh TARGET...    only these targets, such as zelreshdl
#
# Exit status: 0 the same bytes, 1 a file differs or a build fails, 2 no commit to build from.
set -euo pipefail
root="$(readlink -f "$(dirname "$(readlink -f "$0")")/..")"
targets=("$@")
[ $# -gt 0 ] || targets=(agent)

work="$(mktemp -d "${TMPDIR:-/tmp}/zelreshdl_twice.XXXXXX")"
trap 'rm -rf "$work"' EXIT
sources=("$work/a" "$work/another_folder_with_a_longer_path/b")
export CCACHE_DISABLE=1
for source in "${sources[@]}"; do
    mkdir -p "$source"
    git -C "$root" archive HEAD | tar -x -C "$source" || {
        echo "check_reproducible.sh: cannot read the last commit of $root" >&2
        exit 2
    }
    ZEL_BUILD_DIR= "$source/tools/build.sh" release "${targets[@]}" || {
        echo "check_reproducible.sh: the build from a copy of the last commit fails; what it printed is above" >&2
        exit 1
    }
done

# The first section whose bytes differ, or the first byte when all sections are the same. Build id and check sum of the .debug
# file come last: they differ whenever anything else does.
first_difference() { # FILE FILE
    local section sections derived='^\.(note\.gnu\.build-id|gnu_debuglink)$'
    sections="$(readelf -SW "$1" 2>/dev/null | sed -nE 's/^ *\[ *[0-9]+\] ([^ ]+) .*/\1/p')"
    for section in $(grep -vE "$derived" <<<"$sections") $(grep -E "$derived" <<<"$sections"); do
        if ! cmp -s <(readelf -x "$section" "$1" 2>/dev/null) <(readelf -x "$section" "$2" 2>/dev/null); then
            echo "section $section"
            return
        fi
    done
    cmp "$1" "$2" 2>&1 | sed 's/.*differ: //'
}

agents=("${sources[@]/%//build/release/agent}")
failed=0
count=0
while IFS= read -r file; do
    count=$((count + 1))
    if [ ! -f "${agents[0]}/$file" ] || [ ! -f "${agents[1]}/$file" ]; then
        echo "check_reproducible.sh: $file is in one of the two folders only" >&2
        failed=1
    elif ! cmp -s "${agents[0]}/$file" "${agents[1]}/$file"; then
        echo "check_reproducible.sh: $file differs: $(first_difference "${agents[0]}/$file" "${agents[1]}/$file")" >&2
        failed=1
    fi
done < <(cd "$work" && for agent in "${agents[@]}"; do (cd "$agent" && find . -type f | sed 's|^\./||'); done | sort -u)
[ $failed -eq 0 ] && echo "$count files, the same bytes in both folders, in $SECONDS s"
exit $failed

#!/bin/bash
# Checks the formatting of all sources, and their code with clang-tidy under the flags of the preset fuzz.
#
#   tools/lint.sh          check
#   tools/lint.sh --fix    format the sources in place instead
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"
cd "$root"

mapfile -t sources < <(find src check standin host tests bench longrun fuzz -name '*.cpp' -o -name '*.h' | sort)
if [ "${1-}" = --fix ]; then
    exec clang-format-19 -i "${sources[@]}"
fi

failed=0
clang-format-19 --dry-run -Werror "${sources[@]}" || failed=1

# The generated message classes are part of what is compiled.
tools/build.sh fuzz gen/lite/retrace.pb.h gen/full/retrace.pb.h gen/full/record.pb.h
printf '%s\n' "${sources[@]}" | grep -E '^(src|check|standin|host)/.*\.cpp$' |
    xargs -P "$(nproc)" -n 4 clang-tidy-19 -p "$build/fuzz" --quiet --warnings-as-errors='*' 2> >(grep -vE 'warnings? generated|^\[[0-9]+/[0-9]+] ' >&2) || failed=1

[ "$failed" -eq 0 ] && echo "lint.sh: clean"
exit "$failed"

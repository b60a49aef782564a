#!/bin/bash
# Measures documents that an attacker would make: 100 MB of events, a million keys, keys of one hash, a million tags, 100 000
# rules, deep brackets, a text of 50 MB. Each kind comes in three sizes; fails when the time of a kind grows clearly faster
# than its size. The full sizes take a minute or two and up to 2 GiB of memory.
#
#   tools/hostile_documents.sh [PERCENT]    of the full sizes
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"
"$root/tools/build.sh" release hostile_documents
export ZEL_LOG_FILE=/dev/null ZEL_LOG_LEVEL=error
exec "$build/release/bench/hostile_documents" "$@"

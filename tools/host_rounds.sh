#!/bin/bash
# Lets a host load, start, use, stop and unload the plug-in again and again, exit without a stop, and fork while the plug-in
# works, with four allocators. Prints one line for each of them; fails when anything is left behind, hangs or ends badly.
#
#   tools/host_rounds.sh [ROUNDS]    1000 by default; 20 take a few seconds
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"

rounds="${1:-1000}"
if [ $# -gt 1 ] || [[ ! "$rounds" =~ ^[1-9][0-9]{0,6}$ ]]; then
    echo "usage: tools/host_rounds.sh [ROUNDS]" >&2
    exit 2
fi
"$root/tools/build.sh" release host_rounds

failed=0
for library in libc.so.6 libjemalloc.so.2 libtcmalloc_minimal.so.4 libmimalloc.so.2; do
    preload="$library"
    [ "$library" != libc.so.6 ] || preload=""
    LD_PRELOAD="$preload" "$build/release/longrun/host_rounds" "$rounds" "$library" || failed=1
done
exit "$failed"

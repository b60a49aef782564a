#!/bin/bash
# Lets 100 000 alerts loose on a slow trace module and checks what is shed, pass by pass, the length of the queues and the
# memory. Fails when anything does not hold.
#
#   tools/storm.sh [ALERTS]
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"
"$root/tools/build.sh" release storm
exec "$build/release/longrun/storm" "${1:-100000}"

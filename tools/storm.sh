#!/bin/bash
# Lets 100 000 alerts loose on a slow trace module and checks what is shed, pass by pass, the length of the queues and the
# memory. Fails when anything does not hold.
#
#   tools/storm.sh [ALERTS]
set -euo pipefail
root="$(dirname "$(readlink -f "$0")")/.."
"$root/tools/build.sh" release storm
exec "$root/build/release/longrun/storm" "${1:-100000}"

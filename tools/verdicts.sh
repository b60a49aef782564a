#!/bin/bash
# Gives generated and mutated alert documents to the checker of zelhost and to the loaded plug-in, and compares verdicts and
# log lines. Fails when anything differs.
#
#   tools/verdicts.sh [DOCUMENTS [SEED]]    100 000 documents by default
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"
"$root/tools/build.sh" release verdicts
exec "$build/release/longrun/verdicts" "${1:-100000}" "${2:-1}"

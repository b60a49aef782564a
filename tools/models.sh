#!/bin/bash
# Plays a million random steps on components and on plain models of them, and compares the two after each step. A sequence
# that fails is made as short as possible and printed. Fails then. The same seed plays the same steps.
#
#   tools/models.sh [SEED [STEPS]]    another seed for each run by default
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"
"$root/tools/build.sh" release models
exec "$build/release/tests/models" "${1:-$((RANDOM * 32768 + RANDOM))}" "${2:-1000000}"

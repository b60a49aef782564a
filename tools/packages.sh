#!/bin/bash
# Builds the Debian packages of the release build into a folder and lets lintian look at them. Errors, warnings and remarks of lintian
# fail; what is allowed stands with its reason in cmake/packages/PACKAGE.lintian-overrides, and a row there that is no longer needed fails
# as well. Prints the packages with their sizes.
#
#   tools/packages.sh [FOLDER]    FOLDER defaults to build/packages; packages of the same names in it are replaced
#
# Exit status: 0 built and clean, 1 a build failed or lintian found something, 2 a wrong command line or a missing program.
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"

fail() { # STATUS TEXT
    echo "packages.sh: $2" >&2
    exit "$1"
}

[ $# -le 1 ] && [[ "${1-}" != -* ]] || fail 2 "cannot read '$*' (usage: tools/packages.sh [FOLDER])"
command -v lintian >/dev/null || fail 2 "there is no lintian here; tools/setup.sh --ci installs it"
mkdir -p "${1-$build/packages}" || fail 2 "cannot make the folder $1"
folder="$(readlink -f "${1-$build/packages}")"

"$root/tools/build.sh" release agent || exit 1

# CPack needs a folder for its own files; packages of an earlier version would be installed with those of this one.
work="$(mktemp -d "$folder/making.XXXXXX")"
trap 'rm -rf "$work"' EXIT
cpack --config "$build/release/CPackConfig.cmake" -B "$work" >"$work/cpack.log" 2>&1 || {
    tail -n 20 "$work/cpack.log" >&2
    fail 1 "cpack failed; its last lines are above"
}
rm -f "$folder"/zelreshdl*_*.deb "$folder"/zelhost*_*.deb
mv "$work"/*.deb "$folder/"
(cd "$folder" && stat -c '%10s bytes  %n' zelreshdl*.deb zelhost*.deb)

lintian --allow-root --display-info --fail-on error,warning,info "$folder"/zelreshdl*.deb "$folder"/zelhost*.deb ||
    fail 1 "lintian is not content; mend it, or allow it with a reason in cmake/packages/"

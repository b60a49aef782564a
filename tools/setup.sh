#!/bin/bash
# Installs the Debian packages that are missing, as root or through sudo; changes nothing when all are there.
#
#   tools/setup.sh               what building and testing need
#   tools/setup.sh --ci          also clang 19 with its tools, for the preset "fuzz", tools/lint.sh and tools/quick, and what .ci/run needs
#   tools/setup.sh --coverage    also gcovr, for tools/coverage.sh
set -euo pipefail

packages=(
    g++                 # compiler of every preset but fuzz
    cmake               # 3.25 or later
    ninja-build         # runs the build
    pkg-config          # finds the C libraries
    ccache              # makes a second build cheap; CMake uses it when it is there
    protobuf-compiler   # generates the message classes
    libprotobuf-dev     # their runtime: lite in the plug-in, full in zelhost
    libcjson-dev        # alert documents
    libjansson-dev      # live configuration, reports, agent_cfg.json
    uuid-dev            # GUIDs
    libinih-dev         # ini files, in the stand-in of the support library
    libcli11-dev        # command line of zelhost
    libfmt-dev          # output of zelhost
    rapidjson-dev       # input lines of zelhost
    libgraphviz-dev     # pictures of behaviour chains
    prometheus-cpp-dev  # metrics of a run
    gnuplot-nox         # zelhost load --plot: rates, latencies and queues over time
    libnats-dev         # zelhost run --sink: client of the message server
    libsqlite3-dev      # the sink's buffer on disk
    nats-server         # tests: the message server itself
    openssl             # tests: certificates of that server
    libgtest-dev        # tests
    libgmock-dev        # matchers of the tests
    librapidcheck-dev   # random tests against a model
    libbenchmark-dev    # bench/
    python3-jsonschema  # tests: the schema of alert documents
    chromium            # tests: the page that shows a chain
    abigail-tools       # tests: the binary interface against its reference
    binutils            # tests: what the built files are made of
    patch               # tests: the examples of docs/add still apply
    dpkg-dev            # tests: which Debian packages a library needs, for the packages
    file                # tests: CPack asks it which files are programs
)
ci_packages=(
    clang-19            # compiler of the preset fuzz; checks the lock annotations
    libclang-rt-19-dev  # its sanitizers and libFuzzer
    clang-tidy-19       # tools/lint.sh
    clang-format-19     # tools/lint.sh, tools/quick
    libjemalloc2        # allocators that a host may have, for tools/host_rounds.sh
    libtcmalloc-minimal4
    libmimalloc2.0
    lintian             # tools/packages.sh
    mmdebstrap          # tools/packages_root.sh: a minimal Debian to install the packages in
    graphviz            # tools/draw_docs: pictures of roads, classes and locks
    msc-generator-nox   # tools/draw_docs: pictures of sequences
)
coverage_packages=(
    gcovr               # tools/coverage.sh
)

source "$(dirname "$(readlink -f "$0")")/common.sh"

case "${1-}" in
    "") ;;
    --ci) packages+=("${ci_packages[@]}") ;;
    --coverage) packages+=("${coverage_packages[@]}") ;;
    *)
        echo "setup.sh: unknown argument '$1' (usage: tools/setup.sh [--ci|--coverage])" >&2
        exit 2
        ;;
esac

command -v dpkg-query >/dev/null && command -v apt-get >/dev/null || fail "this needs Debian 12: no dpkg-query or apt-get here"

find_missing() {
    local installed package
    installed=" $(dpkg-query -W -f='${db:Status-Status}=${Package} ' "${packages[@]}" 2>/dev/null || true)"
    missing=()
    for package in "${packages[@]}"; do
        [[ "$installed" == *" installed=$package "* ]] || missing+=("$package")
    done
}
find_missing
[ ${#missing[@]} -gt 0 ] || exit 0

by=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null ||
        fail "these Debian packages are missing, and there is no sudo here; run as root: apt-get install --no-install-recommends ${missing[*]}"
    by=(sudo)
fi

# Another script of this project may just be installing the same.
take_turn setup.lock "packages are being installed"
find_missing
[ ${#missing[@]} -gt 0 ] || exit 0

log="$build/setup.log"
: >"$log"
as_root() { "${by[@]}" env DEBIAN_FRONTEND=noninteractive "$@" >>"$log" 2>&1; }
apt() { as_root apt-get -q -y -o DPkg::Lock::Timeout=120 "$@"; }
reason() { grep -m1 -E '^[WE]: Failed to fetch' "$log" || grep -m1 '^E: ' "$log" || tail -n1 "$log"; }

say "installing Debian packages (${#missing[@]}), which takes some minutes; log: $log"
say "${missing[*]}"
if [ ${#by[@]} -gt 0 ]; then
    say "by sudo, which may ask for your password"
    sudo -v || fail "sudo gives no rights; run as root: apt-get install --no-install-recommends ${missing[*]}"
fi
# An installation that was cut off is brought to its end first.
as_root dpkg --configure -a || fail "dpkg --configure -a failed: $(reason)"
apt update || fail "apt-get update failed: $(reason); is this machine connected, and are its sources in /etc/apt right?"
apt install --no-install-recommends "${missing[@]}" || fail "apt-get install failed: $(reason); all of its output is in $log"

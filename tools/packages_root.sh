#!/bin/bash
# Installs the packages in a new minimal Debian 12, gets to the picture of a chain there in three commands, and removes the packages. The
# root of that system is a folder below build/, which is removed at the end, also after a failure. Its packages come from the sources of
# this machine's apt. Prints how long each step took. Run as root.
#
#   tools/packages_root.sh [FOLDER]    FOLDER has the packages that tools/packages.sh made; build/packages by default
#
# Exit status: 0 all as it should be, 1 a step failed, 2 a wrong command line, a missing program or no packages.
set -euo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"
project="$root"

fail() { # STATUS TEXT
    echo "packages_root.sh: $2" >&2
    exit "$1"
}

[ $# -le 1 ] && [[ "${1-}" != -* ]] || fail 2 "cannot read '$*' (usage: tools/packages_root.sh [FOLDER])"
[ "$(id -u)" -eq 0 ] || fail 2 "run this as root: it makes the root of another system"
command -v mmdebstrap >/dev/null || fail 2 "there is no mmdebstrap here; tools/setup.sh --ci installs it"
folder="${1-$build/packages}"
for package in zelreshdl zelreshdl-standins zelhost; do
    compgen -G "$folder/${package}_*.deb" >/dev/null || fail 2 "there is no package $package in $folder; tools/packages.sh makes it"
done
mapfile -t sources < <(compgen -G '/etc/apt/sources.list.d/debian*.sources' || ls /etc/apt/sources.list)

# The commands that lead to the picture are those of the page, as they stand there.
page="$project/docs/install.md"
mapfile -t commands < <(sed -n '/^<!-- three commands -->$/,/^<!-- end three commands -->$/s/^    //p' "$page")
[ ${#commands[@]} -eq 3 ] || fail 1 "$page has ${#commands[@]} commands between the marks 'three commands' instead of 3"

mkdir -p "$build"
work="$(mktemp -d "$build/packages_root.XXXXXX")"
root="$work/root"
trap 'rm -rf --one-file-system "$work"' EXIT

# inside COMMAND: a shell in the new system. Its /proc and its processes end with the command, so nothing stays mounted.
inside() {
    unshare --mount --pid --fork --kill-child --mount-proc="$root/proc" \
        chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
        sh -c "cd /root && $1" </dev/null
}

step() { # NAME COMMAND...
    local name="$1" started="${EPOCHREALTIME/[.,]/}"
    shift
    "$@" >"$work/log" 2>&1 || {
        tail -n 20 "$work/log" >&2
        fail 1 "$name failed; its last lines are above"
    }
    awk -v us=$((${EPOCHREALTIME/[.,]/} - started)) -v name="$name" 'BEGIN { printf "%6.1f s  %s\n", us / 1e6, name }'
}

# What there is in the new system: its files, but for the caches, logs and lists of dpkg, apt and the linker; then its packages.
state() {
    (cd "$root" && find . -path ./proc -prune -o -path ./root -prune -o -path ./var/cache -prune -o -path ./var/log -prune -o \
        -path ./var/lib/apt -prune -o -path ./var/lib/dpkg -prune -o -print | sort)
    dpkg-query --root="$root" -W -f '${Package} ${db:Status-Abbrev}\n'
}

step "a minimal system" mmdebstrap --mode=root --variant=apt bookworm "$root" "${sources[@]}"
step "lists of its packages" inside "apt-get update"
cp "$folder"/zelreshdl_*.deb "$folder"/zelreshdl-standins_*.deb "$folder"/zelhost_*.deb "$root/root/"
echo 'APT::Get::Assume-Yes "yes";' >"$root/etc/apt/apt.conf.d/yes"
before="$(state)"
for command in "${commands[@]}"; do
    step "$command" inside "$command"
done
for text in '<svg' 'class="node ' 'class="edge'; do
    grep -q "$text" "$root/root/chain.html" || fail 1 "the page of the chain has no $text"
done

installed="$(dpkg-query --root="$root" -W -f '${Version}' zelhost)"
[ "$(inside "zelhost --version")" = "zelhost $installed" ] || fail 1 "zelhost --version is not dpkg's version, $installed"
for file in man/man1/zelhost.1.gz man/man1/zelhost-run.1.gz bash-completion/completions/zelhost zsh/vendor-completions/_zelhost \
    fish/vendor_completions.d/zelhost.fish; do
    [ -s "$root/usr/share/$file" ] || fail 1 "/usr/share/$file is not there"
done
inside "ldd /usr/lib/zelreshdl/bin/* /usr/lib/zelreshdl/lib/*.so /usr/lib/zelreshdl/reshdl/*/*.so" >"$work/libraries" 2>&1 ||
    fail 1 "ldd cannot read the libraries: $(tail -n 1 "$work/libraries")"
! grep 'not found' "$work/libraries" >&2 || fail 1 "no package brings the libraries above"

# Settings that somebody changed stay until they are purged.
echo '; changed' >>"$root/etc/zelreshdl/zelreshdl.ini"
step "apt remove" inside "apt remove zelhost zelreshdl zelreshdl-standins"
grep -q '^; changed' "$root/etc/zelreshdl/zelreshdl.ini" 2>/dev/null || fail 1 "apt remove took changed settings with it"
step "apt purge" inside "apt purge --autoremove zelhost zelreshdl zelreshdl-standins"
left="$(diff <(echo "$before") <(state) | grep '^[<>]' || true)"
[ -z "$left" ] || fail 1 "a purge leaves (>) or takes (<): $left"
echo "packages of version $installed: installed, used and removed, in $SECONDS s"

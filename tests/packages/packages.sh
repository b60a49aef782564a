#!/bin/bash
# Makes the Debian packages of a release build, without lintian, and looks at them: what each holds against contents.txt, versions, times,
# debug information, and zelhost run from where they unpack.
#
#   packages.sh BUILD             BUILD is the folder of a whole release build
#   packages.sh --update BUILD    writes contents.txt anew, after a change that was meant
set -u
here="$(dirname "$(readlink -f "$0")")"
update=
[ "${1-}" = --update ] && update=1 && shift
build="$(readlink -f "${1:?usage: packages.sh [--update] BUILD}")"
version="$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' "$here/../../CMakeLists.txt")"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
failed=0

fail() {
    echo "packages.sh:${BASH_LINENO[0]}: $1" >&2
    failed=1
}

cpack --config "$build/CPackConfig.cmake" -D CPACK_DEBIAN_COMPRESSION_TYPE=none -B "$work/deb" >"$work/cpack.log" 2>&1 || {
    tail -n 20 "$work/cpack.log" >&2
    exit 1
}
packages=("$work"/deb/*.deb)

# A line for each file, and one for each control field that decides what is installed with a package. Build ids change with each build,
# least versions with the system's libraries, and pages are added without another thought.
contents() {
    local package name field
    for package in "${packages[@]}"; do
        name="$(dpkg-deb -f "$package" Package)"
        for field in Depends Recommends Suggests; do
            dpkg-deb -f "$package" "$field" | sed "/./!d; s/ ([^)]*)//g; s/^/$name: $field: /"
        done
        dpkg-deb --ctrl-tarfile "$package" | tar -xO ./conffiles 2>/dev/null | sed "s/^/$name: settings: /"
        dpkg-deb --fsys-tarfile "$package" | tar -tv |
            sed -E "/^d/d; s|^([^ ]+) ([^ ]+) +[0-9]+ +[^ ]+ [^ ]+ \./|$name: \1 \2 /|
                s|/[0-9a-f]{2}/[0-9a-f]{38}\.|/BUILD_ID.|; s|(/docs/(images/)?)[a-z_]+\.|\1NAME.|"
    done | LC_ALL=C sort -u
}
contents >"$work/contents.txt"
if [ -n "$update" ]; then
    cp "$work/contents.txt" "$here/contents.txt"
elif ! diff -u "$here/contents.txt" "$work/contents.txt" >&2; then
    fail "contents.txt (-) is not what the packages hold (+); tests/packages/packages.sh --update BUILD writes it anew"
fi

# One version everywhere, and one time: that of the version.
root="$work/root"
times="$(for package in "${packages[@]}"; do dpkg-deb --fsys-tarfile "$package" | tar -tv --full-time; done |
    awk '{ print $4, $5 }' | sort -u)"
[ "$(wc -l <<<"$times")" -eq 1 ] || fail "the files have more than one time, so two builds would differ: $(tr '\n' ' ' <<<"$times")"
for package in "${packages[@]}"; do
    [ "$(dpkg-deb -f "$package" Version)" = "$version" ] || fail "${package##*/} has not the version $version of the project"
    dpkg-deb -x "$package" "$root" || fail "${package##*/} does not unpack"
done
[ "$(zcat "$root/usr/share/doc/zelreshdl/changelog.gz" | sed -n '1s/.*(\(.*\)).*/\1/p')" = "$version" ] ||
    fail "the newest version in changelog.gz is not $version"
mapfile -t libraries < <(find "$root/usr/lib/zelreshdl" -name '*.so' | sort)
[ ${#libraries[@]} -eq 11 ] || fail "${#libraries[@]} libraries instead of 11"
for library in "${libraries[@]}"; do
    [ "$(strings "$library" | grep -E '^zelreshdl [0-9]')" = "zelreshdl $version" ] || fail "${library##*/} does not hold 'zelreshdl $version'"
done

# A debugger finds the symbols of each file by its build id alone.
for file in "${libraries[@]}" "$root/usr/lib/zelreshdl/bin/zelhost"; do
    id="$(readelf -n "$file" | sed -n 's/.*Build ID: //p')"
    symbols="$root/usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug"
    readelf -S "$symbols" 2>/dev/null | grep -q '\.debug_info' || fail "no debug information for ${file##*/}"
done

# zelhost finds its agent folder through the link in bin, also when it has to copy it. A few lines of the demo are enough.
head -n 6 "$here/../../scenarios/demo.jsonl" >"$work/input.jsonl"
works() { # ZELHOST
    [ "$("$1" --version)" = "zelhost $version" ] || fail "$1 --version is not that of the packages"
    local setting
    for setting in cache_size=10 ""; do
        "$1" run --input "$work/input.jsonl" ${setting:+--set "zelreshdl:cache:$setting"} --log "$work/log" >"$work/out" 2>"$work/err"
        grep -q '"event":769' "$work/out" || fail "$1 run publishes nothing (with the setting '$setting'): $(cat "$work/err")"
    done
    "$1" status | grep -q 'config.queue_max .* file$' || fail "$1 does not see the settings in etc"
}
works "$root/usr/bin/zelhost"
"$root/usr/bin/zelhost" graph "$root/usr/share/zelhost/scenarios/demo_chain.jsonl" -o "$work/chain.svg"
grep -q 'class="node' "$work/chain.svg" || fail "no picture from the scenarios"
for page in "$root"/usr/share/man/man1/*; do
    zcat "$page" | grep -q '^\.TH ' || fail "${page##*/} is no manual page"
done

# The same without packages, below a prefix that a user chose.
cmake --install "$build" --prefix "$work/prefix" >"$work/log" 2>&1 || fail "cmake --install fails: $(tail -n 1 "$work/log")"
works "$work/prefix/bin/zelhost"
[ -f "$work/prefix/etc/zelreshdl/zelreshdl.ini" ] || fail "cmake --install: the settings are not below the prefix"
exit $failed

#!/bin/bash
# Looks at the files of a built agent folder for what makes them hard to attack, and for their debug information. One row for
# each property; prints one line for each file that lacks one.
#   built_file.sh AGENT_DIR
#
# Left out, because a file does not show it: the level of the checked calls (the build asks compiler and C library), and
# whether code without debug information was compiled with the protections (the generated messages; their flags are the same).
set -uo pipefail
agent=${1:?usage: built_file.sh AGENT_DIR}
project=$(cd "$(dirname "$(readlink -f "$0")")/../.." && pwd)
cd "$agent" || exit 2
mapfile -t files < <(find bin lib reshdl -name '*.so' -o -name zelhost | sort)
[ ${#files[@]} -ge 12 ] || {
    echo "built_file.sh: only ${#files[@]} libraries and programs in $agent; tools/build.sh release agent makes all of them" >&2
    exit 1
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
machine=$(LC_ALL=C readelf -h bin/zelhost | sed -n 's/^ *Machine: *//p')

# FILES | VIEW | has, lacks or everywhere | PATTERN | what is wrong. FILES is all, library, program or a file name. A view is what the
# functions below print; "+" before a row means: on x86-64 only.
rows=(
    "all     | segments | has   | GNU_RELRO                      | no segment becomes read-only after relocation (-z relro)"
    "all     | dynamic  | has   | \(FLAGS_1\).* NOW              | functions are bound late, so their table stays writable (-z now)"
    "all     | segments | has   | GNU_STACK.* RW +0x             | the stack may be executable (-z noexecstack)"
    "all     | segments | lacks | LOAD.* RWE                     | a segment is writable and executable"
    "all     | dynamic  | lacks | TEXTREL                        | code is relocated (-z text, -fPIC)"
    "all     | dynamic  | lacks | \(RPATH\)                      | libraries are looked for in RPATH, before LD_LIBRARY_PATH"
    "program | dynamic  | has   | \(FLAGS_1\).* PIE              | the program has a fixed address (-pie)"
    "+all    | notes    | has   | feature:.*SHSTK                | no mark for the shadow stack (-z shstk)"
    # A program begins in the C library's start code, which has no endbr64.
    "+library | notes   | has   | feature:.*IBT                  | no mark for checked jumps (-z ibt)"
    # The C library's functions of these names have none either, so the mark is true only without them.
    "+library | dynamic | lacks | \((INIT|FINI)\)                | the loader calls a function that does not begin with endbr64 (-init, -fini)"
    "all     | units    | has   | .                              | no debug information in the .debug file (-g1)"
    "all     | units    | everywhere | -fstack-protector-strong | a source is compiled without guards of the stack"
    "all     | units    | everywhere | -fstack-clash-protection | a source is compiled without probes of large stack frames"
    "+all    | units    | everywhere | -fcf-protection=full     | a source is compiled without marks for jumps and returns"
    "all     | units    | everywhere | -ffunction-sections -fdata-sections | a source is compiled without sections of their own"
    # The small stand-ins have no buffers on the stack, and call nothing that has a checked form.
    "libzelreshdl.so | imports | has | __stack_chk_fail@         | no function guards its stack (-fstack-protector-strong)"
    "libzelreshdl.so | imports | has | __[a-z]+_chk@             | no checked call of the C library (_FORTIFY_SOURCE)"
    "liblumutil.so   | imports | has | __[a-z]+_chk@             | no checked call of the C library (_FORTIFY_SOURCE)"
    "libzelcheck.so  | imports | has | __[a-z]+_chk@             | no checked call of the C library (_FORTIFY_SOURCE)"
    "zelhost         | imports | has | __[a-z]+_chk@             | no checked call of the C library (_FORTIFY_SOURCE)"
    # A generated function that nothing calls.
    "libzelreshdl.so | symbols | lacks | DETECT_RULE_TYPE_IsValid | code that nothing calls is still there (--gc-sections)"
    "libzelreshdl.so | symbols | has   | CReshdlWork              | the .debug file has no symbols"
    "all     | notes    | has   | Build ID: [0-9a-f]{40}$        | no build id (--build-id=sha1)"
    "all     | pair     | has   | same build id                  | the .debug file beside it is missing or of another build"
    "all     | sections | has   | \.gnu_debuglink                | no name of a .debug file"
    "all     | sections | lacks | \.(debug_[a-z]+|symtab)        | debug information or local symbols are in the file itself"
    "all     | paths    | lacks | .                              | the project's path is in the file or its .debug file (-ffile-prefix-map)"
)

segments() { readelf -lW "$1"; }
dynamic() { readelf -dW "$1"; }
notes() { readelf -nW "$1"; }
sections() { readelf -SW "$1"; }
imports() { readelf -W --dyn-syms "$1" | grep ' UND '; }
symbols() { readelf -W --symbols "$1.debug"; }
units() { readelf --debug-dump=info --dwarf-depth=1 "$1.debug" | grep DW_AT_producer; }
build_id() { readelf -n "$1" | grep 'Build ID'; }
pair() { [ -n "$(build_id "$1")" ] && [ "$(build_id "$1")" = "$(build_id "$1.debug")" ] && echo "same build id"; }
paths() { grep -lF "$project" "$1" "$1.debug"; }

# Whether a row holds for a file: "everywhere" means that each line has the text.
holds() { # VIEW MODE PATTERN FILE
    local view="$work/${4//\//_}.$1"
    [ -f "$view" ] || LC_ALL=C "$1" "$4" >"$view" 2>/dev/null
    case "$2" in
        has) grep -qE -- "$3" "$view" ;;
        lacks) ! grep -qE -- "$3" "$view" ;;
        everywhere) ! grep -qvF -- "$3" "$view" ;;
    esac
}

concerns() { # FILES FILE
    case "$1" in
        all) true ;;
        library) [[ "$2" == *.so ]] ;;
        program) [[ "$2" != *.so ]] ;;
        *) [ "$(basename "$2")" = "$1" ] ;;
    esac
}

failed=0
for row in "${rows[@]}"; do
    if [[ "$row" == +* ]]; then
        [[ "$machine" == *X86-64* ]] || continue
        row=${row#+}
    fi
    [[ "$row" =~ ^([^ ]+)\ *\|\ ([^ ]+)\ *\|\ ([^ ]+)\ *\|\ (.*[^ ])\ +\|\ (.*)$ ]] || {
        echo "built_file.sh: cannot read the row '$row'" >&2
        exit 2
    }
    whose=${BASH_REMATCH[1]} view=${BASH_REMATCH[2]} mode=${BASH_REMATCH[3]} pattern=${BASH_REMATCH[4]} wrong=${BASH_REMATCH[5]}
    looked=0
    for file in "${files[@]}"; do
        concerns "$whose" "$file" || continue
        looked=1
        holds "$view" "$mode" "$pattern" "$file" || {
            echo "built_file.sh: $file: $wrong" >&2
            failed=1
        }
    done
    [ $looked -eq 1 ] || { echo "built_file.sh: no file for the row '$row'" >&2; failed=1; }
done
exit $failed

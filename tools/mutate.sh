#!/bin/bash
# Measures what the tests are worth: plants the faults of tools/mutations/*.txt one at a time in a copy of the sources, builds,
# runs the tests, and prints the faults that no test noticed. A test that fails, crashes or hangs has found the fault. The copies
# are in build/mutate/; the working tree is not touched. Fails when fewer than 95 in 100 are found, or a row of the list is
# not in order.
#
#   tools/mutate.sh [asan|tsan] [--list] [--jobs N] [TEXT...]
#
#   asan, tsan   plants the faults that only this sanitizer can find, which the plain run leaves out
#   --list       prints the faults and checks their rows, plants nothing
#   --jobs N     that many copies at a time; 2 by default
#   TEXT         only faults whose file or description contains one of these texts
#
# A fault in the list:
#
#   file src/decode/json_fields.cpp
#   fault 2^63 as a signed number is converted [asan]
#   - number < kTwoTo63) return static_cast<int64_t>
#   + number <= kTwoTo63) return static_cast<int64_t>
#
# The text behind "- " must occur exactly once in the file; several such lines are one text. [asan] or [tsan] at the end of
# the description marks a fault that only the sanitizer finds. Lines that start with # are comments.
set -uo pipefail
source "$(dirname "$(readlink -f "$0")")/common.sh"
cd "$root"

usage() {
    echo "mutate.sh: $1 (usage: tools/mutate.sh [asan|tsan] [--list] [--jobs N] [TEXT...])" >&2
    exit 2
}
sanitizer=""
list_only=0
jobs=2
filters=()
while [ $# -gt 0 ]; do
    case "$1" in
        asan | tsan) sanitizer="$1" ;;
        --list) list_only=1 ;;
        --jobs)
            shift
            [[ "${1-}" =~ ^[1-9]$ ]] || usage "--jobs takes a number from 1 to 9"
            jobs="$1"
            ;;
        -*) usage "unknown option '$1'" ;;
        *) filters+=("$1") ;;
    esac
    shift
done

# --- the list -----------------------------------------------------------------------------------------------------------

files=()
faults=()
olds=()
news=()
marks=()
list_errors=0
list_error() {
    echo "mutate.sh: $1" >&2
    list_errors=$((list_errors + 1))
}

occurrences() { # TEXT IN
    local without="${2//"$1"/}"
    echo $(((${#2} - ${#without}) / ${#1}))
}

wanted() { # FILE DESCRIPTION
    local text
    [ ${#filters[@]} -gt 0 ] || return 0
    for text in "${filters[@]}"; do [[ "$1 $2" != *"$text"* ]] || return 0; done
    return 1
}

content_file=""
content=""
add_fault() { # FILE DESCRIPTION OLD NEW PLACE
    local file="$1" fault="$2" old="$3" place="$5" mark="" count
    if [[ "$fault" =~ ^(.*)\ \[(asan|tsan)\]$ ]]; then
        fault="${BASH_REMATCH[1]}"
        mark="${BASH_REMATCH[2]}"
    fi
    wanted "$file" "$fault" || return 0
    if [ "$file" != "$content_file" ]; then
        content_file="$file"
        content="$(cat "$file" 2>/dev/null)"
    fi
    if [ -z "$old" ]; then
        list_error "$place: a fault without a text to replace: $fault"
        return 0
    fi
    count="$(occurrences "$old" "$content")"
    if [ "$count" -ne 1 ]; then
        list_error "$place: stale row: the text occurs $count times in $file: $fault"
        return 0
    fi
    files+=("$file")
    faults+=("$fault")
    olds+=("$old")
    news+=("$4")
    marks+=("$mark")
}

read_list() { # LIST
    local line file="" fault="" old="" new="" number=0 started=0 has_old=0 has_new=0
    finish() {
        [ "$started" -eq 0 ] || add_fault "$file" "$fault" "$old" "$new" "$1:$started"
        started=0
        old=""
        new=""
        has_old=0
        has_new=0
    }
    while IFS= read -r line || [ -n "$line" ]; do
        number=$((number + 1))
        case "$line" in
            "" | "#"*) ;;
            "file "*)
                finish "$1"
                file="${line#file }"
                ;;
            "fault "*)
                finish "$1"
                fault="${line#fault }"
                started=$number
                ;;
            "- "*)
                [ "$has_old" -eq 0 ] || old+=$'\n'
                old+="${line#- }"
                has_old=1
                ;;
            "+" | "+ "*)
                line="${line#+}"
                [ "$has_new" -eq 0 ] || new+=$'\n'
                new+="${line# }"
                has_new=1
                ;;
            *) list_error "$1:$number: neither file, fault, - nor +: $line" ;;
        esac
    done <"$1"
    finish "$1"
}
for list in tools/mutations/*.txt; do read_list "$list"; done

if [ "$list_only" -eq 1 ]; then
    for i in "${!faults[@]}"; do
        printf '%s: %s%s\n' "${files[i]}" "${faults[i]}" "${marks[i]:+ [${marks[i]}]}"
    done
    echo "${#faults[@]} faults, $list_errors rows not in order"
    exit $((list_errors > 0))
fi

# --- the copies ---------------------------------------------------------------------------------------------------------

work="$build/mutate"
preset="${sanitizer:-debug}"
mkdir -p "$work"
results="$work/results.$$"
claims="$work/claims.$$"
: >"$results"
mkdir -p "$claims"
trap 'rm -rf "$claims" "$results"' EXIT

# Speed is what counts: no debug information, and no warnings, since a fault may well leave a variable unused.
plain_flags=()
[ -n "$sanitizer" ] || plain_flags=(-DCMAKE_CXX_FLAGS_DEBUG=-O0)

# A file that did not change keeps its time, so that a copy of an earlier run is built in seconds.
prepare_copy() { # COPY
    local copy="$1" file
    mkdir -p "$copy"
    git ls-files -co --exclude-standard | while IFS= read -r file; do
        [ -f "$file" ] || continue
        if ! cmp -s "$file" "$copy/$file"; then
            mkdir -p "$copy/$(dirname "$file")"
            cp "$file" "$copy/$file"
        fi
    done
    (cd "$copy" && cmake --preset "$preset" -DCMAKE_CXX_FLAGS=-w "${plain_flags[@]}" && ninja -C "build/$preset" -j "$jobs" "${targets[@]}") \
        >"$copy.log" 2>&1 && run_tests "$copy" everything >>"$copy.log" 2>&1
}

# The tests that a change in src/ can fail, and what they need; the rest of ctest is about other things.
other_tests='^(headers|floors|reference|standin|zeltrc)$'
targets=(agent tests/all fuzz/all)

run_ctest() { # COPY SELECTION...
    local copy="$1"
    shift
    timeout -k 5 120 ctest --test-dir "$copy/build/$preset" -j 2 --stop-on-failure --timeout 60 --output-on-failure "$@"
}

# True when all pass. The tests of the floor come first; most faults end there.
run_tests() { # COPY FLOOR
    local copy="$1" floor="$2" build="$1/build/$preset"
    if [ -x "$build/tests/${floor}_tests" ]; then
        ninja -C "$build" -j 1 "${floor}_tests" && timeout -k 5 60 "$build/tests/${floor}_tests" --gtest_brief=1 --gtest_fail_fast || return 1
    fi
    run_ctest "$copy" -R '^e2e\.' && ninja -C "$build" -j 1 "${targets[@]}" && run_ctest "$copy" -E "^e2e\\.|$other_tests"
}

# --- one fault ----------------------------------------------------------------------------------------------------------

plant() { # COPY INDEX
    local copy="$1" i="$2" text floor outcome started=$SECONDS
    local target="$copy/${files[i]}" log="$copy.log"
    text="$(cat "$target"; echo .)"
    text="${text%.}"
    printf '%s' "${text/"${olds[i]}"/"${news[i]}"}" >"$target"
    floor="$(cut -d/ -f2 <<<"${files[i]}")"
    {
        echo "=== ${files[i]}: ${faults[i]}"
        if ! ninja -C "$copy/build/$preset" -j 1 zelreshdl; then
            outcome="does not compile"
        elif run_tests "$copy" "$floor"; then
            outcome="got through"
        else
            outcome=found
        fi
    } >"$log" 2>&1
    [ "$outcome" = found ] || cp "$log" "$work/$((i + 1)).log"
    printf '%s' "$text" >"$target"  # not from the working tree, where work may go on
    printf '%s\t%d\t%d\t%s: %s\n' "$outcome" $((SECONDS - started)) "$i" "${files[i]}" "${faults[i]}" >>"$results"
    printf '%-17s%4d s  %s: %s\n' "$outcome" $((SECONDS - started)) "${files[i]}" "${faults[i]}" >&3
}

worker() { # NUMBER
    local copy="$work/$1" i
    for i in "${!faults[@]}"; do
        [ "${marks[i]}" = "$sanitizer" ] || continue
        mkdir "$claims/$i" 2>/dev/null || continue
        plant "$copy" "$i"
    done
}

export CCACHE_BASEDIR="$root" CCACHE_NOHASHDIR=1
export ASAN_OPTIONS="detect_stack_use_after_return=1:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
rm -f "$work"/*.log

started=$SECONDS
for ((n = 1; n <= jobs; n++)); do
    prepare_copy "$work/$n" || {
        tail -n 30 "$work/$n.log" >&2
        echo "mutate.sh: without a fault the build or a test fails, see $work/$n.log" >&2
        exit 1
    }
done
echo "mutate.sh: ${#faults[@]} faults in the list; the copies are ready after $((SECONDS - started)) s" >&2

exec 3>"$work/progress.txt"
trap 'kill $(jobs -p) 2>/dev/null; exit 130' INT TERM
for ((n = 1; n <= jobs; n++)); do worker "$n" & done
wait
exec 3>&-

# --- what came of it ----------------------------------------------------------------------------------------------------

of() { grep -c "^$1"$'\t' "$results"; }
found="$(of found)"
through="$(of "got through")"
broken="$(of "does not compile")"
skipped=0
for mark in "${marks[@]}"; do [ "$mark" = "$sanitizer" ] || skipped=$((skipped + 1)); done

sort -t$'\t' -k3n "$results" | awk -F'\t' -v work="$work" '
    $1 == "got through" { print "got through: " $4 }
    $1 == "does not compile" { print "does not compile: " $4 " (" work "/" $3 + 1 ".log)" }'
[ "$skipped" -eq 0 ] || echo "$skipped faults left out: they are for tools/mutate.sh $([ -n "$sanitizer" ] && echo "without $sanitizer" || echo "asan or tsan")"
planted=$((found + through))
lost=$((${#faults[@]} - skipped - planted - broken))
share=$((planted > 0 ? 100 * found / planted : 0))
echo "$found of $planted planted faults found ($share %) in $(((SECONDS - started) / 60)) min"
if [ "$list_errors" -gt 0 ] || [ "$broken" -gt 0 ]; then
    echo "mutate.sh: $((list_errors + broken)) row(s) of the list are not in order" >&2
    exit 1
fi
if [ "$lost" -gt 0 ]; then
    echo "mutate.sh: $lost fault(s) were not planted, see $work/progress.txt" >&2
    exit 1
fi
[ "$planted" -gt 0 ] || usage "no fault matches"
exit $((share < 95))

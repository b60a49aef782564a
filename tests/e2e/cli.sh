#!/bin/bash
# The command line of zelhost: wrong ones and what is said of them, help and its examples, completions, and that what is made
# from the parser agrees with it.
#   cli.sh PROGRAM
host=$(readlink -f "$1")
root=$(readlink -f "$(dirname "$0")/../..")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PATH="$(dirname "$host"):$PATH" agentid=A-1
failed=0

fail() {
    echo "cli.sh:${BASH_LINENO[-2]}: $1" >&2
    sed 's/^/  /' "$work/err" >&2
    failed=1
}

# wrong TEXT ARGUMENTS...: exit status 2, and this one line on standard error alone.
wrong() {
    local text=$1
    shift
    "$host" "$@" </dev/null >"$work/out" 2>"$work/err"
    local got=$?
    [ $got -eq 2 ] || fail "exit status $got instead of 2"
    [ -s "$work/out" ] && fail "something on standard output"
    [ "$(cat "$work/err")" = "zelhost: $text" ] || fail "not 'zelhost: $text'"
}

wrong 'unknown command "ru"; did you mean run?' ru
wrong 'unknown command "rnu"; did you mean run?' rnu --input x
wrong 'unknown command "help"; did you mean --help?' help
wrong 'unknown command "frobnicate"; zelhost --help lists what there is' frobnicate
wrong 'unknown option "--verison"; did you mean --version?' --verison
wrong 'a command is missing; zelhost --help lists what there is' --
wrong 'run: unknown option "--inptu"; did you mean --input?' run --inptu=x
wrong 'run: unknown option "--log-l"; did you mean --log-level?' run --log-l debug
wrong 'run: unknown option "-x"; zelhost run --help lists what there is' run -x
wrong 'run: unexpected argument "check"; zelhost run --help lists what there is' run check
wrong 'run: --input needs a value; zelhost run --help lists what there is' run --input
wrong 'run: --input may be given once only; zelhost run --help lists what there is' run --input a --input b
wrong 'run: --max-wait: "abc" is not a number in its range; zelhost run --help lists what there is' run --max-wait abc
wrong 'run: --max-wait: "-1" is not a number in its range; zelhost run --help lists what there is' run --max-wait=-1
wrong 'run: --log-level: "loud" is none of error, warn, info, debug; zelhost run --help lists what there is' run --log-level loud
wrong 'run: --log-level: "wran" is none of error, warn, info, debug; did you mean warn?' run --log-level wran
wrong 'run: --sink-ca requires --sink; zelhost run --help lists what there is' run --sink-ca x
wrong 'run: --sink-cert requires --sink-key; zelhost run --help lists what there is' run --sink nats://a/b --sink-cert x
wrong 'run: --sink-buffer-mb: Value 0 not in range 1 to 1000000; zelhost run --help lists what there is' run --sink-buffer-mb 0
form='it is nats://HOST:PORT/SUBJECT, or tls://; zelhost'
wrong "run: --sink: http://a/b is no address of a message server: it begins with neither nats:// nor tls://; $form run --help lists what there is" \
    run --sink http://a/b
words='the subject must be printable words with dots between them'
wrong "watch: ADDRESS: nats://a/b.* is no address of a message server: $words; $form watch --help lists what there is" watch 'nats://a/b.*'
wrong 'watch: ADDRESS is missing; zelhost watch --help lists what there is' watch
wrong 'completion: SHELL is missing; zelhost completion --help lists what there is' completion
wrong 'completion: SHELL: "fihs" is none of bash, zsh, fish; did you mean fish?' completion fihs

# Without a command the help is advice.
"$host" >"$work/out" 2>"$work/err"
[ $? -eq 2 ] && [ ! -s "$work/out" ] && grep -q '^Commands:' "$work/err" || fail "no help without a command"
"$host" --version >"$work/out" 2>"$work/err"
version=$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' "$root/CMakeLists.txt")
[ "$(cat "$work/out")" = "zelhost $version" ] || fail "--version is not that of the project"

# A result that cannot be written is a failure; one that nobody reads is not.
"$host" --help >/dev/full 2>"$work/err"
[ $? -eq 1 ] && grep -q '^zelhost: cannot write standard output' "$work/err" || fail "a full disk goes unnoticed"
exec 3> >(true)
wait $!
"$host" man >&3 2>"$work/err"
[ $? -eq 0 ] && [ ! -s "$work/err" ] || fail "a closed pipe does not end quietly"
exec 3>&-

# Colours on a terminal, unless they are not wanted.
escape=$'\033'
for wanted in 1 0; do
    NO_COLOR=$([ $wanted -eq 1 ] || echo 1) TERM=xterm script -qec "zelhost --help" /dev/null >"$work/out" 2>"$work/err" </dev/null
    [ "$(grep -c "${escape}\[1mUsage" "$work/out")" -eq $wanted ] || fail "colours of help on a terminal: not $wanted"
done

# Each example works as it stands, in a folder that looks like the project's: status 0, or 1 with an answer. That of watch needs
# a server, which is not there.
mkdir "$work/project"
ln -s "$root"/* "$work/project/"
mapfile -t commands < <("$host" man --format markdown | sed -n 's/^| \[`\([a-z]*\)`\].*/\1/p')
[ ${#commands[@]} -ge 3 ] || fail "fewer commands than there are"
for command in "${commands[@]}"; do
    "$host" "$command" --help >"$work/help" 2>"$work/err" || fail "$command --help fails"
    example=$(sed -n '1s/^Example: //p' "$work/help")
    [[ $example == *"zelhost $command"* ]] || fail "the help of $command does not begin with an example of it"
    [ "$(grep -c '^Example' "$work/help")" -eq 1 ] || fail "the help of $command has examples beside that of its row"
    (cd "$work/project" && bash -c "$example") >"$work/out" 2>"$work/err" </dev/null
    got=$?
    [ $got -eq 0 ] || [ $got -eq 1 -a -s "$work/out" ] ||
        { [ "$command" = watch ] && grep -qE 'no server answers$|no stream takes' "$work/err"; } || fail "exit status $got of $example"
done

# completes LINE WORDS: what bash offers at the end of the line, sorted. Bash hands over "=" as a word of its own.
source <("$host" completion bash)
completes() {
    local spaced=${1//=/ = }
    read -ra COMP_WORDS <<<"$spaced"
    [[ $1 == *' ' ]] && COMP_WORDS+=('')
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    (cd "$root" && _zelhost && printf '%s\n' "${COMPREPLY[@]}" | sort | paste -sd ' ') >"$work/out" 2>"$work/err"
    [ "$(cat "$work/out")" = "$2" ] || fail "'$1' completes to '$(cat "$work/out")', not to '$2'"
}

completes 'zelhost ru' 'run'
completes 'zelhost --ver' '--version'
completes 'zelhost run --in' '--input'
completes 'zelhost run --log-level ' 'debug error info warn'
completes 'zelhost run --log-level=' 'debug error info warn'
completes 'zelhost run --log-level=wa' 'warn'
completes 'zelhost run --input=scenarios/demo.json' 'scenarios/demo.jsonl'
completes 'zelhost run --root scen' 'scenarios'
completes 'zelhost run --root README' ''
completes 'zelhost run --idle-ms ' ''
completes 'zelhost run --log-level info --log-l' '--log-level'
completes 'zelhost man ru' 'run'
completes 'zelhost completion ' 'bash fish zsh'
completes 'zelhost completion --he' '--help'
cur=769,77
_zelhost_list '769 770 771' ,
[ "${COMPREPLY[*]}" = '769,770 769,771' ] || fail "a word in a list completes to '${COMPREPLY[*]}'"
for shell in zsh fish; do
    "$host" completion $shell >"$work/script"
    ! command -v $shell >"$work/err" || $shell -n "$work/script" 2>"$work/err" || fail "$shell refuses its completions"
done

# What is committed agrees with the parser; a file that does not, and marks that are missing, are noticed.
"$root/tools/update_docs" --check "$host" >"$work/err" 2>&1 || fail "what is made from the options is not up to date"
mkdir -p "$work/copy/tools"
cp "$root/tools/update_docs" "$root/tools/common.sh" "$work/copy/tools/"
cp -r "$root/README.md" "$root/docs" "$root/completions" "$work/copy/"
echo stale >>"$work/copy/docs/man/zelhost-run.1"
"$work/copy/tools/update_docs" --check "$host" >"$work/err" 2>&1
[ $? -eq 1 ] && grep -q '^-stale' "$work/err" || fail "a stale page goes unnoticed"
sed -i '/<!-- end options run -->/d' "$work/copy/docs/zelhost.md"
"$work/copy/tools/update_docs" --check "$host" >"$work/err" 2>&1
[ $? -eq 1 ] && grep -q "'<!-- end options run -->'" "$work/err" || fail "a missing mark goes unnoticed"
cp "$root/docs/man/zelhost-run.1" "$work/copy/docs/man/"
{ cat "$root/docs/zelhost.md" && echo '<!-- section dance -->'; } >"$work/copy/docs/zelhost.md"
"$work/copy/tools/update_docs" --check "$host" >"$work/err" 2>&1
[ $? -eq 1 ] && grep -q "section 'dance'" "$work/err" || fail "a section of no command goes unnoticed"

# roff finds nothing to warn of.
if command -v groff >"$work/err"; then
    groff -man -ww -z "$root"/docs/man/*.1 >"$work/err" 2>&1
    [ -s "$work/err" ] && fail "groff warns of a manual page"
fi
exit $failed

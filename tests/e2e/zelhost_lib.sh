# What the scripts that run zelhost share: sourced with PROGRAM DEMO_SCENARIO as arguments.
host=$1
demo=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

fail() {
    echo "$(basename "$0"):${BASH_LINENO[1]}: $1" >&2
    sed 's/^/  /' "$work/err" >&2
    failed=1
}

# expect CODE TEXT ARGUMENTS...: the exit code, and a text on standard error.
expect() {
    local code=$1 text=$2
    shift 2
    "$host" "$@" >"$work/out" 2>"$work/err"
    local got=$?
    [ $got -eq "$code" ] || fail "exit code $got instead of $code"
    [ -z "$text" ] || grep -qF -- "$text" "$work/err" || fail "no '$text' on standard error"
}

# printed COUNT TEXT: that many output lines hold it.
printed() {
    local got
    got=$(grep -cF -- "$2" "$work/out")
    [ "$got" -eq "$1" ] || fail "$got lines with $2 instead of $1"
}

# Completions of zelhost for bash. Made from the parser's own options by tools/update_docs.

# Offers those of the words $1 that begin as the word under the cursor does.
_zelhost_words() { mapfile -t COMPREPLY < <(compgen -W "$1" -- "$cur"); }

# The same for the last of several words with $2 between them.
_zelhost_list() {
    local before=
    [[ $cur == *"$2"* ]] && before=${cur%"$2"*}$2
    mapfile -t COMPREPLY < <(compgen -P "$before" -W "$1" -- "${cur#"$before"}")
}

# Offers files, or with -d folders; readline adds what it adds to file names.
_zelhost_paths() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen "$1" -- "$cur")
}

_zelhost() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command= i
    COMPREPLY=()
    # An option and its value with "=" between them come as three words.
    if [[ $cur == = ]]; then
        cur=
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD; i++)); do
        [[ ${COMP_WORDS[i]} == -* ]] && continue
        command=${COMP_WORDS[i]}
        break
    done
    case "$command $prev" in
        'run --root') _zelhost_paths -d; return ;;
        'run --input') _zelhost_paths -f; return ;;
        'run --output') _zelhost_paths -f; return ;;
        'run --log') _zelhost_paths -f; return ;;
        'run --log-level') _zelhost_words 'error warn info debug'; return ;;
        'run --idle-ms') return ;;
        'run --max-wait') return ;;
        'run --events') _zelhost_list '769 770 771 2305' ','; return ;;
        'run --level') _zelhost_words 'verbose low mid high critical'; return ;;
        'run --limit') return ;;
        'run --color') _zelhost_words 'auto always never'; return ;;
        'run --metrics') _zelhost_paths -f; return ;;
        'run --record') _zelhost_paths -f; return ;;
        'run --summary') _zelhost_words 'text json none'; return ;;
        'run --set') return ;;
        'run --not-ready') return ;;
        'run --trace-cost') return ;;
        'run --queue-max') return ;;
        'run --trc-times') return ;;
        'replay --speed') return ;;
        'replay --root') _zelhost_paths -d; return ;;
        'replay --output') _zelhost_paths -f; return ;;
        'replay --log') _zelhost_paths -f; return ;;
        'check --format') _zelhost_words 'text json sarif'; return ;;
        'check --log-level') _zelhost_words 'error warn info debug'; return ;;
        'check --color') _zelhost_words 'auto always never'; return ;;
        'decode --hex') return ;;
        'decode --base64') return ;;
        'decode --color') _zelhost_words 'auto always never'; return ;;
        'graph -o' | 'graph --output') _zelhost_paths -f; return ;;
        'graph --guid') return ;;
        'explain --color') _zelhost_words 'auto always never'; return ;;
        'schema -o' | 'schema --output') _zelhost_paths -f; return ;;
        'status --root') _zelhost_paths -d; return ;;
        'status --color') _zelhost_words 'auto always never'; return ;;
        'man --format') _zelhost_words 'roff markdown'; return ;;
    esac
    case $command in
        '') _zelhost_words 'run replay check decode graph explain schema status man completion --version -h --help' ;;
        run) _zelhost_words '--root --input --output --log --log-level --idle-ms --max-wait --follow --events --level --limit --pretty --color --metrics --record --summary --set --not-ready --trace-cost --queue-max --trc-times -h --help' ;;
        replay) if [[ $cur == -* ]]; then _zelhost_words '--compare --speed --root --output --log -h --help'; else _zelhost_paths -f; fi ;;
        check) if [[ $cur == -* ]]; then _zelhost_words '--strict --quiet --format --log-level --color -h --help'; else _zelhost_paths -f; fi ;;
        decode) if [[ $cur == -* ]]; then _zelhost_words '--hex --base64 --pretty --all --sizes --color -h --help'; else _zelhost_paths -f; fi ;;
        graph) if [[ $cur == -* ]]; then _zelhost_words '-o --output --guid -h --help'; else _zelhost_paths -f; fi ;;
        explain) _zelhost_words '--all --json --color -h --help' ;;
        schema) if [[ $cur == -* ]]; then _zelhost_words '-o --output -h --help'; else _zelhost_words 'document input output'; fi ;;
        status) _zelhost_words '--root --json --color -h --help' ;;
        man) if [[ $cur == -* ]]; then _zelhost_words '--format -h --help'; else _zelhost_words 'run replay check decode graph explain schema status man completion'; fi ;;
        completion) if [[ $cur == -* ]]; then _zelhost_words '-h --help'; else _zelhost_words 'bash zsh fish'; fi ;;
    esac
}

complete -F _zelhost zelhost

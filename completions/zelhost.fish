# Completions of zelhost for fish. Made from the parser's own options by tools/update_docs.

# True when the first word that is no option is the given one; an empty one stands for no command yet.
function __zelhost_in
    set -l command
    for word in (commandline -opc)[2..-1]
        if not string match -q -- '-*' $word
            set command $word
            break
        end
    end
    test "$command" = "$argv[1]"
end

complete -c zelhost -f
complete -c zelhost -n "__zelhost_in ''" -a run -d 'Play a script of events to the plug-in of an agent folder'
complete -c zelhost -n "__zelhost_in ''" -a man -d 'Print a manual page, of zelhost or of a command'
complete -c zelhost -n "__zelhost_in ''" -a completion -d 'Print what a shell reads to complete commands and options'
complete -c zelhost -n "__zelhost_in ''" -l version -d 'Print the version and exit'
complete -c zelhost -n "__zelhost_in ''" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in run" -l root -r -f -a '(__fish_complete_directories)' -d 'Agent folder; the one that zelhost stands in if not given'
complete -c zelhost -n "__zelhost_in run" -l input -r -F -d 'Script to play, - for standard input (default)'
complete -c zelhost -n "__zelhost_in run" -l output -r -F -d 'Where the JSON lines go, - for standard output (default)'
complete -c zelhost -n "__zelhost_in run" -l log -r -F -d 'The plug-in\'s log; standard error if not given'
complete -c zelhost -n "__zelhost_in run" -l log-level -r -f -a 'error warn info debug' -d 'Default: debug with --log, else warn'
complete -c zelhost -n "__zelhost_in run" -l idle-ms -r -d 'Quiet time after which the pipeline counts as idle (300)'
complete -c zelhost -n "__zelhost_in run" -l max-wait -r -d 'Longest wait for open traces, in seconds (180)'
complete -c zelhost -n "__zelhost_in run" -l set -r -d 'One value of an ini file, in a temporary copy of the agent folder; FILE is zelreshdl, zeltrc or zel_pure_mode. May be repeated'
complete -c zelhost -n "__zelhost_in run" -l not-ready -r -d 'How often the trace module puts an alert off: zeltrc:standin:not_ready_times'
complete -c zelhost -n "__zelhost_in run" -l trace-cost -r -d 'How long a trace takes, in ms: zeltrc:standin:cost_ms'
complete -c zelhost -n "__zelhost_in run" -l queue-max -r -d 'Limit of each queue, 50 to 500: zelreshdl:config:queue_max'
complete -c zelhost -n "__zelhost_in run" -l trc-times -r -d 'Most tries of a trace, 0 to 16, 0 for no traces: zelreshdl:config:trc_times'
complete -c zelhost -n "__zelhost_in run" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in man" -f -a 'run man completion'
complete -c zelhost -n "__zelhost_in man" -l format -r -f -a 'roff markdown' -d 'roff for man (default), or markdown for the tables of options and exit statuses'
complete -c zelhost -n "__zelhost_in man" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in completion" -f -a 'bash zsh fish'
complete -c zelhost -n "__zelhost_in completion" -s h -l help -d 'Print this help message and exit'

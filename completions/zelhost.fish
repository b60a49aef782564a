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
complete -c zelhost -n "__zelhost_in ''" -a replay -d 'Play a record of a run again, and compare what comes out'
complete -c zelhost -n "__zelhost_in ''" -a check -d 'Tell whether alert documents come through, and where one is wrong'
complete -c zelhost -n "__zelhost_in ''" -a decode -d 'Show what serialised messages hold'
complete -c zelhost -n "__zelhost_in ''" -a graph -d 'Draw the behaviour chain of a finished trace'
complete -c zelhost -n "__zelhost_in ''" -a explain -d 'Tell what happened to an alert, by a log or a record'
complete -c zelhost -n "__zelhost_in ''" -a schema -d 'Print a JSON Schema of the alert document or of the lines that run reads and writes'
complete -c zelhost -n "__zelhost_in ''" -a status -d 'Show what a start of the plug-in in an agent folder would do'
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
complete -c zelhost -n "__zelhost_in run" -l follow -d 'Wait for more at the end of the input'
complete -c zelhost -n "__zelhost_in run" -l events -r -f -a '769 770 771 2305' -d 'Show these outgoing events alone'
complete -c zelhost -n "__zelhost_in run" -l level -r -f -a 'verbose low mid high critical' -d 'Show alerts of this severity and above alone'
complete -c zelhost -n "__zelhost_in run" -l limit -r -d 'End after so many shown lines'
complete -c zelhost -n "__zelhost_in run" -l pretty -d 'Lines for people instead of JSON, and on a terminal a line that tells how it goes'
complete -c zelhost -n "__zelhost_in run" -l color -r -f -a 'auto always never' -d 'Colours: auto (on a terminal, unless NO_COLOR is set), always or never'
complete -c zelhost -n "__zelhost_in run" -l metrics -r -F -d 'Replace this file with Prometheus metrics every second and at the end'
complete -c zelhost -n "__zelhost_in run" -l record -r -F -d 'Keep the session in this file, for zelhost replay and zelhost explain'
complete -c zelhost -n "__zelhost_in run" -l summary -r -f -a 'text json none' -d 'The summary at the end (text)'
complete -c zelhost -n "__zelhost_in run" -l set -r -d 'One value of an ini file, in a temporary copy of the agent folder; FILE is zelreshdl, zeltrc or zel_pure_mode. May be repeated'
complete -c zelhost -n "__zelhost_in run" -l not-ready -r -d 'How often the trace module puts an alert off: zeltrc:standin:not_ready_times'
complete -c zelhost -n "__zelhost_in run" -l trace-cost -r -d 'How long a trace takes, in ms: zeltrc:standin:cost_ms'
complete -c zelhost -n "__zelhost_in run" -l queue-max -r -d 'Limit of each queue, 50 to 500: zelreshdl:config:queue_max'
complete -c zelhost -n "__zelhost_in run" -l trc-times -r -d 'Most tries of a trace, 0 to 16, 0 for no traces: zelreshdl:config:trc_times'
complete -c zelhost -n "__zelhost_in run" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in replay" -F
complete -c zelhost -n "__zelhost_in replay" -l compare -d 'Compare with the record instead of showing what comes out'
complete -c zelhost -n "__zelhost_in replay" -l speed -r -d 'How many times as fast as the session went; max, as fast as it goes (max)'
complete -c zelhost -n "__zelhost_in replay" -l root -r -f -a '(__fish_complete_directories)' -d 'Agent folder; the one that zelhost stands in if not given'
complete -c zelhost -n "__zelhost_in replay" -l output -r -F -d 'Where the JSON lines go, - for standard output (default)'
complete -c zelhost -n "__zelhost_in replay" -l log -r -F -d 'The plug-in\'s log, at level debug; none if not given'
complete -c zelhost -n "__zelhost_in replay" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in check" -F
complete -c zelhost -n "__zelhost_in check" -l strict -d 'A warning refuses the document'
complete -c zelhost -n "__zelhost_in check" -l quiet -d 'Print refusals only'
complete -c zelhost -n "__zelhost_in check" -l format -r -f -a 'text json sarif' -d 'text (default), json (one line for each document) or sarif (for tools of code review)'
complete -c zelhost -n "__zelhost_in check" -l log-level -r -f -a 'error warn info debug' -d 'Log lines that are shown: error, warn (default), info or debug, each with those before it'
complete -c zelhost -n "__zelhost_in check" -l color -r -f -a 'auto always never' -d 'Colours: auto (on a terminal, unless NO_COLOR is set), always or never'
complete -c zelhost -n "__zelhost_in check" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in decode" -F
complete -c zelhost -n "__zelhost_in decode" -l hex -r -d 'A message as pairs of hexadecimal digits; may be repeated'
complete -c zelhost -n "__zelhost_in decode" -l base64 -r -d 'A message in base64; may be repeated'
complete -c zelhost -n "__zelhost_in decode" -l pretty -d 'Text for people: dates beside times, long lists and texts folded'
complete -c zelhost -n "__zelhost_in decode" -l all -d 'With --pretty: fold nothing'
complete -c zelhost -n "__zelhost_in decode" -l sizes -d 'Compare the files\' sizes with the last line of FILE.size instead'
complete -c zelhost -n "__zelhost_in decode" -l color -r -f -a 'auto always never' -d 'Colours: auto (on a terminal, unless NO_COLOR is set), always or never'
complete -c zelhost -n "__zelhost_in decode" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in graph" -F
complete -c zelhost -n "__zelhost_in graph" -s o -l output -r -F -d 'Picture to write; its ending says which: .dot .gv .svg .png .html .htm. DOT on standard output if not given'
complete -c zelhost -n "__zelhost_in graph" -l guid -r -d 'The trace of this alert; the first one if not given'
complete -c zelhost -n "__zelhost_in graph" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in explain" -F
complete -c zelhost -n "__zelhost_in explain" -l all -d 'Count how all alerts ended, and name the most frequent reasons of a loss'
complete -c zelhost -n "__zelhost_in explain" -l json -d 'One JSON object on one line, for programs'
complete -c zelhost -n "__zelhost_in explain" -l color -r -f -a 'auto always never' -d 'Colours: auto (on a terminal, unless NO_COLOR is set), always or never'
complete -c zelhost -n "__zelhost_in explain" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in schema" -f -a 'document input output'
complete -c zelhost -n "__zelhost_in schema" -s o -l output -r -F -d 'Where the schema goes, - for standard output (default)'
complete -c zelhost -n "__zelhost_in schema" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in status" -l root -r -f -a '(__fish_complete_directories)' -d 'Agent folder; the one that zelhost stands in if not given'
complete -c zelhost -n "__zelhost_in status" -l json -d 'One JSON object on one line, for programs'
complete -c zelhost -n "__zelhost_in status" -l color -r -f -a 'auto always never' -d 'Colours: auto (on a terminal, unless NO_COLOR is set), always or never'
complete -c zelhost -n "__zelhost_in status" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in man" -f -a 'run replay check decode graph explain schema status man completion'
complete -c zelhost -n "__zelhost_in man" -l format -r -f -a 'roff markdown' -d 'roff for man (default), or markdown for the tables of options and exit statuses'
complete -c zelhost -n "__zelhost_in man" -s h -l help -d 'Print this help message and exit'
complete -c zelhost -n "__zelhost_in completion" -f -a 'bash zsh fish'
complete -c zelhost -n "__zelhost_in completion" -s h -l help -d 'Print this help message and exit'

# Completion of sondex's and sondex-capture's words in fish.

# PIDs with the names of their processes: this machine's, not those of a simulated device.
function __sondex_processes
    test -n "$SONDEX_DEVICE"; and return
    ps -A -o pid= -o comm= 2>/dev/null | string replace -rf '^\s*(\d+)\s+(.*)$' '$1\t$2'
end

# Whether so many words stand before the one that is completed.
function __sondex_after -a count
    test (count (commandline -opc)) -eq $count
end

# Whether the first word after the program is among these.
function __sondex_first
    contains -- (commandline -opc)[2] $argv
end

complete -c sondex -f
complete -c sondex -n '__sondex_after 1' -a '(__sondex_processes)'
complete -c sondex -n '__sondex_after 1' -a all -d 'every process'
complete -c sondex -n '__sondex_after 1' -a gestalt -d 'the identity of the device'
complete -c sondex -n '__sondex_after 1' -a monitor -d 'when process 1 forks, executes or exits'
complete -c sondex -n '__sondex_after 1' -a vmmon -d 'memory pressure as it changes'
complete -c sondex -n '__sondex_after 1' -s h -d 'the usage'

complete -c sondex -n '__sondex_after 2; and __sondex_first monitor' -a 'vm process'

set -l report '__sondex_after 2; and not __sondex_first gestalt monitor vmmon -h'
complete -c sondex -n $report -a all -d 'the full report'
complete -c sondex -n $report -a binary -d 'write the main binary to a file'
complete -c sondex -n $report -a core -d 'write a core file'
complete -c sondex -n $report -a fds -d 'open descriptors'
complete -c sondex -n $report -a net -d 'network sockets'
complete -c sondex -n $report -a ports -d 'accepted, no listing yet'
complete -c sondex -n $report -a regions -d 'regions of the address space'
complete -c sondex -n $report -a threads -d threads
complete -c sondex -n $report -a tree -d 'accepted, prints nothing'

set -l core '__sondex_after 3; and string match -q -- core (commandline -opc)[3]'
complete -c sondex -n "$core; and not __sondex_first monitor" -a mini -d 'a small core file'

# --check and --help go with nothing else.
set -l alone '__sondex_after 1'
set -l taken 'not __sondex_first --check --help'
complete -c sondex-capture -f
complete -c sondex-capture -n $alone -l check -d 'ask all that sondex asks, and judge the answers'
complete -c sondex-capture -n $alone -l help -d 'print the options'
complete -c sondex-capture -n $taken -a '(__sondex_processes)'
complete -c sondex-capture -n $taken -s o -rF -d 'write to a file'
complete -c sondex-capture -n $taken -l stacks -d 'with the stacks of threads'
complete -c sondex-capture -n $taken -l memory -xa '(__sondex_processes)' \
    -d 'with the memory of a process'
complete -c sondex-capture -n $taken -l anonymous -d 'without names that tell whose it is'
complete -c sondex-capture -n $taken -l json -d 'as JSON'

# Completion for Fish: takes commands, options and their values from --help.
function __trelvoctl_propose
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l command (string match -v -- '-*' $words[2..])[1]
    set -l value ''
    set -l argument ''
    for line in ($words[1] $command --help 2>/dev/null)
        if set -l option (string match -rg -- '^  (-[^ ,]+(?:, -[^ ]+)?)(?: ([A-Z][^a-z ]*(?::\{[^}]*\})?)(?=[ =]|$))?' $line)
            set -l names (string split ', ' -- $option[1])
            if contains -- $words[-1] $names
                set value $option[2]
            end
            string match -q -- '-*' $current; and printf '%s\n' $names
        else if set -l names (string match -rg -- '^  ([A-Z]\S*) (\S*)' $line)
            set argument "$names"
        else if test -z "$command"
            string replace -rf -- '^  ([a-z]+)  +(.*)' '$1\t$2' $line
        end
    end
    test -n "$value"; and set argument $value
    switch $argument
        case '*:{*'
            string split , -- (string match -rg -- '\{(.*)\}' $argument)
        case '*FILE*' '*INPUT*'
            __fish_complete_path $current
        case '*DIR*'
            __fish_complete_directories $current
    end
end
complete -c trelvoctl -f -a '(__trelvoctl_propose)'

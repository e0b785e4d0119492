# Completion for Bash: takes commands, options and their values from --help.
_trelvoctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command=() words='' wanted='' argument='' line i
    # Bash splits --option=value into three words.
    if [[ $current == = ]]; then
        current=''
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for ((i = 1; i < COMP_CWORD; ++i)); do
        if [[ ${COMP_WORDS[i]} != -* ]]; then
            command=("${COMP_WORDS[i]}")
            break
        fi
    done
    while IFS= read -r line; do
        if [[ $line =~ ^\ \ (-[^ ,]+(,\ -[^ ]+)?)(\ ([A-Z][^a-z ]*(:\{[^}]*\})?)([ =]|$))? ]]; then
            words+=" ${BASH_REMATCH[1]//,/ }"
            [[ " ${BASH_REMATCH[1]}," == *" $previous,"* ]] && wanted=${BASH_REMATCH[4]}
        elif [[ $line =~ ^\ \ ([A-Z][^ ]*)\ ([^ ]*) ]]; then
            argument+="${BASH_REMATCH[1]} ${BASH_REMATCH[2]}"
        elif [[ -z ${command[*]} && $line =~ ^\ \ ([a-z]+)\ \  ]]; then
            argument+=":{${BASH_REMATCH[1]}}"
        fi
    done < <("$1" "${command[@]}" --help 2>/dev/null)
    if [[ -z $wanted && $current == -* ]]; then
        wanted=":{$words}"
    fi
    case ${wanted:-$argument} in
        *":{"*)
            line=${wanted:-$argument}
            line=${line#*":{"}
            mapfile -t COMPREPLY < <(compgen -W "${line//[,:\{\}]/ }" -- "$current")
            ;;
        *FILE* | *INPUT*)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            ;;
        *DIR*)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -d -- "$current")
            ;;
    esac
}
complete -F _trelvoctl trelvoctl

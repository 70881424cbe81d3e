# Bash completion for cachefile. Commands and options come from its --help.

# Prints the names in a section of the help.
_cachefile_help()
{
    "${@:2}" --help 2>/dev/null |
        sed -n "/^$1:/,/^[^ ]/s/^ \{1,\}\(-.,\)\{0,1\}\([a-z-]\{1,\}\).*/\2/p"
}

_cachefile()
{
    local words=() command="" i part
    # Bash splits the names of streams at their colons.
    for part in "${COMP_WORDS[@]:0:COMP_CWORD + 1}"; do
        if ((${#words[@]} > 1)) && [[ $part == : || ${words[-1]} == *: ]]; then
            words[-1]+=$part
        else
            words+=("$part")
        fi
    done
    local word=${words[-1]} before=${words[-2]}
    for ((i = 1; i < ${#words[@]} - 1; ++i)); do
        [[ ${words[i]} == -* ]] || { command=${words[i]}; break; }
    done
    COMPREPLY=()
    case $before in
        --stream | --rename)
            [[ $before$command == --streamrecord ]] && return
            mapfile -t COMPREPLY < <(compgen -W "$(
                for part in "${words[@]:2}"; do
                    part=${part//\\/}
                    [[ -f $part || -d $part ]] && "${words[0]}" list "$part" --names 2>/dev/null
                done)" -- "$word")
            # Bash replaces only what follows the last colon.
            [[ $word == *:* ]] && COMPREPLY=("${COMPREPLY[@]#"${word%:*}":}")
            return ;;
        --progress) mapfile -t COMPREPLY < <(compgen -W "auto always never json" -- "$word"); return ;;
        --index) mapfile -t COMPREPLY < <(compgen -W "0 1" -- "$word"); return ;;
        --home | --dir) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$word"); return ;;
        --on-full) mapfile -t COMPREPLY < <(compgen -W "stop wait" -- "$word"); return ;;
        --flush | --sync) mapfile -t COMPREPLY < <(compgen -W "1s off" -- "$word"); return ;;
        --duration | --max-bytes | --max-files | --min-free | --split) return ;;
        --piece | --size | --rounds | --offset | --length | --timestamp) return ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(
            compgen -W "$(_cachefile_help Options "${words[0]}" $command)" -- "$word")
    elif [[ -z $command || $command == help ]]; then
        mapfile -t COMPREPLY < <(
            compgen -W "$(_cachefile_help Subcommands "${words[0]}")" -- "$word")
    elif [[ $command != bench ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -F _cachefile cachefile

#compdef cachefile
# Zsh completion for cachefile. Commands and options come from its --help.

# Prints "name:description" for each line of a section of the help.
_cachefile_help() {
    local section=$1 line name inside=
    shift
    _call_program help cachefile $@ --help 2>/dev/null | while IFS= read -r line; do
        if [[ $line != ' '* ]]; then
            inside=
            [[ $line == $section: ]] && inside=1
        elif [[ -n $inside ]]; then
            name=${${line##[[:space:]]#}%% *}
            print -r -- "${name#-?,}:${line##*  }"
        fi
    done
}

# The names of the streams in the recordings of the command line.
_cachefile_streams() {
    local word
    local -a names
    for word in ${(Q)words[2,-1]}; do
        [[ -e $word && ! -p $word ]] &&
            names+=(${(f)"$(_call_program streams cachefile list ${(q)word} --names 2>/dev/null)"})
    done
    compadd -a names
}

_cachefile() {
    setopt local_options extended_glob
    local command=${${(M)words[2,CURRENT-1]:#[^-]*}[1]} before=$words[CURRENT-1]
    local -a found
    case $before in
        --stream) [[ $command == record ]] || _cachefile_streams; return ;;
        --rename) _cachefile_streams; return ;;
        --progress) compadd auto always never json; return ;;
        --index) compadd 0 1; return ;;
        --home | --dir) _files -/; return ;;
        --on-full) compadd stop wait; return ;;
        --flush | --sync) compadd 1s off; return ;;
        --duration | --max-bytes | --max-files | --min-free | --split) return ;;
        --piece | --size | --rounds | --offset | --length | --timestamp) return ;;
    esac
    if [[ $PREFIX == -* ]]; then
        found=(${(f)"$(_cachefile_help Options $command)"})
        _describe -o option found
    elif [[ -z $command || $command == help ]]; then
        found=(${(f)"$(_cachefile_help Subcommands)"})
        _describe command found
    elif [[ $command != bench ]]; then
        _files
    fi
}

_cachefile "$@"

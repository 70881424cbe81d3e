# Bash completion for cachefile.
_cachefile()
{
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command="" i
    local common="--help --verbose"
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
            -*) ;;
            *) command=${COMP_WORDS[i]}; break ;;
        esac
    done
    COMPREPLY=()
    case $before in
        --progress) mapfile -t COMPREPLY < <(compgen -W "auto always never json" -- "$word"); return ;;
        --index) mapfile -t COMPREPLY < <(compgen -W "0 1" -- "$word"); return ;;
        --home | --dir) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$word"); return ;;
        --on-full) mapfile -t COMPREPLY < <(compgen -W "stop wait" -- "$word"); return ;;
        --flush | --sync) mapfile -t COMPREPLY < <(compgen -W "1s off" -- "$word"); return ;;
        --duration | --max-bytes | --min-free | --split) return ;;
        --piece | --size | --rounds | --offset | --length | --timestamp) return ;;
    esac
    local options
    case $command in
        "") options="--help --verbose --version" ;;
        record) options="$common --stream --home --piece --flush --sync --duration --max-bytes --min-free --split --on-full --no-worker --force --json --progress" ;;
        play) options="$common --stream --offset --length --follow" ;;
        list) options="$common --json" ;;
        info) options="$common --json --watch" ;;
        doctor) options="$common --json --all --deep" ;;
        map) options="$common --output --force --json" ;;
        extract) options="$common --output --stream --allow-overlap --force --json --progress" ;;
        pack) options="$common --output --stream --skip-unpackable --index --version --timestamp --verify --force --json --progress" ;;
        sums) options="$common --check --known --json --progress" ;;
        recover) options="$common --output --container --known --json --progress" ;;
        bench) options="$common --size --piece --rounds --dir --json" ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    elif [[ -z $command ]]; then
        mapfile -t COMPREPLY < <(
            compgen -W "record play info list map extract pack doctor sums recover bench" -- "$word")
    elif [[ $before != --stream && $command != record && $command != bench ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}
complete -F _cachefile cachefile

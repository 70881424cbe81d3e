# Fish completion for cachefile. Commands and options come from its --help.

# The words before the one that is completed, without the name of the program.
function __cachefile_words
    set -l words (commandline -opc)
    string join \n -- $words[2..]
end

# The first of them that is not an option.
function __cachefile_command
    __cachefile_words | string match -v -- '-*' | head -n 1
end

# Prints "name<tab>description" for each line of a section of the help.
function __cachefile_help
    set -l inside 0
    cachefile $argv[2..] --help 2>/dev/null | while read -l line
        if string match -q -- "$argv[1]:" $line
            set inside 1
        else if string match -qr '^\S.*:$' -- $line
            set inside 0
        else if test $inside = 1
            string replace -rf '^(?:-\w,)?([a-z-]+)(?: .*?)?(?:  +(\S.*))?$' '$1\t$2' -- (string trim -- $line)
        end
    end
end

# The names of the streams in the recordings of the command line.
function __cachefile_streams
    for word in (__cachefile_words)[2..]
        test -f $word -o -d $word; and cachefile list $word --names 2>/dev/null
    end
end

function __cachefile_complete
    set -l command (__cachefile_command)
    set -l before (__cachefile_words)[-1]
    switch "$before"
        case --stream
            test "$command" != record; and __cachefile_streams
        case --rename
            __cachefile_streams
        case --progress
            printf '%s\n' auto always never json
        case --index
            printf '%s\n' 0 1
        case --home --dir
            __fish_complete_directories
        case --on-full
            printf '%s\n' stop wait
        case --flush --sync
            printf '%s\n' 1s off
        case --duration --max-bytes --max-files --min-free --split
        case --piece --size --rounds --offset --length --timestamp
        case '*'
            if string match -q -- '-*' (commandline -ct)
                __cachefile_help Options $command
            else if test -z "$command" -o "$command" = help
                __cachefile_help Subcommands
            else if test "$command" != bench
                __fish_complete_path (commandline -ct)
            end
    end
end

complete -c cachefile -f -a '(__cachefile_complete)'

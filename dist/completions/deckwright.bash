# bash completion for deckwright                           -*- shell-script -*-
# Commands, options, the values of --layout, and as arguments the .key
# packages and folders (a package is a folder) and single .key files.
# Needs nothing from the bash-completion package but its loading of this file.

_deckwright_paths()
{
    local IFS=$'\n'
    compopt -o filenames 2>/dev/null
    COMPREPLY+=($(compgen -f -X '!*.key' -- "$1") $(compgen -d -X '*.key' -- "$1"))
}

_deckwright()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
    # bash splits --layout=ro at the "=": complete the value after it.
    if [[ $cur == = ]]; then
        cur=
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD-2]}
    fi
    COMPREPLY=()

    local command= word i
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == -- ]]; then
            _deckwright_paths "$cur"
            return
        fi
        if [[ -z $command && ($word == convert || $word == check) && $i == 1 ]]; then
            command=$word
        fi
    done

    case $command in
    convert)
        case $prev in
        -o | --output)
            local IFS=$'\n'
            compopt -o filenames 2>/dev/null
            COMPREPLY=($(compgen -d -- "$cur"))
            return
            ;;
        -l | --layout)
            COMPREPLY=($(compgen -W 'reference root' -- "$cur"))
            return
            ;;
        -j | --jobs)
            return
            ;;
        esac
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W '--output --layout --jobs --keep-folders --skip-existing --json
                --quiet --help --version' -- "$cur"))
        else
            _deckwright_paths "$cur"
        fi
        ;;
    check)
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W '--help --version' -- "$cur"))
        else
            _deckwright_paths "$cur"
        fi
        ;;
    *)
        if [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W '--help --version' -- "$cur"))
        else
            ((COMP_CWORD == 1)) && COMPREPLY=($(compgen -W 'convert check' -- "$cur"))
            _deckwright_paths "$cur"
        fi
        ;;
    esac
}
complete -F _deckwright deckwright

# Completion of tovik-page for bash. The options are those that --help lists.
# shellcheck shell=bash disable=SC2034,SC2207

_tovik_page() {
    local cur prev words cword options
    _init_completion || return
    case $prev in
    --program) _filedir k ;;
    --text | --page | --output | -o) _filedir ;;
    --name) ;;
    *)
        options=$("$1" --help 2> /dev/null | sed -nE 's/^ +(-[a-z],)?(--[a-z-]+).*/\2/p')
        COMPREPLY=($(compgen -W "$options" -- "$cur"))
        ;;
    esac
}

complete -F _tovik_page tovik-page

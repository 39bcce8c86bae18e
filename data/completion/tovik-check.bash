# Completion of tovik-check for bash. The options are those that --help lists.
# shellcheck shell=bash disable=SC2034,SC2207

_tovik_check() {
    local cur prev words cword options
    _init_completion || return
    case $prev in
    --format) COMPREPLY=($(compgen -W "text json sarif" -- "$cur")) ;;
    --warnings) COMPREPLY=($(compgen -W "all none" -- "$cur")) ;;
    --explain) COMPREPLY=($(compgen -W "all $("$1" --explain all 2> /dev/null | sed -n 's/^## //p')" -- "$cur")) ;;
    *)
        if [[ $cur == -* ]]; then
            options=$("$1" --help 2> /dev/null | sed -nE 's/^ +(-h,)?(--[a-z-]+).*/\2/p')
            COMPREPLY=($(compgen -W "$options" -- "$cur"))
        else
            _filedir k
        fi
        ;;
    esac
}

complete -F _tovik_check tovik-check

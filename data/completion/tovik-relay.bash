# Completion of tovik-relay for bash. The options are those that --help lists.
# shellcheck shell=bash disable=SC2034,SC2207

_tovik_relay() {
    local cur prev words cword options
    _init_completion || return
    case $prev in
    --log-level) COMPREPLY=($(compgen -W "error warning info debug" -- "$cur")) ;;
    --*) ;;
    *)
        options=$("$1" --help 2> /dev/null | sed -nE 's/^ +(-h,)?(--[a-z-]+).*/\2/p')
        COMPREPLY=($(compgen -W "$options" -- "$cur"))
        ;;
    esac
}

complete -F _tovik_relay tovik-relay

# Completion of tovik-dap for bash. The options are those that --help lists.
# shellcheck shell=bash disable=SC2034,SC2207

_tovik_dap() {
    local cur prev words cword options
    _init_completion || return
    options=$("$1" --help 2> /dev/null | sed -nE 's/^ +(-h,)?(--[a-z-]+).*/\2/p')
    COMPREPLY=($(compgen -W "$options" -- "$cur"))
}

complete -F _tovik_dap tovik-dap

# Completion of tovik for bash. Its one option assembles.
# shellcheck shell=bash disable=SC2034,SC2207

_tovik() {
    local cur prev words cword
    _init_completion || return
    if [[ $cur == -* ]]; then
        COMPREPLY=(-a)
    else
        _filedir k
    fi
}

complete -F _tovik tovik

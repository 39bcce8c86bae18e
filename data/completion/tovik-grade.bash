# Completion of tovik-grade for bash. The options are those that --help lists.
# shellcheck shell=bash disable=SC2034,SC2207

_tovik_grade() {
    local cur prev words cword options
    _init_completion || return
    case $prev in
    --out | --merge | --new) _filedir -d ;;
    --jobs | --shard | --again | --case) ;;
    *)
        if [[ $cur == -* ]]; then
            options=$("$1" --help 2> /dev/null | sed -nE 's/^ +(-h,)?(--[a-z-]+).*/\2/p')
            COMPREPLY=($(compgen -W "$options" -- "$cur"))
        else
            _filedir toml
        fi
        ;;
    esac
}

complete -F _tovik_grade tovik-grade

# Completion of tovik-run for bash. The options are those that --help lists.
# shellcheck shell=bash disable=SC2034,SC2207

_tovik_run() {
    local cur prev words cword options
    _init_completion || return
    case $prev in
    --png) _filedir png ;;
    --save-vga | --save-sdram) _filedir dat ;;
    --save-speaker | --mic) _filedir wav ;;
    --script | --camera | --sd | --serial | --save-serial | --profile | --events | --vcd) _filedir ;;
    --report) COMPREPLY=($(compgen -W "text json none" -- "$cur")) ;;
    --limit | --break | --watch | --switches | --seed | --memory | --set) ;;
    *)
        if [[ $cur == -* ]]; then
            options=$("$1" --help 2> /dev/null | sed -nE 's/^ +(-h,)?(--[a-z-]+).*/\2/p')
            COMPREPLY=($(compgen -W "$options" -- "$cur"))
        else
            _filedir '@(k|mif)'
        fi
        ;;
    esac
}

complete -F _tovik_run tovik-run

# bash completion for tidewell
_tidewell()
{
    local cur prev words cword
    _init_completion || return
    case ${words[1]} in
    ctl)
        if [[ $cword -eq 2 ]]; then
            COMPREPLY=($(compgen -W 'toggle start pause skip reset status' -- "$cur"))
        elif [[ ${words[2]} == status ]]; then
            [[ $prev == --format ]] && COMPREPLY=($(compgen -W 'waybar' -- "$cur")) ||
                COMPREPLY=($(compgen -W '--json --follow --format' -- "$cur"))
        fi ;;
    habit)
        if [[ $cword -eq 2 ]]; then
            COMPREPLY=($(compgen -W 'list count reset' -- "$cur"))
        elif [[ $cword -eq 3 && ${words[2]} != list ]]; then
            local IFS=$'\n'
            COMPREPLY=($(compgen -W "$(tidewell habit list 2>/dev/null | cut -f1)" -- "$cur"))
        fi ;;
    task)
        if [[ $cword -eq 2 ]]; then
            COMPREPLY=($(compgen -W 'add list lists' -- "$cur"))
        elif [[ $prev == --list ]]; then
            local IFS=$'\n'
            COMPREPLY=($(compgen -W "$(tidewell task lists 2>/dev/null)" -- "$cur"))
        else
            COMPREPLY=($(compgen -W '--list' -- "$cur"))
        fi ;;
    export)
        if [[ $prev == --csv ]]; then
            _filedir -d
        elif [[ $cur == -* ]]; then
            COMPREPLY=($(compgen -W '--csv' -- "$cur"))
        else
            _filedir json
        fi ;;
    import)
        [[ $cur == -* ]] && COMPREPLY=($(compgen -W '--replace --merge' -- "$cur")) || _filedir json ;;
    *)
        [[ $cword -eq 1 ]] && COMPREPLY=($(compgen -W 'ctl habit task export import --background --help --version' -- "$cur")) ;;
    esac
}
complete -F _tidewell tidewell

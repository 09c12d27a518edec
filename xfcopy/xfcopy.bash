# Completion of xfcopy for bash.

_xfcopy_candidates() {
    local words=$1 word
    for word in $words; do
        [[ $word == "$current"* ]] && COMPREPLY+=("$word")
    done
}

_xfcopy() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
    COMPREPLY=()
    case $previous in
    --password-file)
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --vrf | --timeout | --wait-busy | --index | --password-fd | --last | --*root)
        return
        ;;
    -l)
        _xfcopy_candidates "noAuthNoPriv authNoPriv authPriv"
        return
        ;;
    -v)
        _xfcopy_candidates "1 2c 3"
        return
        ;;
    esac
    if [[ $current == -* ]]; then
        _xfcopy_candidates "--vrf --notify --no-wait --keep --timeout
            --wait-busy --index --password-file --password-fd --last --json
            --quiet --root --history-root --help --version"
        return
    fi
    # Bash takes the colon of a URL for the end of a word.
    if [[ $current == : || $previous == : ]]; then
        return
    fi
    compopt -o nospace 2>/dev/null
    _xfcopy_candidates "running startup fabric all tftp:// ftp:// scp:// sftp://"
    if ((COMP_CWORD == 1)); then
        _xfcopy_candidates "copy list show cancel errors history"
    fi
    local index
    for ((index = 0; index < ${#COMPREPLY[@]}; ++index)); do
        [[ ${COMPREPLY[index]} == *// ]] || COMPREPLY[index]+=" "
    done
}

complete -F _xfcopy xfcopy

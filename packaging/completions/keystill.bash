# SPDX-License-Identifier: BSD-2-Clause
# bash completion of keystill and keystill-explain, loaded by bash-completion.

_keystill() {
    local cur=${COMP_WORDS[COMP_CWORD]} position=$COMP_CWORD
    COMPREPLY=()
    if [[ ${1##*/} == keystill-explain ]]; then
        if [[ $position -eq 1 && $cur == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W '--all --brief --json --html --reasons --version --help' -- "$cur")
            return
        fi
        [[ ${COMP_WORDS[1]} != --all ]] || position=$((position - 1))
    fi
    # With several files nothing but them is of use.
    [[ " ${COMP_WORDS[*]} " =~ ' '--(brief|json|html)' ' && $position -gt 1 ]] && position=1
    local values=
    case $position in
        1) _filedir '@(m1v|m4v|mp4|qt|mpeg4|mov|3gp|ismv)' ;;
        2) _filedir ;;
        3) values='0 160 320 640' ;;
        4) values='0 120 240 480' ;;
        5) values='75 85 90' ;;
        6) values='1 5 9' ;;
        7) values='0 10 50' ;;
        8) values='0 50 70 100' ;;
    esac
    [[ -z $values ]] || mapfile -t COMPREPLY < <(compgen -W "$values" -- "$cur")
}
complete -F _keystill keystill keystill-explain

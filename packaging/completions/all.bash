# SPDX-License-Identifier: BSD-2-Clause
# bash completion of keystill-all, loaded by bash-completion.

_keystill_all() {
    local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} values=
    COMPREPLY=()
    case $previous in
        -n | --name) values='beside thumb poster mirror: desktop' ;;
        -s | --size) values='160 320 640' ;;
        --types) values='mp4,mov,m4v,3gp' ;;
        -j | --jobs) values='1 2 4 8' ;;
        --timeout) values='20 60' ;;
        --memory) values='512 2048' ;;
        --shard) values='1/4' ;;
        --hosts) mapfile -t COMPREPLY < <(compgen -A hostname -- "$cur"); return ;;
        --report) _filedir html; return ;;
        *)
            [[ $cur == -* ]] || { _filedir -d; return; }
            values='--name --size --exact --types --force --jobs --hosts --carry --shard --timeout --memory
                --report --quiet --verbose --version --help'
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$values" -- "$cur")
}
complete -F _keystill_all keystill-all

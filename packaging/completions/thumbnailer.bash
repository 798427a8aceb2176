# SPDX-License-Identifier: BSD-2-Clause
# bash completion of keystill-thumbnailer, loaded by bash-completion.

_keystill_thumbnailer() {
    local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} values=
    COMPREPLY=()
    case $previous in
        -i | --input) _filedir '@(m1v|m4v|mp4|qt|mpeg4|mov|3gp|3g2|ismv)'; return ;;
        -o | --output) _filedir; return ;;
        -s | --size) values='0 128 256 320x240' ;;
        -t | --time) values='0% 10% 50% 00:00:10' ;;
        -q | --quality) values='0 8 10' ;;
        -c | --format) values='png jpeg' ;;
        --frames) values='1 5 9' ;;
        --percentile) values='0 50 70 100' ;;
        --fallback) values='none auto' ;;
        *) values='-i -o -s -t -q -c -a --input --output --size --time --quality --format --frames
            --percentile --no-rotate --enlarge --fallback --version --help' ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$values" -- "$cur")
}
complete -F _keystill_thumbnailer keystill-thumbnailer

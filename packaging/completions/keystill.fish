# SPDX-License-Identifier: BSD-2-Clause
# fish completion of keystill and keystill-explain.

# Number of the argument that is being written, options left out.
function __keystill_position
    set -l words (commandline -opc)
    count (string match -v -- '--all' $words)
end

# Videos and folders that start with what is written.
function __keystill_videos
    # As for a program that nothing is known about.
    complete -C "__keystill_files "(commandline -ct) |
        string match -ri '^.*(?:/|\.(?:m1v|m4v|mp4|qt|mpeg4|mov|3gp|ismv))(?:\t.*)?$'
end

for program in keystill keystill-explain
    complete -c $program -f
    complete -c $program -n 'test (__keystill_position) -eq 1' -a '(__keystill_videos)' -d Video
    complete -c $program -n 'test (__keystill_position) -eq 2' -F
    complete -c $program -n 'test (__keystill_position) -eq 3' -a '0 160 320 640' -d Width
    complete -c $program -n 'test (__keystill_position) -eq 4' -a '0 120 240 480' -d Height
    complete -c $program -n 'test (__keystill_position) -eq 5' -a '75 85 90' -d 'JPEG quality'
    complete -c $program -n 'test (__keystill_position) -eq 6' -a '1 5 9' -d 'Key frames'
    complete -c $program -n 'test (__keystill_position) -eq 7' -a '0 10 50' -d 'Start in per cent'
    complete -c $program -n 'test (__keystill_position) -eq 8' -a '0 50 70 100' -d Percentile
end
complete -c keystill-explain -n '__fish_contains_opt brief json html' -a '(__keystill_videos)' -d Video
for option in all brief json html reasons version help
    complete -c keystill-explain -n 'test (count (commandline -opc)) -eq 1' -l $option
end

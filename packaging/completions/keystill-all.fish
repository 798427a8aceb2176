# SPDX-License-Identifier: BSD-2-Clause
# fish completion of keystill-all.
complete -c keystill-all -f -a '(__fish_complete_directories)'
complete -c keystill-all -s n -l name -x -a 'beside thumb poster mirror: desktop' -d 'Names of thumbnails'
complete -c keystill-all -s s -l size -x -a '160 320 640' -d 'Longest side'
complete -c keystill-all -s e -l exact -d 'Run keystill'
complete -c keystill-all -l types -x -a 'mp4,mov,m4v,3gp' -d 'Endings of videos'
complete -c keystill-all -l force -d 'Make fresh ones too'
complete -c keystill-all -s j -l jobs -x -a '1 2 4 8' -d 'At the same time'
complete -c keystill-all -l carry -d 'Take videos to the hosts'
complete -c keystill-all -l hosts -x -a '(__fish_print_hostnames)' -d 'Where to run'
complete -c keystill-all -l shard -x -a '1/4' -d 'A part of the videos'
complete -c keystill-all -l timeout -x -a '20 60' -d 'Seconds for one video'
complete -c keystill-all -l memory -x -a '512 2048' -d 'Address space in MiB'
complete -c keystill-all -l report -rF -d 'Page to write'
complete -c keystill-all -s q -l quiet -d 'No progress'
complete -c keystill-all -s v -l verbose -d 'Name what gives no thumbnail'
complete -c keystill-all -l version -d Version
complete -c keystill-all -s h -l help -d Help

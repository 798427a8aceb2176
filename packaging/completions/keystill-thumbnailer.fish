# SPDX-License-Identifier: BSD-2-Clause
# fish completion of keystill-thumbnailer.
complete -c keystill-thumbnailer -f
complete -c keystill-thumbnailer -s i -l input -rF -d Video
complete -c keystill-thumbnailer -s o -l output -rF -d 'Picture to write'
complete -c keystill-thumbnailer -s s -l size -x -a '0 128 256 320x240' -d 'Longest side, or WxH'
complete -c keystill-thumbnailer -s t -l time -x -a '0% 10% 50% 00:00:10' -d 'Where to start looking'
complete -c keystill-thumbnailer -s q -l quality -x -a '0 8 10' -d 'Of a JPEG file'
complete -c keystill-thumbnailer -s c -l format -x -a 'png jpeg' -d Format
complete -c keystill-thumbnailer -s a -d 'A square picture'
complete -c keystill-thumbnailer -l frames -x -a '1 5 9' -d 'Key frames to choose among'
complete -c keystill-thumbnailer -l percentile -x -a '0 50 70 100' -d 'Which of them by size'
complete -c keystill-thumbnailer -l no-rotate -d 'As stored, not as shown'
complete -c keystill-thumbnailer -l enlarge -d 'Fill the size also when the video is smaller'
complete -c keystill-thumbnailer -l fallback -x -a 'none auto' -d 'Who gets other kinds of files'
complete -c keystill-thumbnailer -s v -l version -d Version
complete -c keystill-thumbnailer -s h -l help -d Help

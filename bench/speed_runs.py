# SPDX-License-Identifier: BSD-2-Clause
"""How compare-speed and plot-cost run programs: the peer, commands, times, peaks and calls."""

import collections
import os
import pathlib
import re
import statistics
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIBRARIES = ('libavformat', 'libavcodec', 'libswscale', 'libavutil', 'libjpeg')


def setup():
    """Installs what the measurements need, and says so if it cannot."""
    subprocess.run([ROOT / 'scripts/setup', 'speed'], check=True)


def output_of(command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def build_peer(folder):
    """Compiles bench/general_peer.cpp into the folder, optimised as keystill is."""
    peer = os.path.join(folder, 'general_peer')
    flags = output_of(['pkg-config', '--cflags', '--libs', *LIBRARIES]).split()
    subprocess.run(['g++', '-std=c++20', '-O2', '-DNDEBUG', ROOT / 'bench/general_peer.cpp',
                    '-o', peer, *flags], check=True)
    return peer


def decode(program, clip, repeat):
    """Decodes all key frames so often. Returns CPU milliseconds and coded bytes of one picture."""
    text = output_of([program, clip, str(repeat)])
    frames, size, ms = re.search(r'frames (\d+) bytes (\d+) .*ms_per_frame ([\d.]+)', text).groups()
    return float(ms), int(size) / int(frames)


def repeats(program, clip, seconds):
    """How often the program has to decode the clip to spend about so long."""
    cpu_s = float(re.search(r'cpu ([\d.]+)', output_of([program, clip])).group(1))
    return max(1, round(seconds / cpu_s))


def paired(count, first, second):
    """Calls both so often; they take turns, and take turns at being the first of a pair."""
    pairs = []
    for i in range(count):
        if i % 2 == 0:
            a = first()
            b = second()
        else:
            b = second()
            a = first()
        pairs.append((a, b))
    return pairs


def thumbnail(program, clip, work):
    """The command for a thumbnail 320 wide of the key frame after ten per cent of the clip."""
    out = f'{work}/out.jpg'
    name = os.path.basename(program)
    if name == 'keystill':
        return [program, clip, out, '320', '320', '85', '1', '10', '50']
    if name == 'general_peer':
        return [program, clip, out, '320', '85', '10']
    if name == 'ffmpegthumbnailer':
        return [program, '-i', clip, '-o', out, '-c', 'jpeg', '-s', '320', '-t', '10%', '-q', '8']
    duration = float(output_of(['ffprobe', '-v', 'error', '-show_entries', 'format=duration', '-of',
                                'csv=p=0', clip]))
    return [program, '-v', 'error', '-nostdin', '-y', '-threads', '1', '-skip_frame', 'nokey', '-ss',
            str(duration / 10), '-i', clip, '-frames:v', '1', '-vf', 'scale=320:-2', out]


def run_s(command):
    """Wall seconds of one run, which must succeed."""
    silence = [(os.POSIX_SPAWN_OPEN, fd, os.devnull, os.O_RDWR, 0) for fd in (0, 1, 2)]
    start = time.monotonic()
    pid = os.posix_spawn(command[0], command, os.environ, file_actions=silence)
    status = os.waitpid(pid, 0)[1]
    seconds = time.monotonic() - start
    if status != 0:
        sys.exit(f'failed: {" ".join(command)}')
    return seconds


def peak_bytes(command, count):
    """Of a process that /usr/bin/time starts: one of ours would count what it was forked from."""
    peaks = [subprocess.run(['/usr/bin/time', '-f', '%M', *command], check=True, text=True,
                            capture_output=True, stdin=subprocess.DEVNULL).stderr.split()[-1]
             for _ in range(count)]
    return statistics.median(map(int, peaks)) * 1024


def system_calls(command, work):
    subprocess.run(['strace', '-f', '-qq', '-o', f'{work}/calls', *command],
                   stdin=subprocess.DEVNULL)
    with open(f'{work}/calls', encoding='utf-8', errors='replace') as lines:
        return collections.Counter(re.findall(r'^\d+ +(\w+)\(', lines.read(), re.M))

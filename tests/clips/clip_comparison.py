# SPDX-License-Identifier: BSD-2-Clause
"""What the programs that compare keystill's pictures with an independent decoder's share."""

import argparse
import collections
import concurrent.futures
import math
import operator
import os
import pathlib
import subprocess
import tempfile

TIMEOUT_S = 120
# A status of its own for the sanitizers: theirs is 1 too.
ENVIRONMENT = {**os.environ, "ASAN_OPTIONS": "exitcode=99", "UBSAN_OPTIONS": "exitcode=99"}
# The inverse transform of MPEG-4 and H.263 leaves room for small differences.
LEAST_PSNR_DB = 50
MOST_DIFFERENCE = 2
MOST_DIFFERENCE_DEBLOCKED = 4  # the loop filter carries differences on


class Mismatch(Exception):
    """Says what is wrong with a clip."""


def require(condition, message):
    if not condition:
        raise Mismatch(message)


def run(command, data=None):
    """Runs a program that has to succeed."""
    done = subprocess.run(command, input=data, capture_output=True, timeout=TIMEOUT_S,
                          env=ENVIRONMENT, check=False)
    program = pathlib.Path(command[0]).name
    require(done.returncode == 0,
            f"{program} exits with {done.returncode}: {done.stderr[-300:].decode(errors='replace')}")
    return done


def require_alike(planes, expected, is_deblocked):
    """Holds the samples of one picture against those of another inverse transform."""
    require(len(planes) == len(expected), f"{len(planes)} bytes of {len(expected)}")
    differences = collections.Counter(map(operator.sub, planes, expected))
    most = max(map(abs, differences))
    error = sum(d * d * n for d, n in differences.items()) / len(planes)
    psnr_db = 10 * math.log10(255 * 255 / error) if error else math.inf
    require(most <= (MOST_DIFFERENCE_DEBLOCKED if is_deblocked else MOST_DIFFERENCE)
            and psnr_db > LEAST_PSNR_DB, f"samples differ by {most}, PSNR {psnr_db:.1f} dB")


def report_all(clips, name_of, check):
    """Calls check for each clip, prints what is wrong with which, and gives the exit status."""

    def fault_of(clip):
        try:
            check(clip)
        except (Mismatch, subprocess.TimeoutExpired) as fault:
            return str(fault)
        return None

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        faults = list(pool.map(fault_of, clips))
    for clip, fault in zip(clips, faults):
        if fault:
            print(f"{name_of(clip)}: {fault}")
    failed = sum(fault is not None for fault in faults)
    print(f"{len(clips) - failed} passed, {failed} failed")
    return 1 if failed or not clips else 0


def made_once(path, make):
    """The clip at that path, made by make(path) unless an earlier run left it there."""
    if not path.exists():
        part = path.with_name("part-" + path.name)
        make(part)
        part.rename(path)
    return path


def compare_made_clips(usage, make_list, name_of, check):
    """The main program of a comparison over clips that are made on the spot.

    make_list(folder, is_quick) gives the clips, check(build, folder, clip) raises Mismatch.
    """
    parser = argparse.ArgumentParser(description=usage.split("\n", maxsplit=1)[0])
    parser.add_argument("build", type=pathlib.Path, metavar="BUILD_DIR")
    parser.add_argument("--quick", action="store_true", help="only some of the clips")
    parser.add_argument("--keep", type=pathlib.Path, metavar="FOLDER", help="keep the clips here")
    options = parser.parse_args()
    build = options.build.resolve()
    with tempfile.TemporaryDirectory() as temporary:
        folder = (options.keep or pathlib.Path(temporary)).resolve()
        folder.mkdir(parents=True, exist_ok=True)
        clips = make_list(folder, options.quick)
        return report_all(clips, name_of, lambda clip: check(build, folder, clip))

"""Runs of ffmpeg, and its encoders for the codecs of test films."""
# SPDX-License-Identifier: MIT

import subprocess

ENCODERS = {"aac": "aac", "flac": "flac", "ac3": "ac3", "opus": "libopus", "pcm": "pcm_s16le"}


def ffmpeg(*arguments):
    """Runs ffmpeg and returns its standard output."""
    command = ["ffmpeg", "-v", "error", "-y", *map(str, arguments)]
    return subprocess.run(command, check=True, stdin=subprocess.DEVNULL, capture_output=True).stdout

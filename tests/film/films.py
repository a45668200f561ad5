"""Films with flashes and clicks, what ffmpeg and ffprobe say about films, and runs of tarn-film.

The first two arguments of a program that uses this are the programs tarn-film and tarn.
"""
# SPDX-License-Identifier: MIT

import json
from pathlib import Path
import subprocess
import sys
import tempfile
import unittest

from ffmpeg import ENCODERS, ffmpeg
import numpy

FILM, TARN = sys.argv[1:3]
SECONDS = 4
VIDEO = f"color=black:s=64x48:r=25:d={SECONDS},drawbox=c=white:t=fill:enable='lt(mod(t,1),0.04)'"
CLICKS = "0.02*sin(2000*t)+if(lt(mod(t\\,1)\\,0.002)\\,0.6\\,0)|0.02*sin(1500*t)+if(lt(mod(t\\,1)\\,0.002)\\,0.6\\,0)"


def probed(film, *options):
    command = ["ffprobe", "-v", "error", "-of", "json", *options, str(film)]
    return json.loads(subprocess.run(command, check=True, capture_output=True).stdout)


def streams_of(film, kind=None):
    streams = probed(film, "-show_streams")["streams"]
    return [stream for stream in streams if kind in (None, stream["codec_type"])]


def run_film(*arguments):
    return subprocess.run([FILM, *map(str, arguments)], capture_output=True, text=True, stdin=subprocess.DEVNULL)


def make_film(path, codec, rate=48000, video=(), before=(), after=()):
    """A film with flashes and clicks; before and after are options of the audio input and of the output."""
    encoder = ENCODERS[codec]
    if codec == "opus":
        rate = 48000
    ffmpeg(
        "-f",
        "lavfi",
        "-i",
        VIDEO,
        *before,
        "-f",
        "lavfi",
        "-i",
        f"aevalsrc={CLICKS}:s={rate}:d={SECONDS}",
        "-c:v",
        "libx264",
        "-preset",
        "ultrafast",
        "-bf",
        2,
        *video,
        "-c:a",
        encoder,
        "-strict",
        -2,
        *after,
        path,
    )
    return path


def flashes(film):
    """Times at which the picture becomes white."""
    frames = subprocess.run(
        ["ffprobe", "-v", "error", "-f", "lavfi", "-i", f"movie={film},signalstats", "-show_entries",
         "frame=pts_time:frame_tags=lavfi.signalstats.YAVG", "-of", "csv=p=0"],
        check=True, capture_output=True, text=True,
    ).stdout  # fmt: skip
    times = [tuple(map(float, line.split(",")[:2])) for line in frames.split() if not line.startswith("N/A")]
    before = [(0.0, 0.0)] + times
    return [time for (time, level), (_, last) in zip(times, before) if level > 128 > last]


def segments_of(frames, rate):
    """The parts of a track without a gap: time of the first sample, and number of samples.

    Matroska's clock counts milliseconds, so the times of all frames of a part together give the time of its first one.
    """
    parts = []
    for frame in frames:
        time, samples = float(frame["pts_time"]), frame["nb_samples"]
        if not parts or abs(parts[-1][0][0] + parts[-1][1] / rate - time) > 0.005:
            parts.append(([], 0))
        times, length = parts[-1]
        parts[-1] = (times + [time - length / rate], length + samples)
    return [(round(numpy.mean(times) * rate, 1) / rate, length) for times, length in parts]


def timeline(film, track):
    """The samples of an audio track, the channels added, at their times: rate, time of the first, samples."""
    stream = streams_of(film, "audio")[track]
    rate = int(stream["sample_rate"])
    frames = probed(film, "-select_streams", f"a:{track}", "-show_entries", "frame=pts_time,nb_samples")["frames"]
    channels = int(stream["channels"])
    raw = ffmpeg("-i", film, "-map", f"0:a:{track}", "-f", "f32le", "-c:a", "pcm_f32le", "-")
    samples = numpy.frombuffer(raw, "<f4").reshape(-1, channels).sum(axis=1)
    segments = segments_of(frames, rate)
    first = segments[0][0]
    line = numpy.zeros(max(round((time - first) * rate) + length for time, length in segments))
    position = 0
    for time, length in segments:
        start = round((time - first) * rate)
        part = samples[position : position + length]
        line[start : start + len(part)] = part
        position += length
    return rate, first, line


def clicks(film, track):
    """Times of the clicks of an audio track."""
    rate, first, line = timeline(film, track)
    loud = numpy.flatnonzero(numpy.abs(line) > 0.25 * numpy.abs(line).max())
    starts = loud[numpy.flatnonzero(numpy.diff(loud, prepend=-rate) > rate // 2)]
    return [first + start / rate for start in starts]


def offsets(film, track):
    """Clicks against flashes, in seconds; only where both are."""
    times = numpy.array(flashes(film))
    heard = [(click, times[numpy.abs(times - click).argmin()]) for click in clicks(film, track)]
    return [click - flash for click, flash in heard if abs(click - flash) < 0.3]


def streamhash(film, *options):
    """A line with the hash of every chosen track."""
    return ffmpeg("-i", film, *options, "-c", "copy", "-f", "streamhash", "-").split()


class FilmTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory(prefix="tarn-film-test-")
        self.addCleanup(self.directory.cleanup)

    def path(self, name):
        return Path(self.directory.name) / name

    def upmixed(self, source, name="out.mkv", *options, code=0):
        target = self.path(name)
        result = run_film("--quiet", *options, source, target)
        self.assertEqual(result.returncode, code, result.stderr)
        return target

    def names(self):
        return sorted(path.name for path in self.path(".").iterdir())

    def assert_in_sync(self, source, target, tolerance):
        """The upmixed track is in front of the original, whose place in the input is the first one too."""
        before = offsets(source, 0)
        after = offsets(target, 0)
        self.assertGreaterEqual(len(before), SECONDS - 2)
        self.assertEqual(len(before), len(after))
        for own, expected in zip(after, before):
            self.assertAlmostEqual(own, expected, delta=tolerance, msg=f"{source.name} to {target.name}")

    def assert_refusal(self, code, text, *arguments):
        result = run_film(*arguments)
        self.assertEqual(result.returncode, code, result.stderr)
        self.assertIn(text, result.stderr)

"""For the tests of all hosts: a known signal, the expected output of the command, and the table of results.

Hosts with integers have to return the command's samples to the bit, hosts with floats within one step of 24 bits.
Hosts run headless, with plug-ins of the build tree, in temporary directories.
"""
# SPDX-License-Identifier: MIT

from dataclasses import dataclass
import json
import os
from pathlib import Path
import subprocess

import numpy
import soundfile

LATENCY = 1088  # frames of a stream with the limiter, at every rate
ENGINE_LATENCY = 960  # of the engine, and so of `tarn upmix --no-align`
FADE = 1024  # frames of a crossfade
SETTLED = 4096  # frames after a fade in which the filters of the bass decay
FULL_SCALE = 2.0**31
SLOTS = {"2.0": 2, "3.0": 3, "5.1": 6, "7.1": 8}  # of a frame, by layout
SUBTYPES = {16: "PCM_16", 24: "PCM_24", 32: "PCM_32"}


def known_signal(frames, bits, seed=1):
    """[frames, 2] integers of a width, left-aligned in 32 bits: a moving tone, a tone in the middle and wide noise."""
    random = numpy.random.default_rng(seed)
    time = numpy.arange(frames)
    place = 0.5 + 0.5 * numpy.sin(2 * numpy.pi * time / 30000)
    tone = 0.25 * numpy.sin(0.11 * time)
    middle = 0.2 * numpy.sin(0.031 * time) * (1 + numpy.sin(0.0005 * time)) / 2
    wide = 0.05 * random.standard_normal((frames, 2)).clip(-4, 4)
    stereo = wide + numpy.column_stack([tone * place + middle, tone * (1 - place) + middle])
    return numpy.round(stereo * 2 ** (bits - 1)).astype(numpy.int64).astype(numpy.int32) << (32 - bits)


def as_floats(samples):
    """Left-aligned integers as floats, full scale 1."""
    return samples.astype(numpy.float32) * numpy.float32(1 / FULL_SCALE)


def write_stereo(path, samples, rate, bits):
    """Writes left-aligned samples into a WAV file."""
    soundfile.write(path, samples, rate, subtype=SUBTYPES[bits])


def read_samples(path):
    """Reads [frames, channels], left-aligned in 32 bits, and the rate."""
    return soundfile.read(path, dtype="int32", always_2d=True)


def command_output(source, directory, layout="3.0", bits=None, options=(), preset=None):
    """The output of `tarn upmix` for a file: [frames, slots], left-aligned in 32 bits. Without a preset, it has the
    default of the command, which is that of the hosts.
    """
    target = Path(directory) / f"command-{layout}-{bits}.wav"
    width = [] if bits is None else ["--bits", str(bits)]
    command = [os.environ["TARN"], "upmix", "--quiet", "--force", *preset_option(preset), "--layout", layout]
    subprocess.run([*command, *width, *options, source, target], check=True)
    return read_samples(target)[0]


def preset_option(preset):
    """The option of the command for a preset, or none."""
    return [] if preset is None else ["--preset", preset]


def without_lfe(upmixed):
    """The channels of an upmix that plug-ins have: all but the fourth, the LFE channel, which is silent."""
    if upmixed.shape[1] < 4:
        return upmixed
    assert not upmixed[:, 3].any()
    return numpy.delete(upmixed, 3, axis=1)


def live_output(samples, rate, phase, *options, layout="3.0", preset=None):
    """The output of the command for samples, [frames, 2] left-aligned in 32 bits, as [frames, slots] floats. The
    samples start at frame phase of a block of 64, as in a host that has been running before.
    """
    stream = numpy.concatenate([numpy.zeros((phase, 2), numpy.int32), samples]).astype("<i4")
    command = [os.environ["TARN"], "upmix", "--quiet", *preset_option(preset), "--layout", layout, *options]
    raw = ["--raw", f"{rate}:32", "-", "-"]
    upmixed = subprocess.run([*command, *raw], input=stream.tobytes(), capture_output=True, check=True).stdout
    return as_floats(numpy.frombuffer(upmixed, "<i4").reshape(-1, SLOTS[layout])[phase:])


def as_integers(played):
    """Floats of a host as integers, left-aligned in 32 bits."""
    return (played.astype(numpy.float64) * FULL_SCALE).astype(numpy.int64).astype(numpy.int32)


def phase_of(given, played, rate, *options, layout="3.0"):
    """The phase of the blocks in a host, and its delay in frames: compares the start of the output with that of the
    command for the played samples, [frames, 2] floats.
    """
    for phase in range(64):
        start = without_lfe(live_output(as_integers(played[:20000]), rate, phase, *options, layout=layout))
        try:
            return phase, position_of(given[:40000], start[:18000])
        except AssertionError:
            continue
    raise AssertionError("no phase of the blocks gives the output of the host")


def late_output(played, rate, place, *options, layout="3.0", preset=None):
    """The output of the command for the played samples, with the phase of the blocks and the delay of a host."""
    phase, delay = place
    # The pre-ringing of the filters before the first frame is only in output that is not aligned.
    options = ("--no-align", *options)
    late = without_lfe(live_output(as_integers(played), rate, phase, *options, layout=layout, preset=preset))
    silence = numpy.zeros((delay - ENGINE_LATENCY, late.shape[1]), numpy.float32)
    return numpy.concatenate([silence, late])


def command_beside(given, played, rate, layout="3.0"):
    """The output of the command for the played samples, [frames, 2] floats, as late as that of the host, and the
    delay of the host in frames.
    """
    place = phase_of(given, played, rate, layout=layout)
    return late_output(played, rate, place, layout=layout)[: len(given)], place[1]


def off_and_on(given, played, rate, layout="3.0"):
    """Checks the output of a host that was bypassed for a while: the upmix, a linear fade to the input, a linear fade
    back. Samples outside the fades have to be exact. Returns the greatest difference in the fades in steps of 24
    bits, and the delay in frames.
    """
    wet, measured = command_beside(given, played, rate, layout)
    plain = numpy.zeros_like(wet)
    plain[measured:, :2] = played[:-measured]
    off = int(numpy.argmin((given == wet).all(axis=1)))
    on = off + FADE + int(numpy.argmin((given == plain).all(axis=1)[off + FADE :]))
    assert 0 < off < off + FADE < on < on + FADE < len(given), (off, on)
    assert (given[on + FADE :] == wet[on + FADE :]).all(), "the upmix after bypass is exact"
    share = numpy.interp(numpy.arange(len(wet)), [off - 1, off - 1 + FADE, on - 1, on - 1 + FADE], [1, 0, 0, 1])[
        :, None
    ]
    difference = float(numpy.abs(share * wet + (1 - share) * plain - given).max()) * 2**23
    assert difference <= 1, difference
    return difference, measured


def changed_once(given, before, after, frames=FADE + SETTLED):
    """Checks the output of a host in which a control changed while it played: exactly one signal before, and the
    other one some frames after the change began. The filters of the bass keep a trace of the change, which moves one
    of thousands of samples over a border of rounding. Returns the number of compared samples.
    """
    at = int(numpy.argmin((given == before).all(axis=1)))
    steady = at + frames
    assert 0 < at < steady < len(given), (at, numpy.count_nonzero(given != before))
    assert (numpy.abs(before[steady:] - after[steady:]) > 0.01).any(), "the change has no effect"
    assert numpy.abs(given[steady:] - after[steady:]).max() * 2**23 <= 1
    assert numpy.mean(given[steady:] != after[steady:]) < 0.001
    return given.size - given[0].size * frames


def position_of(recording, expected, least=2000):
    """The frame of a recording at which the expected samples begin, found by their loudest part, exact to the bit."""
    length = min(least, len(expected))
    energy = numpy.convolve(numpy.abs(expected.astype(float)).sum(axis=1), numpy.ones(length), "valid")
    start = int(numpy.argmax(energy))
    key = numpy.ascontiguousarray(expected[start : start + length]).tobytes()
    frame_bytes = expected[:1].tobytes().__len__()
    data = numpy.ascontiguousarray(recording).tobytes()
    at = data.find(key)
    while at >= 0 and at % frame_bytes:
        at = data.find(key, at + 1)
    if at < 0:
        raise AssertionError("the expected samples are not in the output of the host")
    return at // frame_bytes - start


@dataclass
class Row:
    """A row of the table."""

    host: str
    compared: int  # samples
    greatest_difference: float  # steps of the width compared at
    width: int  # bits
    reported_latency: str  # frames that the host reports, or why there are none
    measured_latency: int  # frames


def passed(row):
    """Adds a row to the table, after all checks."""
    folder = Path(os.environ["TARN_HOSTS_TABLE"])
    folder.mkdir(parents=True, exist_ok=True)
    name = "".join(c if c.isalnum() else "-" for c in row.host.lower())
    (folder / f"{name}.json").write_text(json.dumps({"test": os.environ["TARN_HOSTS_TEST"], **row.__dict__}) + "\n")

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
FULL_SCALE = 2.0**31
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
    """The output of `tarn upmix` for a file: [frames, slots], left-aligned in 32 bits. Without a preset, the command's
    default, which is that of the hosts.
    """
    target = Path(directory) / f"command-{layout}-{bits}.wav"
    width = [] if bits is None else ["--bits", str(bits)]
    room = [] if preset is None else ["--preset", preset]
    command = [os.environ["TARN"], "upmix", "--quiet", "--force", "--layout", layout, *room, *width, *options]
    subprocess.run([*command, source, target], check=True)
    return read_samples(target)[0]


def live_output(samples, rate, phase, *options):
    """The output of the command for samples, [frames, 2] left-aligned in 32 bits, as [frames, 3] floats. The samples
    start at frame phase of a block of 64, as in a host that has been running before.
    """
    stream = numpy.concatenate([numpy.zeros((phase, 2), numpy.int32), samples]).astype("<i4")
    command = [os.environ["TARN"], "upmix", "--quiet", "--preset", "plain", *options, "--raw", f"{rate}:32", "-", "-"]
    upmixed = subprocess.run(command, input=stream.tobytes(), capture_output=True, check=True).stdout
    return as_floats(numpy.frombuffer(upmixed, "<i4").reshape(-1, 3)[phase:])


def command_beside(given, played, rate):
    """The output of the command for the played samples, [frames, 2] floats, with the delay of the host, and this
    delay in frames. Finds the phase of the blocks by comparing the start of the host's output.
    """
    samples = (played.astype(numpy.float64) * FULL_SCALE).astype(numpy.int64).astype(numpy.int32)
    for phase in range(64):
        try:
            measured = position_of(given[:40000], live_output(samples[:20000], rate, phase)[:18000])
        except AssertionError:
            continue
        # The pre-ringing of the filters before the first frame is only in output that is not aligned.
        late = live_output(samples, rate, phase, "--no-align")
        silence = numpy.zeros((measured - ENGINE_LATENCY, 3), numpy.float32)
        return numpy.concatenate([silence, late])[: len(given)], measured
    raise AssertionError("no phase of the blocks gives the output of the host")


def off_and_on(given, played, rate):
    """Checks the output of a host that was bypassed for a while: the upmix, a linear fade to the input, a linear fade
    back. Samples outside the fades have to be exact. Returns the greatest difference in the fades in steps of 24
    bits, and the delay in frames.
    """
    wet, measured = command_beside(given, played, rate)
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

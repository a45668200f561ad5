"""What the tests of all hosts share: a known signal, what the command makes of it, and the row of the table that says
how a host compared.

A host that carries integers has to give the command's samples bit for bit, one that carries floats within one step of
24 bits. Hosts run headless, from the build tree, in a directory of their own that is removed.
"""

from dataclasses import dataclass
import json
import os
from pathlib import Path
import subprocess

import numpy
import soundfile

LATENCY = 1024  # frames of the streaming adapter, at every rate
ENGINE_LATENCY = 960  # of it, that of `tarn upmix --no-align`
FADE = 1024  # frames from on to off
FULL_SCALE = 2.0**31
SUBTYPES = {16: "PCM_16", 24: "PCM_24", 32: "PCM_32"}


def known_signal(frames, bits, seed=1):
    """[frames, 2] integers of a width, left-aligned in 32 bits: a tone that travels, a voice-like middle, wide noise."""
    random = numpy.random.default_rng(seed)
    time = numpy.arange(frames)
    place = 0.5 + 0.5 * numpy.sin(2 * numpy.pi * time / 30000)
    tone = 0.25 * numpy.sin(0.11 * time)
    middle = 0.2 * numpy.sin(0.031 * time) * (1 + numpy.sin(0.0005 * time)) / 2
    wide = 0.05 * random.standard_normal((frames, 2)).clip(-4, 4)
    stereo = wide + numpy.column_stack([tone * place + middle, tone * (1 - place) + middle])
    return numpy.round(stereo * 2 ** (bits - 1)).astype(numpy.int64).astype(numpy.int32) << (32 - bits)


def as_floats(samples):
    """Left-aligned integers as hosts have them that carry floats."""
    return samples.astype(numpy.float32) * numpy.float32(1 / FULL_SCALE)


def write_stereo(path, samples, rate, bits):
    """A WAV file of the left-aligned samples."""
    soundfile.write(path, samples, rate, subtype=SUBTYPES[bits])


def read_samples(path):
    """[frames, channels] left-aligned in 32 bits, and the rate."""
    return soundfile.read(path, dtype="int32", always_2d=True)


def command_output(source, directory, layout="3.0", bits=None, options=()):
    """What `tarn upmix` makes of a file: [frames, slots], left-aligned in 32 bits."""
    target = Path(directory) / f"command-{layout}-{bits}.wav"
    width = [] if bits is None else ["--bits", str(bits)]
    subprocess.run(
        [os.environ["TARN"], "upmix", "--quiet", "--force", "--layout", layout, *width, *options, source, target],
        check=True,
    )
    return read_samples(target)[0]


def live_output(samples, rate, phase, *options):
    """What the command makes of samples, [frames, 2] left-aligned in 32 bits, in the blocks of a host that began long
    before: [frames, 3] floats. Phase says how many frames of the first block of 64 were over."""
    stream = numpy.concatenate([numpy.zeros((phase, 2), numpy.int32), samples]).astype("<i4")
    command = [os.environ["TARN"], "upmix", "--quiet", *options, "--raw", f"{rate}:32", "-", "-"]
    upmixed = subprocess.run(command, input=stream.tobytes(), capture_output=True, check=True).stdout
    return as_floats(numpy.frombuffer(upmixed, "<i4").reshape(-1, 3)[phase:])


def command_beside(given, played, rate):
    """What the command makes of what was played, [frames, 2] floats, as late as the host gave it, and how many frames
    that is. Which frames of the first block were over is found from the beginning of what the host gave."""
    samples = (played.astype(numpy.float64) * FULL_SCALE).astype(numpy.int64).astype(numpy.int32)
    for phase in range(64):
        try:
            measured = position_of(given[:40000], live_output(samples[:20000], rate, phase)[:18000])
        except AssertionError:
            continue
        # What sounds before the first frame, as filters of this kind do, is in the output that is not aligned only.
        late = live_output(samples, rate, phase, "--no-align")
        silence = numpy.zeros((measured - ENGINE_LATENCY, 3), numpy.float32)
        return numpy.concatenate([silence, late])[: len(given)], measured
    raise AssertionError("no beginning of blocks gives what the host gave")


def off_and_on(given, played, rate):
    """That a host that was switched off and on again gave the upmix, then a straight fade to what was played, then one
    back. Returns the greatest difference in the fades, in steps of 24 bits; elsewhere there is none; and the frames by
    which it was late."""
    wet, measured = command_beside(given, played, rate)
    plain = numpy.zeros_like(wet)
    plain[measured:, :2] = played[:-measured]
    off = int(numpy.argmin((given == wet).all(axis=1)))
    on = off + FADE + int(numpy.argmin((given == plain).all(axis=1)[off + FADE :]))
    assert 0 < off < off + FADE < on < on + FADE < len(given), (off, on)
    assert (given[on + FADE :] == wet[on + FADE :]).all(), "the upmix is back, as if it had never been off"
    share = numpy.interp(numpy.arange(len(wet)), [off - 1, off - 1 + FADE, on - 1, on - 1 + FADE], [1, 0, 0, 1])[
        :, None
    ]
    difference = float(numpy.abs(share * wet + (1 - share) * plain - given).max()) * 2**23
    assert difference <= 1, difference
    return difference, measured


def position_of(recording, expected, least=2000):
    """The frame of a recording at which the expected samples begin, bit for bit, found by the loudest stretch."""
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
        raise AssertionError("the expected samples are not in what the host played")
    return at // frame_bytes - start


@dataclass
class Row:
    """A line of the table."""

    host: str
    compared: int  # samples
    greatest_difference: float  # steps of the width compared at
    width: int  # bits
    reported_latency: str  # frames that the host is told, or why it cannot be
    measured_latency: int  # frames


def passed(row):
    """Adds a row to the table; call it when everything has been checked."""
    folder = Path(os.environ["TARN_HOSTS_TABLE"])
    folder.mkdir(parents=True, exist_ok=True)
    name = "".join(c if c.isalnum() else "-" for c in row.host.lower())
    (folder / f"{name}.json").write_text(json.dumps({"test": os.environ["TARN_HOSTS_TEST"], **row.__dict__}) + "\n")

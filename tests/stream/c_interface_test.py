#!/usr/bin/env python3
"""Upmixes a file through the C interface from Python, and compares every sample with the output of the tarn command.

    tests/stream/c_interface_test.py LIBRARY TARN

Standard library only.
"""
# SPDX-License-Identifier: MIT

import array
import ctypes
import math
from pathlib import Path
import random
import subprocess
import sys
import tempfile
import wave

RATE = 44100
FRAMES = 20000


class Slot(ctypes.Structure):
    _fields_ = [("source", ctypes.c_uint32), ("index", ctypes.c_uint32)]


class Configuration(ctypes.Structure):
    """tarn_configuration"""

    _fields_ = [
        ("size", ctypes.c_uint32),
        ("sample_rate", ctypes.c_uint32),
        ("format", ctypes.c_uint32),
        ("input_slots", ctypes.c_uint32),
        ("left_slot", ctypes.c_uint32),
        ("right_slot", ctypes.c_uint32),
        ("output_slots", ctypes.c_uint32),
        ("outputs", Slot * 8),
        ("remap", ctypes.c_uint32),
        ("gains", (ctypes.c_int32 * 4) * 3),
        ("mode", ctypes.c_uint32),
        ("limiter", ctypes.c_uint32),
        ("bass", ctypes.c_uint32),
    ]


TARN_S16 = 0
TARN_OK = 0


def load(path):
    """The library with the argument types of the functions used here."""
    library = ctypes.CDLL(path)
    library.tarn_process.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_size_t]
    library.tarn_drain.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_size_t]
    library.tarn_drain.restype = ctypes.c_size_t
    library.tarn_destroy.argtypes = [ctypes.c_void_p]
    library.tarn_status_text.restype = ctypes.c_char_p
    return library


def stereo_samples():
    """Interleaved 16-bit stereo: a tone in the middle, noise on the left."""
    noise = random.Random(1)
    samples = array.array("h")
    for i in range(FRAMES):
        tone = 8000 * math.sin(0.05 * i)
        samples.append(round(tone) + noise.randrange(-4000, 4000))
        samples.append(round(tone))
    return samples


def upmixed(library, samples):
    """Front left, front right and centre, interleaved, aligned with the input and as long."""
    configuration = Configuration()
    library.tarn_defaults(ctypes.byref(configuration), ctypes.c_size_t(ctypes.sizeof(configuration)))
    configuration.sample_rate = RATE
    configuration.format = TARN_S16
    stream = ctypes.c_void_p()
    status = library.tarn_create(ctypes.byref(configuration), ctypes.byref(stream))
    if status != TARN_OK:
        sys.exit(library.tarn_status_text(status).decode())
    latency = library.tarn_latency_frames()

    output = array.array("h", bytes(2 * 3 * (FRAMES + latency)))
    source, target = samples.buffer_info()[0], output.buffer_info()[0]
    done = 0
    while done < FRAMES:
        count = min(333, FRAMES - done)
        library.tarn_process(stream, source + 4 * done, target + 6 * done, count)
        done += count
    drained = library.tarn_drain(stream, target + 6 * done, latency)
    library.tarn_destroy(stream)
    assert drained == latency, drained
    return output[3 * latency :]


def main():
    library_path, tarn = sys.argv[1:]
    samples = stereo_samples()
    with tempfile.TemporaryDirectory() as directory:
        source, target = Path(directory) / "in.wav", Path(directory) / "out.wav"
        with wave.open(str(source), "wb") as file:
            file.setparams((2, 2, RATE, 0, "NONE", ""))
            file.writeframes(samples.tobytes())
        subprocess.run([tarn, "upmix", "--quiet", "--preset", "plain", str(source), str(target)], check=True)
        # The samples are at the end of the file. The module wave does not read files with channel masks.
        expected = array.array("h", target.read_bytes()[-2 * 3 * FRAMES :])
    result = upmixed(load(library_path), samples)
    differing = sum(a != b for a, b in zip(result, expected))
    assert len(result) == len(expected), (len(result), len(expected))
    assert differing == 0, f"{differing} samples differ"
    assert max(result) > 4000, "nothing was upmixed"


main()

#!/usr/bin/env python3
"""Loads the LADSPA plug-in and calls it with all sequences that LADSPA allows: ladspa_calls_test.py PLUGIN.

The plug-in converts floats to 32-bit integers and back: every sample has to equal the command's output at 32 bits,
rounded to a float. The descriptor is read with the types of ladspa.h.
"""
# SPDX-License-Identifier: MIT

import ctypes
from ctypes import CFUNCTYPE, POINTER, c_char_p, c_float, c_int, c_ulong, c_void_p
from pathlib import Path
import sys
import tempfile

import numpy

from float_mode import FlushToZero
from host_test import LATENCY, Row, as_floats, command_output, known_signal, passed, position_of, write_stereo

IN, OUT, CONTROL, AUDIO = 1, 2, 4, 8  # LADSPA_PORT_...
INPLACE_BROKEN, HARD_RT_CAPABLE = 2, 4  # LADSPA_PROPERTY_...
FADE = 1024  # frames of a crossfade
NAN = float("nan")
GUARD = numpy.float32(-123.25)  # the value of memory around buffers


class Hint(ctypes.Structure):
    """LADSPA_PortRangeHint"""

    _fields_ = [("descriptor", c_int), ("lower", c_float), ("upper", c_float)]


class Descriptor(ctypes.Structure):
    """LADSPA_Descriptor"""


Descriptor._fields_ = [
    ("id", c_ulong),
    ("label", c_char_p),
    ("properties", c_int),
    ("name", c_char_p),
    ("maker", c_char_p),
    ("copyright", c_char_p),
    ("port_count", c_ulong),
    ("ports", POINTER(c_int)),
    ("port_names", POINTER(c_char_p)),
    ("hints", POINTER(Hint)),
    ("implementation_data", c_void_p),
    ("instantiate", CFUNCTYPE(c_void_p, POINTER(Descriptor), c_ulong)),
    ("connect_port", CFUNCTYPE(None, c_void_p, c_ulong, c_void_p)),
    ("activate", CFUNCTYPE(None, c_void_p)),
    ("run", CFUNCTYPE(None, c_void_p, c_ulong)),
    ("run_adding", c_void_p),
    ("set_run_adding_gain", c_void_p),
    ("deactivate", c_void_p),
    ("cleanup", CFUNCTYPE(None, c_void_p)),
]


def descriptors_of(plugin):
    """The descriptors of the plug-ins, by label."""
    function = ctypes.CDLL(plugin, mode=ctypes.DEFAULT_MODE).ladspa_descriptor
    function.restype = POINTER(Descriptor)
    function.argtypes = [c_ulong]
    found = {}
    while function(len(found)):
        found[function(len(found)).contents.label.decode()] = function(len(found)).contents
    assert not function(2**64 - 1)
    return found


class Instance:
    """An instance with its ports, found by their descriptors."""

    def __init__(self, descriptor, rate):
        self.calls = descriptor
        self.handle = descriptor.instantiate(ctypes.byref(descriptor), rate)
        assert self.handle, rate
        kinds = [descriptor.ports[i] for i in range(descriptor.port_count)]
        self.inputs = [i for i, kind in enumerate(kinds) if kind == IN | AUDIO]
        self.outputs = [i for i, kind in enumerate(kinds) if kind == OUT | AUDIO]
        controls = [i for i, kind in enumerate(kinds) if kind == IN | CONTROL]
        (self.latency_port,) = [i for i, kind in enumerate(kinds) if kind == OUT | CONTROL]
        assert descriptor.port_names[self.latency_port] == b"latency"
        self.on, self.mode, self.gain = self.controls = [c_float(1), c_float(1), c_float(0)]
        self.latency = c_float(-1)
        for port, place in zip([*controls, self.latency_port], [*self.controls, self.latency]):
            descriptor.connect_port(self.handle, port, ctypes.addressof(place))
        descriptor.activate(self.handle)

    def run(self, stereo, sizes, in_place=False, before_run=lambda frame: None):
        """Processes [frames, 2] floats into [frames, 3], in runs of repeating sizes."""
        result = numpy.empty((len(stereo), len(self.outputs)), numpy.float32)
        room = max(sizes)
        # Each port has memory of exactly one run, between guards.
        memory = numpy.full((6, room + 2), GUARD, numpy.float32)
        done = turn = 0
        while done < len(stereo):
            frames = min(sizes[turn % len(sizes)], len(stereo) - done)
            turn += 1
            for row, port in enumerate(self.inputs):
                memory[row, 1 : frames + 1] = stereo[done : done + frames, row] if row < 2 else 0.75
                self.connect(port, memory, row)
            for row, port in enumerate(self.outputs):
                self.connect(port, memory, row if in_place else 3 + row)
            memory[:, frames + 1] = GUARD
            before_run(done)
            self.calls.run(self.handle, frames)
            assert (memory[:, 0] == GUARD).all() and (memory[:, frames + 1] == GUARD).all()
            first = 0 if in_place else 3
            result[done : done + frames] = memory[first : first + 3, 1 : frames + 1].T
            done += frames
        assert self.latency.value == LATENCY
        return result

    def connect(self, port, memory, row):
        """Connects an audio port to a row, after its guard."""
        self.calls.connect_port(self.handle, port, memory[row, 1:].ctypes.data)

    def restart(self):
        """Clears the signal, as hosts do between songs. There is no deactivate."""
        self.calls.activate(self.handle)

    def close(self):
        self.calls.cleanup(self.handle)


def flushed(stereo, frames=LATENCY):
    """The signal with silence that flushes the tail."""
    return numpy.concatenate([stereo, numpy.zeros((frames, 2), stereo.dtype)])


class Comparison:
    """The number of compared samples, and the reported and the measured delay."""

    def __init__(self):
        self.samples = 0
        self.reported = self.measured = None

    def equal(self, result, expected, what):
        """Expects these samples after the latency, and silence in the first block."""
        self.measured = position_of(result[:6000], as_floats(expected[:4000]))
        assert self.measured == LATENCY, (what, self.measured)
        assert result.shape == (len(expected) + LATENCY, 3), what
        assert not result[:64].any(), what
        differing = numpy.count_nonzero(result[LATENCY:] != as_floats(expected))
        assert differing == 0, f"{what}: {differing} samples differ"
        self.samples += expected.size


def check_descriptors(descriptors):
    assert list(descriptors) == ["tarn_upmix", "tarn_upmix_3"]
    assert len({d.id for d in descriptors.values()}) == 2
    for label, descriptor in descriptors.items():
        assert descriptor.properties == HARD_RT_CAPABLE, "in-place capable, no real-time dependency"
        assert descriptor.id < 1000
        kinds = [descriptor.ports[i] for i in range(descriptor.port_count)]
        assert kinds.count(IN | AUDIO) == (3 if label.endswith("_3") else 2)
        assert kinds.count(OUT | AUDIO) == 3
        assert not descriptor.deactivate, "the tests call no deactivate"
        for rate in (0, 8000, 22050, 47999, 384000, 2**32 + 48000):
            assert not descriptor.instantiate(ctypes.byref(descriptor), rate), rate


def check_sizes(descriptor, stereo, expected, rate, comparison):
    """Odd and changing sizes, runs without frames, in place or not; one instance, activated before each."""
    instance = Instance(descriptor, rate)
    for sizes in ([64], [1], [37], [100], [1024], [0, 1, 63, 0, 65, 4096, 2, 7], [len(stereo) + LATENCY]):
        for in_place in (False, True):
            result = instance.run(flushed(stereo), sizes, in_place)
            comparison.equal(result, expected, f"{rate} Hz, runs of {sizes}, in place: {in_place}")
            instance.run(stereo[:777], [100])  # activation has to clear these
            instance.restart()
    comparison.reported = int(instance.latency.value)
    instance.close()


def check_unconnected(descriptor, stereo, expected, comparison):
    """Unconnected controls have their defaults."""
    handle = descriptor.instantiate(ctypes.byref(descriptor), 48000)
    signal = numpy.ascontiguousarray(flushed(stereo).T)
    result = numpy.empty((3, signal.shape[1]), numpy.float32)
    audio = [i for i in range(descriptor.port_count) if descriptor.ports[i] & AUDIO]
    inputs = [*signal, numpy.zeros_like(signal[0])][: len(audio) - 3]
    for port, row in zip(audio, [*inputs, *result]):
        descriptor.connect_port(handle, port, row.ctypes.data)
    elsewhere = numpy.full(signal.shape[1], NAN, numpy.float32)
    for port in (descriptor.port_count, 1000, 2**32 - 1, 2**64 - 1):  # no such ports
        descriptor.connect_port(handle, port, elsewhere.ctypes.data)
    descriptor.activate(handle)
    descriptor.run(handle, signal.shape[1])
    descriptor.cleanup(handle)
    assert numpy.isnan(elsewhere).all(), "memory that is not connected is not written"
    comparison.equal(result.T, expected, "no controls connected")


def check_two_instances(descriptors, stereo, expected, comparison):
    """Two instances, alternating, with different signals and sizes."""
    first, second = (Instance(descriptors[label], 48000) for label in descriptors)
    other = []

    def run_other(frame):
        other.append(second.run(flushed(stereo[::-1])[frame : frame + 500], [37]))

    result = first.run(flushed(stereo), [500], before_run=run_other)
    comparison.equal(result, expected, "the first of two instances")
    first.close()
    alone = Instance(descriptors["tarn_upmix"], 48000)
    assert (numpy.concatenate(other) == alone.run(flushed(stereo[::-1]), [64])).all(), "the second of two instances"
    alone.close()
    second.close()


def check_flush_to_zero(descriptor, stereo, directory, comparison):
    """Flush-to-zero in the thread changes no sample, and stays set."""
    # The engine's filters decay through subnormal numbers in the silence.
    signal = numpy.concatenate([stereo[:20000], numpy.zeros((48000, 2), stereo.dtype), stereo[:20000]])
    write_stereo(directory / "decay.wav", signal, 48000, 24)
    expected = command_output(directory / "decay.wav", directory, bits=32)
    instance = Instance(descriptor, 48000)
    with FlushToZero() as mode:
        assert mode.holds()
        result = instance.run(as_floats(flushed(signal)), [256])
        assert mode.holds(), "the thread's mode is restored"
    instance.close()
    comparison.equal(result, expected, "flush-to-zero")


def check_controls(descriptor, stereo, source, directory, comparison):
    """Mode and make-up gain equal those of the command; wrong values have defined results."""
    signal = flushed(as_floats(stereo))
    calm, fast = (command_output(source, directory, bits=32, options=["--mode", mode]) for mode in ("calm", "fast"))
    assert (calm != fast).any(), "precondition of this test"
    for mode, gain, options in (
        (1, -6.5, ["--gain", "-6.5"]),
        (1, 3, ["--gain", "3"]),
        (2, 0, ["--mode", "calm"]),
        (1.5, 0, ["--mode", "calm"]),
        (numpy.nextafter(numpy.float32(1.5), numpy.float32(0)), 0, []),
        (2, -60, ["--mode", "calm", "--gain", "-60"]),
        (NAN, NAN, []),
    ):
        instance = Instance(descriptor, 48000)
        instance.on.value = mode  # on, or NaN
        instance.mode.value, instance.gain.value = mode, gain
        expected = command_output(source, directory, bits=32, options=options)
        comparison.equal(instance.run(signal, [480]), expected, f"mode {mode}, gain {gain} dB")
        instance.close()
    check_changing_gain(descriptor, signal, source, directory, comparison)
    for wrong in (NAN, float("inf"), float("-inf"), 1e30):
        instance = Instance(descriptor, 48000)
        instance.on.value = instance.mode.value = instance.gain.value = wrong
        assert numpy.abs(instance.run(signal, [480])).max() <= 1, wrong
        instance.close()


def check_changing_gain(descriptor, signal, source, directory, comparison):
    """Gain changes while playing. NaN is 0 dB and has no later effect."""
    quieter, louder = (-6.5, ["--gain", "-6.5"]), (3, ["--gain", "3"])
    changes = {0: (0, []), 12000: quieter, 24000: (0, []), 36000: louder, 48000: (NAN, [])}
    instance = Instance(descriptor, 48000)

    def change(frame):
        if frame in changes:
            instance.gain.value = changes[frame][0]

    result = instance.run(signal, [500], before_run=change)
    instance.close()
    for begin, (gain, options) in changes.items():
        steady = slice(begin + 64 + FADE if begin else LATENCY, begin + 12000)
        expected = as_floats(command_output(source, directory, bits=32, options=options))
        expected = expected[steady.start - LATENCY : steady.stop - LATENCY]
        assert (result[steady] == expected).all(), f"{gain} dB from {begin}"
        comparison.samples += expected.size


def check_click(descriptor, stereo, expected, off_value):
    """Bypass for a while: a linear fade connects the upmix and the plain input, which have the same latency, so there
    is no click.
    """
    off, on = 64 * 300, 64 * 700
    wet = numpy.zeros((len(stereo) + LATENCY, 3))
    wet[LATENCY:] = expected * 2.0**-31
    dry = numpy.zeros_like(wet)
    dry[LATENCY:, :2] = stereo * 2.0**-31
    # A change before a run applies to the block that starts there, which is returned one block later.
    share = numpy.interp(numpy.arange(len(wet)), [off + 63, off + 63 + FADE, on + 63, on + 63 + FADE], [1, 0, 0, 1])
    wanted = share[:, None] * wet + (1 - share[:, None]) * dry

    instance = Instance(descriptor, 48000)

    def switch(frame):
        instance.on.value = off_value if off <= frame < on else 1

    result = instance.run(flushed(as_floats(stereo)), [64], before_run=switch)
    instance.close()
    difference = numpy.abs(result - wanted)[LATENCY:].max() * 2**23
    assert difference <= 1, f"{difference} steps of 24 bits from the fade"
    assert (result[off + 64 + FADE : on + 64] == dry[off + 64 + FADE : on + 64]).all()
    assert numpy.abs(wet - dry).max() > 0.05, "precondition of this test"

    instance = Instance(descriptor, 48000)
    instance.on.value = off_value
    bypassed = instance.run(flushed(as_floats(stereo)), [100])
    instance.close()
    assert (bypassed == dry).all(), "bypass from the start: left, right and silence with the same latency"


def check_ten_minutes(descriptor, directory, comparison):
    """Ten minutes without a lost or shifted sample."""
    minute = known_signal(60 * 48000 + 7, 24, seed=3)
    stereo = numpy.tile(minute, (10, 1))
    write_stereo(directory / "long.wav", stereo, 48000, 24)
    expected = command_output(directory / "long.wav", directory, bits=32)
    instance = Instance(descriptor, 48000)
    result = instance.run(flushed(as_floats(stereo)), [1000, 1024, 333, 4096])
    instance.close()
    comparison.equal(result, expected, "ten minutes")


def main():
    descriptors = descriptors_of(sys.argv[1])
    check_descriptors(descriptors)
    two = descriptors["tarn_upmix"]
    comparison = Comparison()
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        for rate, frames in ((96000, 10000), (44100, 10000), (48000, 60000)):
            stereo = known_signal(frames, 24)
            source = directory / f"{rate}.wav"
            write_stereo(source, stereo, rate, 24)
            expected = command_output(source, directory, bits=32)
            for descriptor in descriptors.values():
                check_sizes(descriptor, as_floats(stereo), expected, rate, comparison)
        for descriptor in descriptors.values():
            check_unconnected(descriptor, as_floats(stereo), expected, comparison)
        check_two_instances(descriptors, as_floats(stereo), expected, comparison)
        check_flush_to_zero(two, stereo, directory, comparison)
        check_controls(two, stereo, source, directory, comparison)
        for off_value in (0, -1):
            check_click(two, stereo, expected, off_value)
        check_ten_minutes(two, directory, comparison)
    passed(Row("LADSPA, every call", comparison.samples, 0, 24, str(comparison.reported), comparison.measured))


main()

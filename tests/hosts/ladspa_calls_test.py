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
from host_test import (
    FADE,
    LATENCY,
    SETTLED,
    Row,
    as_floats,
    command_output,
    known_signal,
    passed,
    position_of,
    without_lfe,
    write_stereo,
)

# Label of a plug-in: layout and preset of the command with the same output.
PLUGINS = {
    "tarn_upmix": ("3.0", None),
    "tarn_upmix_3": ("3.0", None),
    "tarn_upmix51": ("5.1", None),
    "tarn_upmix51_5": ("5.1", None),
    "tarn_upmix71": ("7.1", None),
    "tarn_upmix71_7": ("7.1", None),
    "tarn_dialogue": ("2.0", "voice"),
}
PRESETS = ("film", "music", "voice", "plain")  # values 1 to 4 of the control

IN, OUT, CONTROL, AUDIO = 1, 2, 4, 8  # LADSPA_PORT_...
INPLACE_BROKEN, HARD_RT_CAPABLE = 2, 4  # LADSPA_PROPERTY_...
BOUNDED, TOGGLED, INTEGER = 3, 4, 32  # LADSPA_HINT_..., bounded on both sides
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


def hinted_default(hint):
    """The default of a control by ladspa.h."""
    kind = hint.descriptor & 0x3C0
    weights = {0x40: (1, 0), 0x80: (0.75, 0.25), 0xC0: (0.5, 0.5), 0x100: (0.25, 0.75), 0x140: (0, 1)}
    if kind in weights:
        return weights[kind][0] * hint.lower + weights[kind][1] * hint.upper
    return {0x200: 0, 0x240: 1, 0x280: 100, 0x2C0: 440}[kind]


class Instance:
    """An instance with its ports, found by their descriptors. Controls are found by the first word of their names and
    have the hinted defaults, or are not connected.
    """

    def __init__(self, descriptor, rate=48000, connected=True, **values):
        self.calls = descriptor
        self.handle = descriptor.instantiate(ctypes.byref(descriptor), rate)
        assert self.handle, rate
        kinds = [descriptor.ports[i] for i in range(descriptor.port_count)]
        self.inputs = [i for i, kind in enumerate(kinds) if kind == IN | AUDIO]
        self.outputs = [i for i, kind in enumerate(kinds) if kind == OUT | AUDIO]
        (self.latency_port,) = [i for i, kind in enumerate(kinds) if kind == OUT | CONTROL]
        assert descriptor.port_names[self.latency_port] == b"latency"
        self.latency = c_float(-1)
        descriptor.connect_port(self.handle, self.latency_port, ctypes.addressof(self.latency))
        self.controls = {}
        for port in (i for i, kind in enumerate(kinds) if kind == IN | CONTROL and connected):
            name = descriptor.port_names[port].decode().split()[0].lower()
            self.controls[name] = c_float(values.pop(name, hinted_default(descriptor.hints[port])))
            descriptor.connect_port(self.handle, port, ctypes.addressof(self.controls[name]))
        assert not values, values
        descriptor.activate(self.handle)

    def run(self, stereo, sizes, in_place=False, before_run=lambda frame: None):
        """Processes [frames, 2] floats into [frames, outputs], in runs of repeating sizes."""
        count = len(self.outputs)
        result = numpy.empty((len(stereo), count), numpy.float32)
        room = max(sizes)
        # Each port has memory of exactly one run, between guards.
        memory = numpy.full((7 + count, room + 2), GUARD, numpy.float32)
        first = 0 if in_place else 7
        done = turn = 0
        while done < len(stereo):
            frames = min(sizes[turn % len(sizes)], len(stereo) - done)
            turn += 1
            for row, port in enumerate(self.inputs):
                memory[row, 1 : frames + 1] = stereo[done : done + frames, row] if row < 2 else 0.75
                self.connect(port, memory, row)
            for row, port in enumerate(self.outputs):
                self.connect(port, memory, first + row)
            memory[:, frames + 1] = GUARD
            before_run(done)
            self.calls.run(self.handle, frames)
            assert (memory[:, 0] == GUARD).all() and (memory[:, frames + 1] == GUARD).all()
            result[done : done + frames] = memory[first : first + count, 1 : frames + 1].T
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


def controls_of(label):
    """First word of the name, kind, bounds and default of the controls of a plug-in. The bounds of integers are wider."""
    dialogue = label == "tarn_dialogue"
    yield "Upmix", TOGGLED, 0, 0, 1
    yield "Mode", BOUNDED | INTEGER, c_float(0.9).value, c_float(2.1).value, 1
    yield "Preset", BOUNDED | INTEGER, c_float(-0.1).value, c_float(4.1).value, 0
    yield "Make-up", BOUNDED, *((-60, 18, 0) if dialogue else (-42, 18, 3))
    yield "Limiter", TOGGLED, 0, 0, 1
    yield "Centre", BOUNDED, *((-12, 12, 6) if dialogue else (-60, 12, 0))
    if not dialogue:
        yield "Width", BOUNDED, 0, 1, 1
        yield "Bass", TOGGLED, 0, 0, 1
    if PLUGINS[label][0] in ("5.1", "7.1"):
        yield "Surrounds", BOUNDED, -48, 12, -3
    yield "latency", BOUNDED | INTEGER, 0, LATENCY, LATENCY


class Comparison:
    """The number of compared samples, and the reported and the measured delay."""

    def __init__(self):
        self.samples = 0
        self.reported = self.measured = None

    def equal(self, result, expected, what):
        """Expects these samples after the latency, and silence in the first block."""
        self.measured = position_of(result[:6000], as_floats(expected[:4000]))
        assert self.measured == LATENCY, (what, self.measured)
        assert result.shape == (len(expected) + LATENCY, expected.shape[1]), what
        assert not result[:64].any(), what
        differing = numpy.count_nonzero(result[LATENCY:] != as_floats(expected))
        assert differing == 0, f"{what}: {differing} samples differ"
        self.samples += expected.size


def check_descriptors(descriptors):
    assert list(descriptors) == list(PLUGINS)
    assert [descriptor.id for descriptor in descriptors.values()] == list(range(641, 648))
    for label, descriptor in descriptors.items():
        layout = PLUGINS[label][0]
        assert descriptor.properties == HARD_RT_CAPABLE, "in-place capable, no real-time dependency"
        kinds = [descriptor.ports[i] for i in range(descriptor.port_count)]
        outputs = {"2.0": 2, "3.0": 3, "5.1": 5, "7.1": 7}[layout]
        assert kinds.count(OUT | AUDIO) == outputs
        assert kinds.count(IN | AUDIO) == (outputs if label[-2:] == f"_{outputs}" else 2), label
        for port, expected in zip(
            (i for i, kind in enumerate(kinds) if kind & CONTROL), controls_of(label), strict=True
        ):
            name, hint = descriptor.port_names[port].decode(), descriptor.hints[port]
            control = name.split()[0], hint.descriptor & 0x3F, hint.lower, hint.upper, hinted_default(hint)
            assert control == expected, (label, control, expected)
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
    """Unconnected controls have their defaults; connections to ports that do not exist have no effect."""
    instance = Instance(descriptor, connected=False)
    elsewhere = numpy.full(1000, NAN, numpy.float32)

    def connect_others(_frame):
        for port in (descriptor.port_count, 1000, 2**32 - 1, 2**64 - 1):
            descriptor.connect_port(instance.handle, port, elsewhere.ctypes.data)

    result = instance.run(flushed(stereo), [1000], before_run=connect_others)
    comparison.equal(result, expected, "no controls connected")
    assert numpy.isnan(elsewhere).all(), "memory that is not connected is not written"
    instance.close()


def check_two_instances(descriptors, stereo, expected, comparison):
    """Two instances, alternating, with different signals and sizes."""
    first, second = Instance(descriptors["tarn_upmix"]), Instance(descriptors["tarn_upmix51_5"])
    other = []

    def run_other(frame):
        other.append(second.run(flushed(stereo[::-1])[frame : frame + 500], [37]))

    result = first.run(flushed(stereo), [500], before_run=run_other)
    comparison.equal(result, expected, "the first of two instances")
    first.close()
    alone = Instance(descriptors["tarn_upmix51"])
    assert (numpy.concatenate(other) == alone.run(flushed(stereo[::-1]), [64])).all(), "the second of two instances"
    alone.close()
    second.close()


def check_flush_to_zero(descriptor, stereo, directory, comparison):
    """Flush-to-zero in the thread changes no sample, and stays set."""
    # The engine's filters decay through subnormal numbers in the silence.
    signal = numpy.concatenate([stereo[:20000], numpy.zeros((48000, 2), stereo.dtype), stereo[:20000]])
    write_stereo(directory / "decay.wav", signal, 48000, 24)
    expected = command_output(directory / "decay.wav", directory, bits=32)
    instance = Instance(descriptor)
    with FlushToZero() as mode:
        assert mode.holds()
        result = instance.run(as_floats(flushed(signal)), [256])
        assert mode.holds(), "the thread's mode is restored"
    instance.close()
    comparison.equal(result, expected, "flush-to-zero")


def check_controls(descriptors, stereo, source, directory, comparison):
    """Every control has the effect of an option of the command; wrong values have defined results."""
    signal = flushed(as_floats(stereo))
    outputs = set()
    for label, values, preset, options in (
        ("tarn_upmix", {"make-up": -6.5}, None, ["--gain", "-6.5"]),
        ("tarn_upmix", {"make-up": 18}, None, ["--gain", "18"]),  # the limiter works
        ("tarn_upmix", {"make-up": 18, "limiter": 0}, None, ["--gain", "18", "--no-limiter"]),
        ("tarn_upmix", {"mode": 2}, None, ["--mode", "calm"]),
        ("tarn_upmix", {"mode": 1.5, "make-up": -60}, None, ["--mode", "calm", "--gain", "-60"]),
        ("tarn_upmix", {"centre": -60}, None, ["--centre", "-60"]),
        ("tarn_upmix", {"centre": 4.5}, None, ["--centre", "4.5"]),
        ("tarn_upmix", {"width": 0}, None, ["--width", "0"]),
        ("tarn_upmix", {"width": 0.25}, None, ["--width", "0.25"]),
        ("tarn_upmix", {"bass": 0}, None, ["--bass", "steered"]),
        ("tarn_upmix", {"bass": -1, "limiter": -1, "make-up": 0}, "plain", []),
        ("tarn_upmix51", {"surrounds": 0}, None, ["--surrounds", "0"]),
        ("tarn_upmix71", {"surrounds": -20}, None, ["--surrounds", "-20"]),
        ("tarn_upmix71", {"surrounds": -47.5}, None, ["--surrounds", "-47.5"]),
        ("tarn_upmix51", {"surrounds": -48}, None, ["--surrounds", "off"]),
        ("tarn_dialogue", {"centre": 12}, "voice", ["--centre", "12"]),
        ("tarn_dialogue", {"centre": -60}, "voice", ["--centre", "-60"]),
        ("tarn_dialogue", {"centre": 0, "make-up": 15}, None, ["--gain", "15"]),
    ):
        layout = PLUGINS[label][0]
        expected = without_lfe(command_output(source, directory, layout, 32, options, preset))
        outputs.add(expected.tobytes())
        played = played_once(descriptors[label], signal, **values)
        comparison.equal(played, expected, f"{label} with {values}")
    assert len(outputs) == 18, "two settings have the same output"

    for label, (layout, _) in PLUGINS.items():
        for value, preset in enumerate(PRESETS, 1):
            expected = without_lfe(command_output(source, directory, layout, 32, preset=preset))
            # A preset replaces the other controls.
            played = played_once(descriptors[label], signal, preset=value, limiter=0, **{"make-up": -20, "centre": -20})
            comparison.equal(played, expected, f"{label}, preset {preset}")
    check_values_that_are_rounded(descriptors["tarn_upmix51"], signal, comparison)
    for wrong in (NAN, float("inf"), float("-inf"), 1e30, -1e30):
        instance = Instance(descriptors["tarn_upmix51"])
        for control in instance.controls.values():
            control.value = wrong
        assert numpy.abs(instance.run(signal, [480])).max() <= 1, wrong
        instance.close()


def played_once(descriptor, signal, **values):
    """The output of an instance with these values of controls."""
    instance = Instance(descriptor, **values)
    result = instance.run(signal, [480])
    instance.close()
    return result


def check_values_that_are_rounded(descriptor, signal, comparison):
    """Values between two choices, beyond the range, and NaN, which is the default."""
    film, plain = played_once(descriptor, signal), played_once(descriptor, signal, preset=4)
    defaults = {name: NAN for name in Instance(descriptor).controls}
    below = {"mode": numpy.nextafter(numpy.float32(1.5), numpy.float32(0)), "preset": 0.4, "upmix": 0.1, "bass": 0.1}
    for values, expected in ((defaults, film), (below, film), ({"preset": 3.6}, plain), ({"preset": 99}, plain)):
        assert (played_once(descriptor, signal, **values) == expected).all(), values
        comparison.samples += expected.size
    assert (played_once(descriptor, signal, preset=-5) == film).all()


# Changes while playing: a control, its value, and the preset and the options of the command for it.
CHANGES = (
    ("tarn_upmix", "make-up", -6.5, None, ("--gain", "-6.5")),
    ("tarn_upmix", "centre", -12, None, ("--centre", "-12")),
    ("tarn_upmix", "width", 0, None, ("--width", "0")),
    ("tarn_upmix", "bass", 0, None, ("--bass", "steered")),
    ("tarn_upmix51", "surrounds", -48, None, ("--surrounds", "off")),
    ("tarn_upmix51", "preset", 2, "music", ()),
    ("tarn_upmix51", "preset", 4, "plain", ()),
    ("tarn_dialogue", "centre", -12, "voice", ("--centre", "-12")),
)


def changed(descriptor, signal, control, value):
    """The output if a control has this value in every second part of 12000 frames."""
    instance = Instance(descriptor)
    values = instance.controls[control].value, value

    def change(frame):
        instance.controls[control].value = values[frame // 12000 % 2]

    result = instance.run(signal, [500], before_run=change)
    instance.close()
    return result


def check_changes(descriptors, stereo, source, directory, comparison):
    """A control changes while playing: steady samples are those of the command."""
    for label, control, value, preset, options in CHANGES:
        layout, default = PLUGINS[label]
        steady = [
            as_floats(without_lfe(command_output(source, directory, layout, 32, *settings)))
            for settings in (([], default), (options, preset))
        ]
        result = changed(descriptors[label], flushed(as_floats(stereo)), control, value)
        for turn in range(5):
            begin, end = 12000 * turn + FADE + SETTLED if turn else LATENCY, 12000 * (turn + 1)
            expected = steady[turn % 2][begin - LATENCY : end - LATENCY]
            assert (result[begin:end] == expected).all(), f"{control} of {label} from {begin}"
            comparison.samples += expected.size


def check_clicks(descriptors):
    """A control changes while tones play: no step is larger than those of both outputs and of the fade."""
    time = numpy.arange(60000)
    middle = 0.15 * numpy.sin(0.05 * time)
    sides = [0.3 * numpy.sin(0.03 * time), 0.3 * numpy.sin(0.033 * time)]
    tones = numpy.column_stack([middle + side for side in sides]).astype(numpy.float32)
    for label, control, value, _, _ in CHANGES:
        before, after = (played_once(descriptors[label], tones, **v)[4000:] for v in ({}, {control: value}))
        steepest = max(numpy.abs(numpy.diff(signal, axis=0)).max() for signal in (before, after))
        apart = numpy.abs(before - after).max()
        assert apart > 4 * steepest, f"a click of {control} would not be noticed: {apart}, {steepest}"
        result = changed(descriptors[label], tones, control, value)[4000:]
        steps = numpy.abs(numpy.diff(result, axis=0)).max()
        assert steps <= steepest + 2 * apart / FADE, (label, control, steps, steepest, apart)


def check_bypass(descriptor, stereo, expected, off_value):
    """Bypass for a while: a linear fade connects the upmix and the plain input, which have the same latency, so there
    is no click.
    """
    off, on = 64 * 300, 64 * 700
    wet = numpy.zeros((len(stereo) + LATENCY, expected.shape[1]))
    wet[LATENCY:] = expected * 2.0**-31
    dry = numpy.zeros_like(wet)
    dry[LATENCY:, :2] = stereo * 2.0**-31
    # A change before a run applies to the block that starts there, which is returned one block later.
    share = numpy.interp(numpy.arange(len(wet)), [off + 63, off + 63 + FADE, on + 63, on + 63 + FADE], [1, 0, 0, 1])
    wanted = share[:, None] * wet + (1 - share[:, None]) * dry

    instance = Instance(descriptor)

    def switch(frame):
        instance.controls["upmix"].value = off_value if off <= frame < on else 1

    result = instance.run(flushed(as_floats(stereo)), [64], before_run=switch)
    instance.close()
    difference = numpy.abs(result - wanted)[LATENCY:].max() * 2**23
    assert difference <= 1, f"{difference} steps of 24 bits from the fade"
    assert (result[off + 64 + FADE : on + 64] == dry[off + 64 + FADE : on + 64]).all()
    assert numpy.abs(wet - dry).max() > 0.05, "precondition of this test"

    bypassed = played_once(descriptor, flushed(as_floats(stereo)), upmix=off_value)
    assert (bypassed == dry).all(), "bypass from the start: left, right and silence with the same latency"


def check_ten_minutes(descriptor, directory, comparison):
    """Ten minutes without a lost or shifted sample."""
    minute = known_signal(60 * 48000 + 7, 24, seed=3)
    stereo = numpy.tile(minute, (10, 1))
    write_stereo(directory / "long.wav", stereo, 48000, 24)
    expected = command_output(directory / "long.wav", directory, bits=32)
    instance = Instance(descriptor)
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
            expected = {
                label: without_lfe(command_output(source, directory, layout, 32, preset=preset))
                for label, (layout, preset) in PLUGINS.items()
            }
            for label, descriptor in descriptors.items():
                check_sizes(descriptor, as_floats(stereo), expected[label], rate, comparison)
        for label, descriptor in descriptors.items():
            check_unconnected(descriptor, as_floats(stereo), expected[label], comparison)
        check_two_instances(descriptors, as_floats(stereo), expected["tarn_upmix"], comparison)
        check_flush_to_zero(two, stereo, directory, comparison)
        check_controls(descriptors, stereo, source, directory, comparison)
        check_changes(descriptors, stereo, source, directory, comparison)
        check_clicks(descriptors)
        for label in ("tarn_upmix", "tarn_upmix71"):
            for off_value in (0, -1):
                check_bypass(descriptors[label], stereo, expected[label], off_value)
        check_ten_minutes(two, directory, comparison)
    passed(Row("LADSPA, every call", comparison.samples, 0, 24, str(comparison.reported), comparison.measured))


main()

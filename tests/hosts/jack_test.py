#!/usr/bin/env python3
"""JACK, with the LV2 plug-in in jalv as docs/hosts/jack.md has it: switched off and on again by a line on jalv's input
while it plays, and with another buffer size than it began with.

The server has no sound card and runs free, as fast as everybody is done, so no sample depends on the machine's speed:
jack_test.py (LV2_PATH says where the bundle is).
"""

import contextlib
import ctypes
from ctypes import CFUNCTYPE, c_char_p, c_float, c_int, c_uint32, c_ulong, c_void_p
import os
from pathlib import Path
import subprocess
import tempfile
import time

import numpy

from host_test import LATENCY, Row, command_output, known_signal, passed, write_stereo

RATE = 48000
SIGNAL = 40 * RATE + 13
FULL_SCALE = 2.0**31
BLOCK = 64
LATENCY_SHOWN = f"playback latency = [ {LATENCY} {LATENCY} ] frames"  # by jack_lsp
FADE = 1024  # frames from on to off
PATIENCE = 60  # seconds of the clock, for anything to happen
AUDIO = b"32 bit float mono audio"
IS_INPUT, IS_OUTPUT, NO_START_SERVER = 1, 2, 1

library = ctypes.CDLL("libjack.so.0")
for name, result, arguments in (
    ("client_open", c_void_p, (c_char_p, c_int, c_void_p)),
    ("port_register", c_void_p, (c_void_p, c_char_p, c_char_p, c_ulong, c_ulong)),
    ("port_get_buffer", c_void_p, (c_void_p, c_uint32)),
    ("set_process_callback", c_int, (c_void_p, c_void_p, c_void_p)),
    ("set_freewheel", c_int, (c_void_p, c_int)),
    ("activate", c_int, (c_void_p,)),
    ("client_close", c_int, (c_void_p,)),
):
    getattr(library, f"jack_{name}").restype = result
    getattr(library, f"jack_{name}").argtypes = arguments


class Client:
    """A client with ports of one direction; cycle(buffers) is called with their samples."""

    def __init__(self, name, direction, ports, cycle):
        self.handle = library.jack_client_open(name.encode(), NO_START_SERVER, None)
        assert self.handle, "no JACK server"
        self.ports = [library.jack_port_register(self.handle, p.encode(), AUDIO, direction, 0) for p in ports]
        self.cycle = cycle
        self.callback = CFUNCTYPE(c_int, c_uint32, c_void_p)(self.process)
        library.jack_set_process_callback(self.handle, self.callback, None)
        assert library.jack_activate(self.handle) == 0

    def process(self, frames, _):
        addresses = (library.jack_port_get_buffer(port, frames) for port in self.ports)
        self.cycle([numpy.ctypeslib.as_array((c_float * frames).from_address(a)) for a in addresses])
        return 0

    def close(self):
        library.jack_client_close(self.handle)


class Tape:
    """What is played, from the moment that it runs, and what is recorded meanwhile."""

    def __init__(self, signal):
        self.signal, self.position, self.running = signal, 0, False
        self.recorded, self.sizes = [], set()

    def play(self, buffers):
        frames = min(len(buffers[0]), len(self.signal) - self.position) if self.running else 0
        for channel, buffer in enumerate(buffers):
            buffer[:] = 0
            buffer[:frames] = self.signal[self.position : self.position + frames, channel]
        self.position += frames

    def record(self, buffers):
        if self.running:
            self.recorded.append(numpy.column_stack(buffers))
            self.sizes.add(len(buffers[0]))

    def length(self):
        return sum(map(len, self.recorded))


def wait_for(condition, what):
    limit = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < limit, what
        time.sleep(0.005)


@contextlib.contextmanager
def running(*command, log):
    """A program that ends with the block."""
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=log, stderr=log, text=True, bufsize=1) as process:
        try:
            yield process
        finally:
            process.terminate()
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()


def succeeds(*command):
    return subprocess.run(command, capture_output=True, check=False).returncode == 0


def output_of(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout


def record(signal, log):
    """Plays a signal through jalv: what was recorded of [front left, front right, centre, left, right]."""
    os.environ["JACK_DEFAULT_SERVER"] = f"tarn-{os.getpid()}"
    os.environ["JACK_NO_AUDIO_RESERVATION"] = "1"
    tape = Tape(signal)
    server = ("jackd", "-n", os.environ["JACK_DEFAULT_SERVER"], "-r", "-t", "10000")
    with running(*server, "-d", "dummy", "-r", str(RATE), "-p", "1024", log=log):
        wait_for(lambda: succeeds("jack_lsp"), "no JACK server")
        with running("jalv", "-x", "-n", "tarn", "urn:tarn:upmix", log=log) as jalv:
            player = Client("player", IS_OUTPUT, ("left", "right"), tape.play)
            recorder = Client(
                "recorder", IS_INPUT, ("left", "right", "centre", "plain_left", "plain_right"), tape.record
            )
            for source, target in (
                ("player:left", "tarn:in_left"),
                ("player:right", "tarn:in_right"),
                ("tarn:out_left", "recorder:left"),
                ("tarn:out_right", "recorder:right"),
                ("tarn:out_centre", "recorder:centre"),
                ("player:left", "recorder:plain_left"),
                ("player:right", "recorder:plain_right"),
            ):
                wait_for(lambda: succeeds("jack_connect", source, target), f"{source} to {target}")
            wait_for(lambda: LATENCY_SHOWN in output_of("jack_lsp", "-l", "tarn:out_centre"), "no latency is shown")
            assert succeeds("jack_bufsize", "256"), "another buffer size"

            assert library.jack_set_freewheel(player.handle, 1) == 0
            tape.running = True
            for part, line in ((0.3, "set enabled 0"), (0.6, "set enabled 1")):
                wait_for(lambda: tape.position > part * len(signal), "the player stands still")
                jalv.stdin.write(line + "\n")
            wait_for(lambda: tape.position == len(signal), "the player does not come to its end")
            end = tape.length()
            wait_for(lambda: tape.length() > end + 2 * LATENCY, "the recorder stands still")
            tape.running = False
            assert library.jack_set_freewheel(player.handle, 0) == 0
            player.close()
            recorder.close()
    assert tape.sizes == {256}, tape.sizes
    return numpy.concatenate(tape.recorded)


def upmixed_by_command(samples, given, directory):
    """What the command makes of samples in the blocks that the plug-in has, which began long before: the frames of the
    first one that were over are found from the beginning of what was given."""
    source = directory / "phase.wav"
    first = 20000

    def output(count, phase):
        silence = numpy.zeros((phase, 2), samples.dtype)
        write_stereo(source, numpy.concatenate([silence, samples[:count]]), RATE, 32)
        return command_output(source, directory, bits=32)[phase:] / FULL_SCALE

    for phase in range(BLOCK):
        if (output(first, phase)[: first - LATENCY] == given[LATENCY:first]).all():
            return output(len(samples), phase)
    raise AssertionError("no beginning of blocks gives what jalv gave")


def compare(recording, wet, signal):
    """The upmix, then a straight fade to the plain signal, then one back; the greatest difference in the fades, in steps
    of 24 bits. Elsewhere there is none."""
    given = recording[:SIGNAL, :3]
    plain = numpy.column_stack([signal, numpy.zeros(SIGNAL)])
    off = int(numpy.argmin((given == wet).all(axis=1)))
    on = off + FADE + int(numpy.argmin((given == plain).all(axis=1)[off + FADE :]))
    assert 0 < off < off + FADE < on < on + FADE < SIGNAL, (off, on)
    assert (given[on + FADE :] == wet[on + FADE :]).all(), "the upmix is back, as if it had never been off"
    share = numpy.interp(numpy.arange(SIGNAL), [off - 1, off - 1 + FADE, on - 1, on - 1 + FADE], [1, 0, 0, 1])[:, None]
    difference = float(numpy.abs(share * wet + (1 - share) * plain - given).max()) * 2**23
    assert difference <= 1, difference
    return difference


def main():
    signal = known_signal(SIGNAL, 24, seed=5) / FULL_SCALE
    with tempfile.TemporaryDirectory() as name, open(Path(name) / "log", "w+", encoding="utf-8") as log:
        try:
            recording = record(signal, log)
            start = int(numpy.flatnonzero(recording[:, 3:].any(axis=1))[0] - numpy.flatnonzero(signal.any(axis=1))[0])
            recording = recording[start:]
            assert (recording[:SIGNAL, 3:] == signal).all(), "cycles were lost"
            samples = (recording[:, 3:] * FULL_SCALE).astype(numpy.int64).astype(numpy.int32)
            wet = upmixed_by_command(samples, recording[:, :3], Path(name))[:SIGNAL]
        except Exception:
            log.seek(0)
            print(log.read())
            raise
    passed(Row("JACK: jalv, off and on", SIGNAL * 3, compare(recording[LATENCY:], wet, signal), 24, str(LATENCY), LATENCY))


main()

"""Runs an LV2 plug-in in jalv under a separate JACK server. LV2_PATH names the folder of the bundle.

The server has no sound card and is in freewheel mode, so no sample depends on the machine's speed. One client plays
into jalv, another one records the output of jalv and of the first client.
"""
# SPDX-License-Identifier: MIT

import contextlib
import ctypes
from ctypes import CFUNCTYPE, c_char_p, c_float, c_int, c_uint32, c_ulong, c_void_p
import os
import subprocess
import tempfile
import threading
import time

import numpy

from host_test import LATENCY

TIMEOUT = 60  # seconds
AUDIO = b"32 bit float mono audio"
IS_INPUT, IS_OUTPUT, NO_START_SERVER = 1, 2, 1
CONNECTED_ALREADY = 17  # errno
PLAYBACK = 1  # of JackLatencyCallbackMode
INPUTS = (
    ("player:left", "recorder:played_left"),
    ("player:right", "recorder:played_right"),
    ("player:left", "tarn:in_left"),
    ("player:right", "tarn:in_right"),
)
# Outputs by plug-in.
OUTPUTS = {
    "urn:tarn:upmix": ("left", "right", "centre"),
    "urn:tarn:upmix-5.1": ("left", "right", "centre", "rear_left", "rear_right"),
    "urn:tarn:upmix-7.1": ("left", "right", "centre", "rear_left", "rear_right", "side_left", "side_right"),
    "urn:tarn:dialogue": ("left", "right"),
}

library = ctypes.CDLL("libjack.so.0")
for name, result, arguments in (
    ("client_open", c_void_p, (c_char_p, c_int, c_void_p)),
    ("port_register", c_void_p, (c_void_p, c_char_p, c_char_p, c_ulong, c_ulong)),
    ("port_by_name", c_void_p, (c_void_p, c_char_p)),
    ("port_get_buffer", c_void_p, (c_void_p, c_uint32)),
    ("port_get_latency_range", None, (c_void_p, c_int, c_void_p)),
    ("connect", c_int, (c_void_p, c_char_p, c_char_p)),
    ("set_process_callback", c_int, (c_void_p, c_void_p, c_void_p)),
    ("set_buffer_size", c_int, (c_void_p, c_uint32)),
    ("set_freewheel", c_int, (c_void_p, c_int)),
    ("activate", c_int, (c_void_p,)),
    ("client_close", c_int, (c_void_p,)),
):
    getattr(library, f"jack_{name}").restype = result
    getattr(library, f"jack_{name}").argtypes = arguments


class Disturbed(Exception):
    """The machine was too busy for clients that start and connect in real time."""


class Client:
    """A client with ports of one direction. Calls cycle(buffers) with their samples."""

    def __init__(self, name, direction, ports, cycle):
        self.handle = library.jack_client_open(name.encode(), NO_START_SERVER, None)
        if not self.handle:
            raise Disturbed("no JACK server")
        self.ports = [library.jack_port_register(self.handle, p.encode(), AUDIO, direction, 0) for p in ports]
        self.cycle = cycle
        self.callback = CFUNCTYPE(c_int, c_uint32, c_void_p)(self.process)
        library.jack_set_process_callback(self.handle, self.callback, None)
        assert library.jack_activate(self.handle) == 0

    def process(self, frames, _):
        addresses = (library.jack_port_get_buffer(port, frames) for port in self.ports)
        self.cycle([numpy.ctypeslib.as_array((c_float * frames).from_address(a)) for a in addresses])
        return 0


class Tape:
    """Plays a signal and records while running is set."""

    def __init__(self, signal):
        self.signal, self.position, self.running = signal, 0, False
        self.recorded = []
        self.going_on = threading.Event()
        self.going_on.set()

    @contextlib.contextmanager
    def held(self):
        """Holds the player, and with it the server in freewheel mode, during the block."""
        self.going_on.clear()
        yield
        self.going_on.set()

    def play(self, buffers):
        self.going_on.wait(TIMEOUT)
        frames = min(len(buffers[0]), len(self.signal) - self.position) if self.running else 0
        for channel, buffer in enumerate(buffers):
            buffer[:] = 0
            buffer[:frames] = self.signal[self.position : self.position + frames, channel]
        self.position += frames

    def record(self, buffers):
        if self.running:
            self.recorded.append(numpy.column_stack(buffers))

    def length(self):
        return sum(map(len, self.recorded))


def wait_for(condition, what):
    """Waits until the condition is true."""
    limit = time.monotonic() + TIMEOUT
    while not condition():
        if time.monotonic() > limit:
            raise Disturbed(what)
        time.sleep(0.005)


@contextlib.contextmanager
def running(*command, log):
    """Runs a program with an open standard input during the block."""
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=log, stderr=log, text=True, bufsize=1) as process:
        try:
            yield process
        finally:
            process.terminate()
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:  # jackd with a stuck client
                process.kill()


@contextlib.contextmanager
def shown_if_it_fails():
    """A log file that is printed after an error."""
    with tempfile.TemporaryFile("w+") as log:
        try:
            yield log
        except Exception:
            log.seek(0)
            print(log.read())
            raise


@contextlib.contextmanager
def dummy_server(rate, size, *options):
    """Runs a JACK server without a sound card during the block. Returns the file of its messages, which is printed after
    an error.
    """
    server = f"tarn{os.getpid()}x{rate}x{size}"
    os.environ["JACK_DEFAULT_SERVER"] = server
    os.environ["JACK_NO_AUDIO_RESERVATION"] = "1"
    dummy = ("-d", "dummy", "-r", str(rate), "-p", str(size), *options)
    with shown_if_it_fails() as log, running("jackd", "-n", server, "-r", "-t", "10000", *dummy, log=log):
        wait_for(lambda: subprocess.run(["jack_lsp"], capture_output=True).returncode == 0, "no JACK server")
        yield log


def jalv_output(*arguments, **named):
    """What jalv_run returns, from the first of three runs that was not disturbed."""
    for _ in range(2):
        try:
            return jalv_run(*arguments, **named)
        except Disturbed as reason:
            print(f"JACK was disturbed: {reason}; once more")
    return jalv_run(*arguments, **named)


def jalv_run(rate, sizes, signal, lines=(), plugin="urn:tarn:upmix", options=()):
    """Plays a signal, [frames, 2] floats, through a plug-in in jalv. The cycles have sizes[0] frames at first and
    sizes[1] while playing. lines are pairs of a position, 0 to 1, and a command for jalv. Returns the output
    of jalv, [frames, outputs], and the played samples, [frames, 2], both from the first frame of the signal on, and
    the latency that jalv reports, in frames.
    """
    outputs = OUTPUTS[plugin]
    tape = Tape(signal)
    with dummy_server(rate, sizes[0]) as log:
        with running("jalv", "-x", "-n", "tarn", *options, plugin, log=log) as jalv:
            player = Client("player", IS_OUTPUT, ("left", "right"), tape.play)
            ports = (*outputs, "played_left", "played_right")
            recorder = Client("recorder", IS_INPUT, ports, tape.record)
            for source, target in (*INPUTS, *((f"tarn:out_{port}", f"recorder:{port}") for port in outputs)):
                names = source.encode(), target.encode()
                wait_for(
                    lambda: library.jack_connect(player.handle, *names) in (0, CONNECTED_ALREADY),
                    f"{source} cannot be connected to {target}",
                )
            assert library.jack_set_buffer_size(player.handle, sizes[1]) == 0
            assert library.jack_set_freewheel(player.handle, 1) == 0
            tape.running = True
            for part, line in lines:
                wait_for(lambda: tape.position > part * len(signal), "the player stopped")
                with tape.held():  # jalv reads commands in real time
                    jalv.stdin.write(line + "\n")
                    time.sleep(1)
            wait_for(lambda: tape.position == len(signal), "the player does not finish")
            end = tape.length()
            wait_for(lambda: tape.length() > end + 2 * LATENCY, "the recorder stopped")
            tape.running = False
            assert library.jack_set_freewheel(player.handle, 0) == 0
            reported = (c_uint32 * 2)()
            library.jack_port_get_latency_range(
                library.jack_port_by_name(player.handle, f"tarn:out_{outputs[-1]}".encode()), PLAYBACK, reported
            )
            for client in (player, recorder):
                library.jack_client_close(client.handle)
    assert {len(cycle) for cycle in tape.recorded} == {sizes[1]}, "cycles of another size"
    recording = numpy.concatenate(tape.recorded)
    played = recording[:, len(outputs) :]
    start = int(numpy.flatnonzero(played.any(axis=1))[0] - numpy.flatnonzero(signal.any(axis=1))[0])
    if not numpy.array_equal(played[start : start + len(signal)], signal):
        raise Disturbed("cycles were lost")
    assert reported[0] == reported[1], tuple(reported)
    return recording[start:, : len(outputs)], played[start:], reported[0]

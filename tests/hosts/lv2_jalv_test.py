#!/usr/bin/env python3
"""The LV2 plug-in in jalv, a JACK application, under a JACK server of the test's own: lv2_jalv_test.py

The server has no sound card and runs free, cycle by cycle, as fast as everybody is done: no sample depends on the
machine's speed. A client plays into jalv, another records what jalv gives, and beside it what the first one plays.
"""

import contextlib
import ctypes
import os
import subprocess
import tempfile
import time

import numpy

from host_test import LATENCY, Row, known_signal, live_output, passed

URI = "urn:tarn:upmix"
FULL_SCALE = numpy.float32(2**-31)
AUDIO = b"32 bit float mono audio"
IS_INPUT, IS_OUTPUT = 1, 2
NO_START_SERVER = 1
CONNECTED_ALREADY = 17  # errno
PLAYBACK = 1  # of JackLatencyCallbackMode
SESSIONS = ((44100, 100), (48000, 37), (48000, 1000), (96000, 1024))  # Hz, frames of a cycle
SECONDS = 60  # for anything to happen

jack = ctypes.CDLL("libjack.so.0")
jack.jack_client_open.restype = ctypes.c_void_p
jack.jack_port_register.restype = ctypes.c_void_p
jack.jack_port_by_name.restype = ctypes.c_void_p
jack.jack_port_get_buffer.restype = ctypes.c_void_p
jack.jack_port_register.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_ulong, ctypes.c_ulong]
jack.jack_port_by_name.argtypes = [ctypes.c_void_p, ctypes.c_char_p]
jack.jack_port_get_buffer.argtypes = [ctypes.c_void_p, ctypes.c_uint32]
jack.jack_port_get_latency_range.argtypes = [ctypes.c_void_p, ctypes.c_int, ctypes.c_void_p]
jack.jack_connect.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p]
jack.jack_set_process_callback.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_void_p]
jack.jack_set_freewheel.argtypes = [ctypes.c_void_p, ctypes.c_int]
jack.jack_activate.argtypes = [ctypes.c_void_p]
jack.jack_client_close.argtypes = [ctypes.c_void_p]
CONNECTIONS = (
    ("player:left", "recorder:played_left"),
    ("player:right", "recorder:played_right"),
    ("player:left", "tarn:in_left"),
    ("player:right", "tarn:in_right"),
    ("tarn:out_left", "recorder:left"),
    ("tarn:out_right", "recorder:right"),
    ("tarn:out_centre", "recorder:centre"),
)
PROCESS = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_uint32, ctypes.c_void_p)


class Client:
    """A JACK client with ports of one direction."""

    def __init__(self, name, direction, ports):
        self.handle = jack.jack_client_open(name.encode(), NO_START_SERVER, None)
        assert self.handle, "no JACK server"
        self.ports = [jack.jack_port_register(self.handle, p.encode(), AUDIO, direction, 0) for p in ports]
        self.callback = PROCESS(self.process)
        jack.jack_set_process_callback(self.handle, self.callback, None)

    def start(self):
        assert jack.jack_activate(self.handle) == 0

    def buffers(self, frames):
        """The ports' samples of this cycle, in place."""
        pointers = (jack.jack_port_get_buffer(port, frames) for port in self.ports)
        return [numpy.ctypeslib.as_array((ctypes.c_float * frames).from_address(p)) for p in pointers]

    def process(self, frames, _):
        """A cycle."""
        raise NotImplementedError


class Player(Client):
    """Plays a signal once, when told, and silence otherwise."""

    def __init__(self, signal):
        self.signal, self.position, self.playing = signal, 0, False
        super().__init__("player", IS_OUTPUT, ("left", "right"))

    def process(self, frames, _):
        some = min(frames, len(self.signal) - self.position) if self.playing else 0
        for channel, buffer in enumerate(self.buffers(frames)):
            buffer[:] = 0
            buffer[:some] = self.signal[self.position : self.position + some, channel]
        self.position += some
        return 0


class Recorder(Client):
    """Records when told."""

    def __init__(self):
        self.cycles = []
        self.recording = False
        super().__init__("recorder", IS_INPUT, ("left", "right", "centre", "played_left", "played_right"))

    def process(self, frames, _):
        if self.recording:
            self.cycles.append(numpy.column_stack(self.buffers(frames)))
        return 0


def wait_for(condition, what):
    """Until it is so."""
    limit = time.monotonic() + SECONDS
    while not condition():
        assert time.monotonic() < limit, what
        time.sleep(0.02)


@contextlib.contextmanager
def running(*command, log):
    """A program that waits for input and is ended behind the block."""
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=log, stderr=log) as process:
        try:
            yield
        finally:
            process.terminate()
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:  # jackd, when a client of its own is stuck
                process.kill()


def play(player, recorder):
    """Plays all of the signal, and what is then still in jalv."""
    assert jack.jack_set_freewheel(player.handle, 1) == 0
    recorder.recording = True
    player.playing = True
    wait_for(lambda: player.position == len(player.signal), "the player does not come to its end")
    cycles = len(recorder.cycles)
    wait_for(lambda: sum(map(len, recorder.cycles[cycles:])) > 2 * LATENCY, "the recorder stands still")
    recorder.recording = False
    assert jack.jack_set_freewheel(player.handle, 0) == 0


def session(rate, size, signal, log):
    """Plays a signal through jalv: what came and what was played beside it, and the latency that jalv tells JACK."""
    server = f"tarn{os.getpid()}x{rate}x{size}"
    os.environ["JACK_DEFAULT_SERVER"] = server
    dummy = ("-d", "dummy", "-r", str(rate), "-p", str(size))
    with running("jackd", "-n", server, "-r", "-t", "10000", *dummy, log=log):
        wait_for(lambda: subprocess.run(["jack_lsp"], capture_output=True).returncode == 0, "no JACK server")
        with running("jalv", "-x", "-n", "tarn", URI, log=log):
            player, recorder = Player(signal), Recorder()
            for client in (player, recorder):
                client.start()
            for source, target in CONNECTIONS:
                names = source.encode(), target.encode()
                wait_for(
                    lambda: jack.jack_connect(player.handle, *names) in (0, CONNECTED_ALREADY),
                    f"{source} cannot be connected to {target}",
                )
            play(player, recorder)
            told = (ctypes.c_uint32 * 2)()
            port = jack.jack_port_by_name(player.handle, b"tarn:out_centre")
            jack.jack_port_get_latency_range(port, PLAYBACK, told)
            for client in (player, recorder):
                jack.jack_client_close(client.handle)
    recording = numpy.concatenate(recorder.cycles)
    return recording[:, :3], recording[:, 3:], tuple(told)


def compare(given, played, rate):
    """That jalv gave the command's samples; how many were compared, from the first that was played on."""
    first = int(numpy.flatnonzero(played.any(axis=1))[0])
    samples = (played[first:].astype(numpy.float64) / FULL_SCALE).astype(numpy.int64).astype(numpy.int32)
    short = 20000
    phases = [
        phase
        for phase in range(64)
        if numpy.array_equal(live_output(samples[:short], rate, phase), given[first : first + short])
    ]
    assert phases, "no beginning of blocks gives what jalv gave"
    assert numpy.array_equal(live_output(samples, rate, phases[0]), given[first:])
    return given[first:].size


def main():
    os.environ["JACK_NO_AUDIO_RESERVATION"] = "1"
    compared = 0
    latencies = set()
    with tempfile.TemporaryFile("w+") as log:
        try:
            for rate, size in SESSIONS:
                signal = known_signal(2 * rate + 13, 24, seed=rate).astype(numpy.float32) * FULL_SCALE
                given, played, told = session(rate, size, signal, log)
                first = numpy.flatnonzero(played.any(axis=1))[0] - numpy.flatnonzero(signal.any(axis=1))[0]
                assert numpy.array_equal(played[first : first + len(signal)], signal)
                compared += compare(given, played, rate)
                latencies.add(told)
        except Exception:
            log.seek(0)
            print(log.read())
            raise
    assert latencies == {(LATENCY, LATENCY)}, latencies
    passed(Row("LV2: jalv (JACK)", compared, 0, 24, f"{LATENCY} frames", LATENCY))


main()

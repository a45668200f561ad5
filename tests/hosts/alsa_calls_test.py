#!/usr/bin/env python3
"""Plays to the ALSA plug-in through libasound with all access types and call sequences: alsa_calls_test.py MODULE."""
# SPDX-License-Identifier: MIT

import ctypes
from ctypes import POINTER, byref, c_char_p, c_int, c_long, c_uint, c_ulong, c_void_p
import itertools
import subprocess
import sys
import tempfile

import numpy

from alsa_setup import CHANNELS, Setup
from float_mode import FlushToZero
from host_test import LATENCY, Row, known_signal, passed, write_stereo

PLAYBACK = 0
MMAP_INTERLEAVED, RW_INTERLEAVED, RW_NONINTERLEAVED = 0, 3, 4  # SND_PCM_ACCESS_...
FORMATS = {16: 2, 24: 32, 32: 10}  # SND_PCM_FORMAT_S16_LE, S24_3LE, S32_LE
FLOAT_LE = 14
PAUSED = 6  # SND_PCM_STATE_PAUSED
FIXED, FRONT_LEFT, FRONT_RIGHT = 1, 3, 4  # SND_CHMAP_TYPE_FIXED, SND_CHMAP_...

library = ctypes.CDLL("libasound.so.2")
library.snd_strerror.restype = c_char_p
for function in ("snd_pcm_writei", "snd_pcm_writen", "snd_pcm_mmap_writei"):
    getattr(library, function).argtypes = [c_void_p, c_void_p, c_ulong]
    getattr(library, function).restype = c_long
library.snd_pcm_get_chmap.restype = POINTER(c_uint)
library.snd_pcm_query_chmaps.restype = POINTER(POINTER(c_uint))
library.snd_pcm_free_chmaps.argtypes = [POINTER(POINTER(c_uint))]


def call(name, *arguments):
    """Calls a function of libasound. Raises OSError if it fails."""
    result = getattr(library, "snd_pcm_" + name)(*arguments)
    if result < 0:
        raise OSError(-result, f"{name}: {library.snd_strerror(int(result)).decode()}")
    return result


class Player:
    """A program that plays."""

    def __init__(self, name):
        self.pcm = c_void_p()
        library.snd_config_update_free_global()  # file dates have a resolution of a second
        call("open", byref(self.pcm), name.encode(), PLAYBACK, 0)

    def configure(self, rate, bits=16, period=1024, access=RW_INTERLEAVED, channels=2, sample_format=None):
        """Sets all parameters exactly."""
        self.bits, self.access = bits, access
        parameters = c_void_p()
        call("hw_params_malloc", byref(parameters))
        try:
            call("hw_params_any", self.pcm, parameters)
            call("hw_params_set_rate_resample", self.pcm, parameters, 0)
            call("hw_params_set_access", self.pcm, parameters, access)
            call("hw_params_set_format", self.pcm, parameters, sample_format or FORMATS[bits])
            call("hw_params_set_channels", self.pcm, parameters, channels)
            call("hw_params_set_rate", self.pcm, parameters, c_uint(rate), 0)
            call("hw_params_set_period_size", self.pcm, parameters, c_ulong(period), 0)
            call("hw_params_set_buffer_size", self.pcm, parameters, c_ulong(3 * period))
            call("hw_params", self.pcm, parameters)
        finally:
            library.snd_pcm_hw_params_free(parameters)

    def memory(self, samples):
        """The bytes of left-aligned 32-bit samples in the width of the PCM."""
        wide = numpy.ascontiguousarray(samples, "<i4").view(numpy.uint8).reshape(*samples.shape, 4)
        return numpy.ascontiguousarray(wide[..., 4 - self.bits // 8 :])

    def play(self, stereo, sizes):
        """Writes frames in repeating sizes."""
        done = turn = 0
        while done < len(stereo):
            part = stereo[done : done + sizes[turn % len(sizes)]]
            turn += 1
            if self.access == RW_NONINTERLEAVED:
                rows = [self.memory(part[:, channel]) for channel in range(2)]
                pointers = (c_void_p * 2)(*[row.ctypes.data for row in rows])
                written = call("writen", self.pcm, pointers, len(part))
            else:
                memory = self.memory(part)
                write = "mmap_writei" if self.access == MMAP_INTERLEAVED else "writei"
                written = call(write, self.pcm, memory.ctypes.data, len(part))
            assert written == len(part)
            done += written

    def drain(self):
        call("drain", self.pcm)

    def restart(self):
        """Drops pending frames and prepares."""
        call("drop", self.pcm)
        call("prepare", self.pcm)

    def pause(self, paused):
        call("pause", self.pcm, c_int(paused))

    def channel_map(self):
        """The current channel map."""
        found = library.snd_pcm_get_chmap(self.pcm)
        return found[1 : 1 + found[0]]

    def channel_maps(self):
        """All channel maps: type and channels of each."""
        found = library.snd_pcm_query_chmaps(self.pcm)
        listed = itertools.takewhile(bool, (found[i] for i in itertools.count()))
        maps = [(one[0], one[2 : 2 + one[1]]) for one in listed]
        library.snd_pcm_free_chmaps(found)
        return maps

    def close(self):
        call("close", self.pcm)


def flushed(stereo):
    """The signal with silence that flushes the tail."""
    return numpy.concatenate([stereo, numpy.zeros((LATENCY, 2), stereo.dtype)])


class Test:
    """Signals by width and rate, and the number of compared samples."""

    def __init__(self, module, directory):
        self.setup = Setup(module, directory)
        self.directory = self.setup.directory
        self.compared = 0
        self.measured = None

    def signal(self, rate, bits, frames=50000):
        """The samples, and a file with them for the command."""
        samples = known_signal(frames, bits)
        source = self.directory / f"{rate}-{bits}.wav"
        write_stereo(source, samples, rate, bits)
        return samples, source

    def equal(self, name, bits, expected, what):
        """Expects these samples at the end of the recording. Returns the frame at which they begin."""
        played = self.setup.played(name, bits)
        assert len(played) >= len(expected), (what, len(played), len(expected))
        begin = len(played) - len(expected)
        differing = numpy.count_nonzero(played[begin:] != expected)
        assert differing == 0, f"{what}: {differing} samples differ"
        self.compared += expected.size
        return begin


def check_formats(test):
    """Three rates, three widths, every layout, odd periods and sizes, every access type."""
    turn = 0
    for layout in CHANNELS:
        for rate in (44100, 48000, 96000):
            for bits in FORMATS:
                period = (37, 1000, 1023, 4096)[turn % 4]
                access = (RW_INTERLEAVED, RW_NONINTERLEAVED, MMAP_INTERLEAVED)[turn // 3 % 3]
                turn += 1
                name = test.setup.add(f"format{turn}", layout)
                samples, source = test.signal(rate, bits)
                player = Player(name)
                assert player.channel_maps() == [(FIXED, [FRONT_LEFT, FRONT_RIGHT])], "before the parameters are set"
                player.configure(rate, bits, period, access)
                assert player.channel_map() == [FRONT_LEFT, FRONT_RIGHT]
                assert player.channel_maps() == [(FIXED, [FRONT_LEFT, FRONT_RIGHT])]
                player.play(flushed(samples), [1, 0, 63, 64, 65, 1000, 7])
                player.drain()
                player.close()
                what = f"{layout}, {rate} Hz, {bits} bits, periods of {period}, access {access}"
                expected = test.setup.expected(name, source)
                assert layout != "2.0" or (expected == samples).all(), "two loudspeakers play the stereo"
                test.measured = test.equal(name, bits, expected, what)
                assert test.measured == LATENCY, (what, test.measured)


def check_end(test):
    """Drain does not call the plug-in, so its last frames stay inside without silence after them."""
    samples, source = test.signal(48000, 16)
    name = test.setup.add("end")
    player = Player(name)
    player.configure(48000)
    player.play(samples, [1000])
    player.drain()
    player.close()
    assert test.equal(name, 16, test.setup.expected(name, source)[:-LATENCY], "without silence") == LATENCY


def check_restart(test):
    """Drop and prepare clear the signal, and so do drain and prepare."""
    samples, source = test.signal(48000, 16)
    for how in ("drop", "drain"):
        name = test.setup.add(f"after_{how}")
        player = Player(name)
        player.configure(48000, period=333)
        player.play(samples[:7777], [500])
        if how == "drop":
            player.restart()
        else:
            player.drain()
            call("prepare", player.pcm)
        player.play(flushed(samples), [500])
        player.drain()
        player.close()
        test.equal(name, 16, test.setup.expected(name, source), f"after {how}")


def check_pause(test):
    """Pauses neither lose nor add frames."""
    samples, source = test.signal(48000, 16)
    name = test.setup.add("paused")
    player = Player(name)
    player.configure(48000, period=333)
    for begin in range(0, len(samples) + LATENCY, 7001):
        player.play(flushed(samples)[begin : begin + 7001], [500])
        player.pause(True)
        assert library.snd_pcm_state(player.pcm) == PAUSED
        player.pause(False)
    player.drain()
    player.close()
    assert test.equal(name, 16, test.setup.expected(name, source), "with pauses") == LATENCY


def check_other_parameters(test):
    """One PCM at 44.1, 48 and 96 kHz, in other widths, one after the other."""
    name = test.setup.add("changing")
    player = Player(name)
    for rate, bits in ((44100, 16), (48000, 24), (96000, 32), (44100, 16)):
        samples, source = test.signal(rate, bits)
        player.configure(rate, bits)
        player.play(flushed(samples), [480])
        player.drain()
        call("hw_free", player.pcm)
        data = (test.directory / f"{name}.raw").read_bytes()
        expected = test.setup.expected(name, source)
        wanted = numpy.ascontiguousarray(expected, "<i4").view(numpy.uint8).reshape(-1, 4)[:, 4 - bits // 8 :].tobytes()
        assert data.endswith(wanted), f"{rate} Hz, {bits} bits"
        test.compared += expected.size
    player.close()


def check_two(test):
    """Two PCMs of one program, alternating, with different signals."""
    samples, source = test.signal(48000, 16)
    other = test.directory / "other.wav"
    write_stereo(other, samples[::-1], 48000, 16)
    names = [test.setup.add("first"), test.setup.add("second", "5.1")]
    players = [Player(name) for name in names]
    for player in players:
        player.configure(48000, period=512)
    for at in range(0, len(samples) + LATENCY, 300):
        players[0].play(flushed(samples)[at : at + 300], [300])
        players[1].play(flushed(samples[::-1])[at : at + 300], [41])
    for player, name, file in zip(players, names, (source, other)):
        player.drain()
        player.close()
        test.equal(name, 16, test.setup.expected(name, file), name)


def check_flush_to_zero(test):
    """Flush-to-zero in the thread changes no sample, and stays set."""
    samples = known_signal(20000, 32)
    signal = numpy.concatenate([samples, numpy.zeros((48000, 2), samples.dtype), samples])
    source = test.directory / "decay.wav"
    write_stereo(source, signal, 48000, 32)
    name = test.setup.add("flushing")
    with FlushToZero() as mode:
        player = Player(name)
        player.configure(48000, 32)
        assert mode.holds()
        player.play(flushed(signal), [480])
        assert mode.holds(), "the thread's mode is restored"
        player.drain()
        player.close()
    test.equal(name, 32, test.setup.expected(name, source), "flush-to-zero")


def check_fields(test):
    """Fields equal the options of the command, in any order."""
    samples, source = test.signal(48000, 24)
    centre, voice = ["--centre", "6"], ["--preset", "voice"]
    for layout, fields, options in (
        ("5.1", "enabled false", ["--bypass"]),
        ("5.1", "mode calm", ["--mode", "calm"]),
        ("5.1", "gain -6.5", ["--gain", "-6.5"]),
        ("5.1", "enabled true mode fast gain 3", []),
        ("7.1", "preset plain", ["--preset", "plain"]),
        ("5.1", "preset music", ["--preset", "music"]),
        ("5.1", "centre 6 preset voice width 0.25", [*voice, "--width", "0.25"]),
        ("5.1", "surrounds 3 bass steered preset voice", [*voice, "--surrounds", "3", "--bass", "steered"]),
        ("5.1", "gain 12 limiter false preset voice", [*voice, "--gain", "12", "--no-limiter"]),
        ("5.1", "gain 12 limiter on", ["--gain", "12"]),
        ("7.1", "surrounds off centre -60", ["--surrounds", "off", "--centre", "-60"]),
        ("2.0", "centre 6", centre),
        ("2.0", "centre 6 gain 9", [*centre, "--gain", "9"]),
        ("2.0", "preset voice", voice),
    ):
        name = test.setup.add("fields" + "".join(c for c in layout + fields if c.isalnum()), layout, fields)
        player = Player(name)
        player.configure(48000, 24)
        player.play(flushed(samples), [480])
        player.drain()
        player.close()
        test.equal(name, 24, test.setup.expected(name, source, options=options), fields)


def check_refusals(test):
    """Wrong values and unsupported parameters are refused."""
    for number, fields in enumerate(("gain 19", "gain loud", "mode 2", "enabled maybe", "delay 1", "preset 2")):
        name = test.setup.add(f"wrong{number}", fields=fields)
        refused(lambda name=name: Player(name), fields)
    test.setup.add_text('pcm.wrong_layout { type tarn slave.pcm null layout "7.1-remap" }')
    refused(lambda: Player("wrong_layout"), "layout 7.1-remap")
    test.setup.add_text("pcm.slaveless { type tarn }")
    refused(lambda: Player("slaveless"), "no slave")

    check_recursion(test)
    player = Player(test.setup.add("refusing"))
    refused(lambda: player.configure(22050), "an unsupported rate")
    refused(lambda: player.configure(48000, channels=1), "one channel")
    refused(lambda: player.configure(48000, sample_format=FLOAT_LE), "floats")
    player.configure(48000)
    player.close()


def check_recursion(test):
    """A PCM that plays to itself, directly or through others, is refused with a message. PCMs opened later work."""
    test.setup.add_text('pcm.!default { type tarn slave.pcm "default" }')
    test.setup.add_text("pcm.one { type plug slave.pcm two }\npcm.two { type tarn slave.pcm one }")
    for name in ("default", "one", "two"):
        program = subprocess.run(
            ["aplay", "-q", "-D", name, "-t", "raw", "-f", "cd"], input=bytes(4000), capture_output=True, check=False
        )
        assert program.returncode == 1, f"{name}: {program}"  # not killed by a signal
        assert b"plays to this PCM again; name a device" in program.stderr, f"{name}: {program}"
        refused(lambda name=name: Player(name), name)
    Player(test.setup.add("after_recursion")).close()


def refused(action, what):
    try:
        action()
    except OSError:
        return
    raise AssertionError(f"not refused: {what}")


def check_ten_minutes(test):
    """Ten minutes without a lost sample."""
    samples = numpy.tile(known_signal(60 * 48000 + 7, 16, seed=3), (10, 1))
    source = test.directory / "long.wav"
    write_stereo(source, samples, 48000, 16)
    name = test.setup.add("long")
    player = Player(name)
    player.configure(48000, period=1000)
    player.play(flushed(samples), [3333, 4096, 1000])
    player.drain()
    player.close()
    assert test.equal(name, 16, test.setup.expected(name, source), "ten minutes") == LATENCY


def main():
    with tempfile.TemporaryDirectory() as directory:
        test = Test(sys.argv[1], directory)
        for check in (
            check_formats,
            check_end,
            check_restart,
            check_pause,
            check_other_parameters,
            check_two,
            check_flush_to_zero,
            check_fields,
            check_refusals,
            check_ten_minutes,
        ):
            check(test)
    passed(Row("ALSA, every call", test.compared, 0, 32, "not in the interface", test.measured))


main()

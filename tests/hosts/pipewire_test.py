#!/usr/bin/env python3
"""Tests the sinks "Tarn upmix" and "Tarn dialogue" in a separate PipeWire: pipewire_test.py FOLDER, the folder of
their configurations. Plays one signal of TARN_SOAK_MINUTES minutes, if the environment sets them, instead of many short ones.

The device has no hardware. The test records the monitors of the device and of the sink. PipeWire plays in real time
with a quantum that is long enough for a busy machine. Parts with lost cycles are played again; the table shows how
many.
"""
# SPDX-License-Identifier: MIT

from concurrent.futures import ThreadPoolExecutor
import contextlib
from functools import partial
import json
import os
from pathlib import Path
import re
import subprocess
import sys
import tempfile
import time

import numpy
import soundfile

from host_test import (
    LATENCY,
    Row,
    as_floats,
    changed_once,
    command_beside,
    known_signal,
    late_output,
    live_output,
    off_and_on,
    passed,
    phase_of,
    without_lfe,
)
from see_what_it_does import LOUD, check_picture, command_with, shows, write_song

SURROUND = ("FL", "FR", "FC", "LFE", "RL", "RR")
SIDES = ("FL", "FR", "FC", "LFE", "SL", "SR")
ALL = (*SURROUND, "SL", "SR")
FRONT = SURROUND[:3]
HALF_POWER = numpy.float32(0.5**0.5)  # with which PipeWire mixes a channel into others
RATES = (44100, 48000, 96000)
ATTEMPTS = 5
SECONDS = 20  # timeout
lost = []  # the place of the loss, for each part that was played again


def wait_for(condition, what):
    """Waits until the condition is true and returns its value."""
    limit = time.monotonic() + SECONDS
    while not (result := condition()):
        assert time.monotonic() < limit, what
        time.sleep(0.05)
    return result


def output_of(*command):
    """The output of a program, also if it fails."""
    return subprocess.run([str(word) for word in command], capture_output=True, text=True).stdout


def run(*command, seconds=SECONDS):
    """Runs a program, which has to succeed."""
    subprocess.run([str(word) for word in command], check=True, capture_output=True, timeout=seconds)


def things(kind):
    """The objects of a kind. pw-dump lists objects that are being removed without a type, and appends changes."""
    dump = json.JSONDecoder().raw_decode(output_of("pw-dump") or "[]")[0]
    return [thing for thing in dump if thing.get("type") == f"PipeWire:Interface:{kind}" and thing["info"]]


def node(name):
    """The node of a name, or None."""
    return next((thing for thing in things("Node") if thing["info"]["props"].get("node.name") == name), None)


class Session:
    """A PipeWire with a session manager, a device and the sink, in its own directory."""

    def __init__(self, configurations, directory, rate, quantum, positions):
        self.directory, self.rate, self.quantum, self.positions = directory, rate, quantum, positions
        self.configurations = configurations
        self.logs = open(directory / "log.txt", "w+")
        self.stack = contextlib.ExitStack()

    def __enter__(self):
        try:
            self.begin()
        except BaseException as problem:
            self.__exit__(type(problem))
            raise
        return self

    def device(self, name):
        """The properties of a device without hardware."""
        return f"""{{
            factory.name = support.null-audio-sink
            node.name = {name}
            media.class = Audio/Sink
            audio.position = [ {" ".join(self.positions)} ]
            object.linger = true
        }}"""

    def begin(self):
        """Starts everything, and waits until the sink has its device."""
        places = {"XDG_RUNTIME_DIR": "runtime", "XDG_CONFIG_HOME": "configuration", "XDG_STATE_HOME": "state"}
        for variable, name in places.items():
            (self.directory / name).mkdir(mode=0o700)
            os.environ[variable] = str(self.directory / name)
        settings = self.directory / "configuration/pipewire/pipewire.conf.d"
        settings.mkdir(parents=True)
        (settings / "test.conf").write_text(
            f"""
            context.properties = {{
                default.clock.rate = {self.rate}
                default.clock.allowed-rates = [ {" ".join(map(str, RATES))} ]
                default.clock.quantum = {self.quantum}
                default.clock.min-quantum = 32
                default.clock.max-quantum = 8192
                clock.power-of-two-quantum = false
            }}
            context.objects = [ {{ factory = adapter args = {self.device("device")} }} ]
            """
        )
        self.start("pipewire")
        wait_for(lambda: node("device"), "PipeWire does not come up")
        self.start("wireplumber")
        wait_for(lambda: "WirePlumber" in output_of("wpctl", "status"), "WirePlumber does not come up")
        run("pw-metadata", "-n", "settings", "0", "clock.force-quantum", self.quantum)
        self.add_sink("tarn_upmix", "device", self.configuration("upmix"))

    def __exit__(self, kind, *_):
        self.stack.close()
        if kind is not None:
            self.logs.seek(0)
            print(self.logs.read())

    def configuration(self, sink):
        """The configuration of a sink."""
        return (self.configurations / f"tarn-{sink}.conf").read_text()

    def add_other(self):
        """Adds another device with a sink."""
        run("pw-cli", "create-node", "adapter", self.device("other_device"))
        wait_for(lambda: node("other_device"), "the device does not come up")
        text = self.configuration("upmix").replace("tarn_upmix", "other_upmix")
        assert (at := "playback.props = {") in text
        self.add_sink("other_upmix", "other_device", text.replace(at, f"{at} target.object = other_device"))

    def add_sink(self, name, device, text):
        """Starts a sink in a separate process with a configuration, and waits for its device."""
        file = self.directory / f"configuration/pipewire/{name}.conf"
        file.write_text(text)
        self.start("pipewire", "-c", file.name)
        wait_for(lambda: node(f"{name}.output"), "the sink does not come up")
        wait_for(lambda: f"{device}:playback" in output_of("pw-link", "-l", f"{name}.output"), "the sink has no device")

    def start(self, *command):
        """Starts a program that ends with the session."""
        process = subprocess.Popen(command, stdout=self.logs, stderr=self.logs)
        self.stack.callback(process.wait)
        self.stack.callback(process.terminate)

    def change(self, rate, quantum):
        """Changes rate and quantum of the running graph."""
        run("pw-metadata", "-n", "settings", "0", "clock.force-rate", rate)
        run("pw-metadata", "-n", "settings", "0", "clock.force-quantum", quantum)
        self.rate, self.quantum = rate, quantum

    def record(self, play, device="device", sink="tarn_upmix"):
        """Records the inputs of the device and of the sink while play() runs."""
        file = self.directory / f"recording-{sink}.wav"
        sources = [f"{device}:monitor_{p}" for p in self.positions] + [f"{sink}:monitor_{p}" for p in FRONT[:2]]
        inputs = [f"AUX{i}" for i in range(len(sources))]
        command = ("pw-record", "--target", "0", "--rate", str(self.rate), "--format", "f32")
        options = ("-P", f"{{ node.name = {sink}.recorder }}", "--channels", str(len(inputs)))
        command += (*options, "--channel-map", ",".join(inputs), file)
        with subprocess.Popen(command, stdout=self.logs, stderr=self.logs) as recorder:
            wait_for(lambda: f"{sink}.recorder:input_{inputs[-1]}" in output_of("pw-link", "-i"), "no recorder")
            for source, target in zip(sources, inputs):
                run("pw-link", source, f"{sink}.recorder:input_{target}")
            play()
            time.sleep(4 * self.quantum / self.rate)
            recorder.terminate()
        # An idle sink clears its signal.
        wait_for(lambda: node(sink)["info"]["state"] != "running", "the sink does not become idle")
        recording = soundfile.read(file, dtype="float32", always_2d=True)[0]
        return recording[:, :-2], recording[:, -2:]

    def play(self, samples, *options):
        """Plays samples and silence, for the latency and for the last part of a quantum, which pw-play drops."""
        silence = numpy.zeros((LATENCY + 3 * self.quantum, samples.shape[1]), samples.dtype)
        with tempfile.NamedTemporaryFile(suffix=".wav", dir=self.directory) as file:
            soundfile.write(file.name, as_floats(numpy.concatenate([samples, silence])), self.rate, "FLOAT")
            run("pw-play", *options, file.name, seconds=SECONDS + len(samples) / self.rate)

    def set(self, sink="tarn_upmix", **controls):
        """Sets controls of a sink."""
        params = " ".join(f'"tarn:{name}" {value}' for name, value in controls.items())
        run("pw-cli", "set-param", sink, "Props", f"{{ params = [ {params} ] }}")


def found(rows, recording):
    """The frame of a recording at which all these floats begin, or None."""
    width = rows.shape[1]
    key = numpy.ascontiguousarray(rows[-4000:-3000]).tobytes()
    data = numpy.ascontiguousarray(recording).tobytes()
    at = data.find(key)
    while at >= 0 and at % (4 * width):
        at = data.find(key, at + 1)
    start = at // (4 * width) - (len(rows) - 4000)
    return start if at >= 0 and start >= 0 and numpy.array_equal(recording[start : start + len(rows)], rows) else None


def until_whole(session, samples, play, check, **places):
    """Plays until nothing is lost and check(device, sink) returns a result, and returns this result. Both recordings
    start with the first frame of the samples; that of the device a cycle later, which is the delay of PipeWire's
    filter.
    """
    for _ in range(ATTEMPTS):
        device, sink = session.record(play, **places)
        start = found(as_floats(samples), sink)
        if start is None:
            lost.append("before the sink")
        elif (result := check(device[start + session.quantum :], sink[start : start + len(samples)])) is not None:
            return result
        else:
            lost.append("behind the sink")
    raise AssertionError(f"{ATTEMPTS} attempts lost samples {lost[-ATTEMPTS:]}")


def upmixed(session, samples, play, expected=lambda surround: surround, options=(), layout="5.1", **places):
    """Plays to a sink and compares the device with the command, whose output expected() changes. Returns the number
    of samples and the delay in frames.
    """
    outputs = (live_output(samples, session.rate, phase, *options, layout=layout) for phase in range(64))
    candidates = [expected(output) for output in outputs]

    def check(device, _):
        places = (found(rows, device) for rows in candidates)
        return next(((candidates[0].size, place) for place in places if place is not None), None)

    return until_whole(session, samples, play, check, **places)


def played_with(session, samples, *changes):
    """Plays to the sink and calls the changes one after the other."""
    seconds = len(samples) / session.rate / (len(changes) + 1)
    with ThreadPoolExecutor() as pool:
        playing = pool.submit(session.play, samples, "--target", "tarn_upmix")
        for change in changes:
            time.sleep(seconds)
            change()
        playing.result()


def longest_gap(session, samples, *changes):
    """The longest silence at the device in seconds while the graph changes."""
    rate = session.rate
    device, _ = session.record(lambda: played_with(session, samples, *changes))
    loud = numpy.flatnonzero(device.any(axis=1))
    assert len(loud) > len(samples) // 2, "the sink fell silent"
    return numpy.diff(loud).max() / rate


def surround71(text):
    """The configuration of the sink for 7.1, with the lines of docs/hosts/pipewire.md."""
    for before, after in (
        ('"urn:tarn:upmix-5.1"', '"urn:tarn:upmix-7.1"'),
        ('"tarn:out_rear_right"', '"tarn:out_rear_right" "tarn:out_side_left" "tarn:out_side_right"'),
        ("audio.channels = 5", "audio.channels = 7"),
        ("[ FL FR FC RL RR ]", "[ FL FR FC RL RR SL SR ]"),
        ("tarn_upmix", "upmix71"),
    ):
        assert before in text, before
        text = text.replace(before, after)
    return text


def preset_of_page(preset):
    """The controls of a preset in the commands of docs/hosts/pipewire.md."""
    page = (Path(__file__).parents[2] / "docs/hosts/pipewire.md").read_text()
    commands = [line for line in page.splitlines() if line.count('"tarn:') == 6]
    command = dict(zip(("film", "music", "voice", "plain"), commands, strict=True))[preset]
    return {name: float(value) for name, value in re.findall(r'"tarn:(\w+)" ([-0-9.]+)', command)}


def check_page(session, samples):
    """The commands of docs/hosts/pipewire.md with tarn meter and tarn picture, while samples play; those of the meter for
    both sinks.
    """
    write_song(samples, session.directory)
    check_picture("pipewire", session.directory)
    command = command_with("pipewire", "tarn meter")
    dialogue = command.replace("tarn_upmix", "tarn_dialogue").replace("--layout 5.1", "--layout 2.0 --centre 6")
    with ThreadPoolExecutor() as pool:
        playing = [pool.submit(session.play, samples, "--target", sink) for sink in ("tarn_upmix", "tarn_dialogue")]
        for line in (command, dialogue):
            shows(line, session.directory, LOUD)
        for player in playing:
            player.result()


def recorded(device):
    """The channels of the sink at a 5.1 device."""
    return without_lfe(device)


def switched(session, samples):
    """Bypasses for a while. Returns the number of samples, the greatest difference in the fades and the delay in
    frames.
    """

    def play():
        played_with(session, samples, lambda: session.set(enabled=0.0), lambda: session.set(enabled=1.0))

    def check(device, sink):
        try:
            given = recorded(device[: len(samples)])
            return given.size, *off_and_on(given, sink, session.rate, "5.1")
        except AssertionError as problem:
            print(problem)
            return None

    return until_whole(session, samples, play, check)


def changed(session, samples, before, after):
    """Changes controls while playing. before and after are the controls and the options of the command for them.
    Returns the number of samples and the delay in frames.
    """

    def play():
        session.set(**before[0])
        played_with(session, samples, lambda: session.set(**after[0]))

    def check(device, sink):
        given = recorded(device[: len(samples)])
        try:
            place = phase_of(given, sink, session.rate, *before[1], layout="5.1")
            outputs = (late_output(sink, session.rate, place, *words, layout="5.1") for _, words in (before, after))
            return changed_once(given, *(output[: len(given)] for output in outputs)), place[1]
        except AssertionError as problem:
            print(problem)
            return None

    return until_whole(session, samples, play, check)


def with_sides(surround):
    """5.1 at a 7.1 device: the sides are silent."""
    return numpy.column_stack([surround, numpy.zeros((len(surround), 2), numpy.float32)])


def in_5_1(stereo):
    """Stereo at a 5.1 device: the other channels are silent."""
    return numpy.column_stack([stereo, numpy.zeros((len(stereo), 4), numpy.float32)])


def front_of(surround):
    """5.1 at a 3.0 device: each surround channel on its side, 3 dB softer."""
    front = surround[:, :3].copy()
    front[:, :2] += surround[:, 4:] * HALF_POWER
    return front


def stereo_of(surround):
    """5.1 on two loudspeakers: the centre on both, and each surround channel on its side, 3 dB softer."""
    return surround[:, :2] + surround[:, 2:3] * HALF_POWER + surround[:, 4:] * HALF_POWER


def passed_by(session, samples, positions):
    """Plays 5.1 to the device until it arrives unchanged. Returns the number of samples."""
    options = ("--target", "device", "--channel-map", ",".join(positions))
    for _ in range(ATTEMPTS):
        device, _ = session.record(lambda: session.play(samples, *options))
        if found(as_floats(samples), device) is not None:
            return samples.size
        lost.append("beside the sink")
    raise AssertionError(f"5.1 did not reach the device unchanged in {ATTEMPTS} attempts")


def reported_latency():
    """The largest latency that a port of the sink reports, in frames."""
    ports = [p for p in things("Port") if p["info"]["props"].get("port.alias", "").startswith("Tarn upmix:")]
    assert len(ports) >= 8, ports
    return max(latency["maxRate"] for port in ports for latency in port["info"]["params"]["Latency"])


def played_long(session, minutes):
    """Plays for minutes without a break and compares the device with the upmix of the sink's input, which has gaps if
    the player was late. Returns the number of samples and the delay in frames.
    """
    samples = known_signal(minutes * 60 * session.rate, 24)
    device, sink = session.record(lambda: session.play(samples, "--target", "tarn_upmix"))
    if found(as_floats(samples), sink) is None:
        print("pw-play was late, and left gaps")
    start = int(numpy.flatnonzero(sink.any(axis=1))[0])
    given, played = recorded(device[start + session.quantum :]), sink[start : -session.quantum]
    wet, measured = command_beside(given, played, session.rate, "5.1")
    wrong = numpy.flatnonzero((given != wet).any(axis=1))
    assert len(wrong) == 0, f"{len(wrong)} of {len(given)} frames differ from the command, the first is {wrong[0]}"
    return given.size, measured


def test(session_of):
    """All tests except the long run."""
    to_sink = ("--target", "tarn_upmix")
    compared = 0
    reported = set()
    measured = set()

    def check(answer):
        """Adds the result of a comparison."""
        nonlocal compared
        compared += answer[0]
        measured.add(answer[-1])

    for rate, quantum, positions, in_device in (
        (44100, 4999, SURROUND, lambda surround: surround),
        (48000, 4096, SIDES, lambda surround: surround),
        (48000, 4096, ALL, with_sides),
        (96000, 8192, FRONT, front_of),
        (48000, 1024, FRONT[:2], stereo_of),
    ):
        samples = known_signal(2 * rate + 13, 24, seed=rate)
        with session_of(rate, quantum, positions) as session:
            check(upmixed(session, samples, lambda: session.play(samples, *to_sink), in_device))

    with session_of(48000, 4096, ALL) as session:
        session.add_sink("upmix71", "device", surround71(session.configuration("upmix")))
        samples = known_signal(100013, 24)
        play = partial(session.play, samples, "--target", "upmix71")
        check(upmixed(session, samples, play, layout="7.1", sink="upmix71"))

    with session_of(48000, 4096, SURROUND) as session:
        samples = known_signal(100013, 24)
        reported.add(reported_latency())
        for rate, quantum in ((48000, 4096), (48000, 4097), (44100, 5003), (96000, 8192), (48000, 4096)):
            session.change(rate, quantum)
            check(upmixed(session, samples, lambda: session.play(samples, *to_sink)))

        # Rate changes while playing. PipeWire resamples, so only the length of the gap is checked.
        to_rates = [lambda rate=rate: session.change(rate, 4096) for rate in (44100, 96000, 48000)]
        gap = longest_gap(session, known_signal(8 * 48000, 24), *to_rates)
        assert gap < 0.5, gap
        check(upmixed(session, samples, lambda: session.play(samples, *to_sink)))

        # 5.1 reaches the device unchanged while the sink exists, and while it is the default.
        surround = numpy.column_stack([known_signal(100013, 24, seed) for seed in (5, 6, 7)])
        compared += passed_by(session, surround, SURROUND)
        run("wpctl", "set-default", node("tarn_upmix")["id"])
        check(upmixed(session, samples, lambda: session.play(samples)))
        compared += passed_by(session, surround, SURROUND)

        # Bypass, and changes of it while playing.
        session.set(enabled=0.0)
        check(upmixed(session, samples, lambda: session.play(samples), options=("--bypass",)))
        session.set(enabled=1.0)
        answer = switched(session, known_signal(4 * 48000, 24))
        check(answer)
        difference = answer[1]

        # A control and all controls of a preset, changed while playing.
        long = known_signal(4 * 48000, 24, seed=9)
        film = ({"centre": 0.0, "width": 1.0}, ())
        for after in (({"centre": -12.0}, ("--centre", "-12")), ({"width": 0.6}, ("--preset", "music"))):
            check(changed(session, long, film, after))
        for preset in ("music", "voice", "plain", "film"):
            session.set(**preset_of_page(preset))
            check(upmixed(session, samples, lambda: session.play(samples), options=("--preset", preset)))

        run("wpctl", "set-default", node("device")["id"])
        # The sink for two loudspeakers plays on the fronts of the device.
        session.add_sink("tarn_dialogue", "device", session.configuration("dialogue"))
        play = partial(session.play, samples, "--target", "tarn_dialogue")
        check(upmixed(session, samples, play, in_5_1, ("--centre", "6"), "2.0", sink="tarn_dialogue"))
        check_page(session, known_signal(4 * session.rate, 16))
        session.set("tarn_dialogue", centre=-20.0)
        check(upmixed(session, samples, play, in_5_1, ("--centre", "-20"), "2.0", sink="tarn_dialogue"))

        # Two sinks with different devices. The sink without a configured device uses the default device.
        session.add_other()
        others = known_signal(100013, 24, seed=8)
        with ThreadPoolExecutor() as pool:
            both = (
                pool.submit(upmixed, session, samples, lambda: session.play(samples, *to_sink)),
                pool.submit(
                    upmixed,
                    session,
                    others,
                    lambda: session.play(others, "--target", "other_upmix"),
                    device="other_device",
                    sink="other_upmix",
                ),
            )
            for one in both:
                check(one.result())
    assert reported == {0}, f"this PipeWire reports latencies of {reported}; correct docs/hosts/pipewire.md"
    assert measured == {LATENCY}, measured
    # A late graph loses cycles anywhere. Losses only behind the sink would be an error of the sink.
    assert lost.count("behind the sink") <= 1, lost
    again = f", {len(lost)} parts again" if lost else ""
    passed(Row(f"PipeWire filter-chain{again}", compared, difference, 24, "none, and adds a cycle", LATENCY))


def main():
    if "TARN_OWN_BUS" not in os.environ:  # starts again with a separate message bus
        os.environ["TARN_OWN_BUS"] = "1"
        os.execvp("dbus-run-session", ["dbus-run-session", sys.executable, "-B", *sys.argv])
    configurations = Path(sys.argv[1])
    with tempfile.TemporaryDirectory() as folder:

        def session_of(rate, quantum, positions):
            return Session(configurations, Path(tempfile.mkdtemp(dir=folder)), rate, quantum, positions)

        if minutes := int(os.environ.get("TARN_SOAK_MINUTES", 0)):
            with session_of(48000, 4096, SURROUND) as session:
                compared, measured = played_long(session, minutes)
            assert measured == LATENCY, measured
            passed(Row(f"PipeWire, {minutes} min", compared, 0, 24, "none", measured))
        else:
            test(session_of)


main()

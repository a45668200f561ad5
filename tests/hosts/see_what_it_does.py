"""Runs the commands of the sections "See what it does" of docs/hosts, as they are on the pages: with song.flac in the
current folder, and players that need no sound card.
"""

# SPDX-License-Identifier: MIT

import contextlib
import os
from pathlib import Path
import re
import signal
import subprocess
import threading

import numpy
import soundfile

PAGES = Path(__file__).parents[2] / "docs/hosts"
HEADING = "## See what it does"
SECONDS = 60  # timeout
LOUD = r" momentary=-[0-9.]+ .* 375=-[1-5]\d\."  # in a line of tarn meter


def commands_of(page):
    """The commands of the section of a page."""
    section = (PAGES / f"{page}.md").read_text().split(f"\n{HEADING}\n")[1].split("\n## ")[0]
    return re.search(r"^```sh\n(.*?)^```$", section, re.MULTILINE | re.DOTALL)[1].splitlines()


def begin_of(page):
    """The commands at the top of a page, without the one that installs packages."""
    text = (PAGES / f"{page}.md").read_text()
    install, *commands = re.search(r"^```sh\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)[1].splitlines()
    assert install.startswith("./run package"), install
    return commands


def command_with(page, word):
    """The command of a page that has a word."""
    (command,) = (line for line in commands_of(page) if word in line)
    return command


def start(command, directory):
    """Starts a command in a group of processes of its own."""
    environment = os.environ | {
        "PATH": f"{Path(os.environ['TARN']).parent}:{os.environ['PATH']}",
        "MPV_HOME": str(directory),
        "SDL_AUDIODRIVER": "dummy",
    }
    (directory / "mpv.conf").write_text("ao=null\n")
    return subprocess.Popen(
        ["bash", "-c", f"set -o pipefail; {command}"],
        cwd=directory,
        env=environment,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        start_new_session=True,
    )


def output_of(command, directory):
    """The output of a command that ends."""
    with start(command, directory) as process:
        output = process.communicate(timeout=SECONDS)[0]
    assert process.returncode == 0, f"{command}: {process.returncode}: {output}"
    return output


@contextlib.contextmanager
def running_lines(commands, directory):
    """Runs commands, with all that they start, during the block."""
    with start("\n".join(commands), directory) as process:
        timer = threading.Timer(SECONDS, os.killpg, (process.pid, signal.SIGKILL))
        timer.start()
        try:
            yield process
        finally:
            timer.cancel()
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGTERM)


def shows(command, directory, wanted):
    """Runs a command that does not end until a line of its output matches."""
    output = []
    with running_lines([command], directory) as process:
        for line in process.stdout:
            output.append(line)
            if re.search(wanted, line):
                return
    raise AssertionError(f"{command}: no {wanted} in {output}")


def write_song(samples, directory):
    """Writes song.flac: left-aligned samples of 16 bits, at 48 kHz."""
    soundfile.write(directory / "song.flac", samples, 48000, subtype="PCM_16")


def groups(output):
    """Level, place and share of the centre of every group, from the last line of tarn meter."""
    lines = [line for line in output.splitlines() if line.startswith("seconds=")]
    found = re.findall(r" ([0-9]+=[^ ]*)", lines[-1])
    assert len(found) == 16, output
    return found


def check_meter(command, samples, directory):
    """The command's meter shows all samples of song.flac, left-aligned with 16 bits."""
    stereo = (samples >> 16).astype("<i2").tobytes()
    expected = subprocess.run(
        [os.environ["TARN"], "meter", "--raw", "48000:16", "--layout", "5.1"],
        input=stereo,
        capture_output=True,
        check=True,
    )
    loud = groups(expected.stdout.decode())
    assert numpy.mean([float(group.split("=")[1].split(",")[0]) > -60 for group in loud]) > 0.9, loud
    assert groups(output_of(command, directory)) == loud, command


def check_picture(page, directory):
    """The picture of a page is drawn."""
    output_of(command_with(page, "tarn picture"), directory)
    assert (directory / "song.png").read_bytes().startswith(b"\x89PNG")
    (directory / "song.png").unlink()

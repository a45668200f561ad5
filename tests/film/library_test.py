#!/usr/bin/python3
"""Runs tarn-film on folders of films: --recursive, --resume and --part; and compares its options with the completions.

    library_test.py TARN_FILM TARN
"""
# SPDX-License-Identifier: MIT

import json
import os
from pathlib import Path
import random
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from ffmpeg import ffmpeg
from films import FILM, TARN, run_film

CLICKS = "0.3*sin(2000*t)|0.2*sin(1500*t)"


def make_film(path, seconds=1.0, tone=CLICKS):
    """A film, or a recording without a picture, depending on the extension."""
    path.parent.mkdir(parents=True, exist_ok=True)
    sound = ["-f", "lavfi", "-i", f"aevalsrc={tone}:s=48000:d={seconds}"]
    video = ["-f", "lavfi", "-i", f"color=black:s=64x48:r=25:d={seconds}"]
    if path.suffix in (".m4a", ".flac", ".wav"):
        video = []
    ffmpeg(*video, *sound, "-bitexact", path)


def sound_of(film):
    """Checksums of the decoded audio tracks."""
    return ffmpeg("-i", film, "-map", "0:a", "-f", "streamhash", "-")


class LibraryTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.films = Path(self.folder.name) / "films"
        self.out = Path(self.folder.name) / "out"

    def run_library(self, *options):
        return run_film("--recursive", "--output-dir", self.out, *options, self.films)

    def resumed(self, *options):
        """Runs with --resume. Returns the names of the films that were upmixed, not skipped."""
        result = self.run_library("--resume", "--json", "--quiet", *options)
        self.assertEqual(result.returncode, 0, result.stderr)
        reports = json.loads(result.stdout)
        return [os.path.relpath(report["input"], self.films) for report in reports if not report.get("skipped")]

    def outputs(self):
        """Names of all outputs, with their times."""
        files = (path for path in self.out.rglob("*") if path.is_file() and path.name != "tarn-ledger.txt")
        return {str(path.relative_to(self.out)): path.stat().st_mtime_ns for path in sorted(files)}


class Recursive(LibraryTest):
    def test_mirrors_the_tree_and_takes_films(self):
        for name in ("one.mkv", "series/1/two.MP4", "series/2/three.ts", "music/song.m4a", "music/song.flac"):
            make_film(self.films / name)
        (self.films / "source.ts").write_text("export const film = 1;\n" * 100)
        (self.films / "notes.txt").write_text("seen")
        (self.films / ".hidden.mkv").write_text("hidden")
        (self.films / "series" / "again").symlink_to(self.films)
        result = self.run_library()
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("1 audio file is left to tarn upmix, the first is", result.stderr)
        expected = ["music/song.m4a", "one.mkv", "series/1/two.MP4", "series/2/three.ts"]
        self.assertEqual(sorted(self.outputs()), [name + "-5.1.mkv" for name in expected])

    def test_output_folder_below_the_input_is_not_searched(self):
        make_film(self.films / "one.mkv")
        self.out = self.films / "upmixed"
        for _ in range(2):
            self.assertEqual(self.run_library("--skip-existing").returncode, 0)
        self.assertEqual(list(self.outputs()), ["one.mkv-5.1.mkv"])
        result = run_film("--recursive", "--output-dir", self.films, self.films)
        self.assertEqual(result.returncode, 64)
        self.assertIn("is the --output-dir itself", result.stderr)

    def test_second_film_with_the_same_output_fails(self):
        make_film(self.films / "a/one.mkv")
        make_film(self.films / "b/one.mkv")
        result = run_film("--output-dir", self.out, self.films / "a/one.mkv", self.films / "b/one.mkv")
        self.assertEqual(result.returncode, 64)
        self.assertIn("b/one.mkv: would have the same output as", result.stderr)
        self.assertEqual(list(self.outputs()), ["one.mkv-5.1.mkv"])

    def test_folder_without_films_is_an_error(self):
        make_film(self.films / "song.flac")
        result = self.run_library()
        self.assertEqual(result.returncode, 66)
        self.assertIn("contains no film; 1 audio file is left to tarn upmix", result.stderr)
        self.assertFalse(self.out.exists())

    def test_parts_have_every_film_once(self):
        for number in range(6):
            make_film(self.films / f"{number}.mkv", 0.2)
        seen = []
        for part in ("1/3", "2/3", "3/3"):
            result = self.run_library("--json", "--quiet", "--part", part)
            self.assertEqual(result.returncode, 0, result.stderr)
            seen += [report["input"] for report in json.loads(result.stdout)]
        self.assertEqual(len(seen), 6)
        self.assertEqual(len(set(seen)), 6)


class Resume(LibraryTest):
    def test_skips_what_is_done_and_repeats_what_changed(self):
        for name in ("one.mkv", "x/two.mkv"):
            make_film(self.films / name)
        self.assertEqual(self.resumed(), ["one.mkv", "x/two.mkv"])
        before = self.outputs()
        self.assertEqual(self.resumed(), [])
        self.assertEqual(self.resumed("--preset", "film", "-j", "2"), [])
        self.assertEqual(self.outputs(), before)

        make_film(self.films / "one.mkv", 1.5)
        self.assertEqual(self.resumed(), ["one.mkv"])
        (self.out / "x/two.mkv-5.1.mkv").unlink()
        self.assertEqual(self.resumed(), ["x/two.mkv"])
        for options in (["--codec", "ac3"], ["--bitrate", "320", "--codec", "ac3"], ["--centre", "3"], ["--replace"]):
            self.assertEqual(self.resumed(*options), ["one.mkv", "x/two.mkv"], options)
            self.assertEqual(self.resumed(*options), [], options)

    def test_shares_the_folder_with_upmix(self):
        make_film(self.films / "one.mkv")
        make_film(self.films / "song.flac")
        upmix = [TARN, "upmix", "--recursive", "--resume", "--json", "--quiet", "--output-dir", self.out, self.films]
        for skipped in (0, 1):
            result = subprocess.run(upmix, capture_output=True, text=True, check=True)
            self.assertEqual(json.loads(result.stdout)["skipped"], skipped)
            self.assertEqual(self.resumed(), [] if skipped else ["one.mkv"])
        self.assertEqual(list(self.outputs()), ["one.mkv-5.1.mkv", "song.flac-3.0.wav"])

    def test_unlisted_outputs_are_kept(self):
        make_film(self.films / "one.mkv")
        self.assertEqual(self.run_library().returncode, 0)
        before = self.outputs()
        result = self.run_library("--resume")
        self.assertEqual(result.returncode, 64)
        self.assertIn("tarn-ledger.txt does not list it", result.stderr)
        self.assertEqual(self.resumed("--skip-existing"), [])
        self.assertEqual(self.outputs(), before)
        self.assertEqual(self.resumed("--force"), ["one.mkv"])
        self.assertEqual(self.resumed("--force"), [])

    def test_changed_outputs_are_kept(self):
        make_film(self.films / "one.mkv")
        self.assertEqual(self.resumed(), ["one.mkv"])
        output = self.out / "one.mkv-5.1.mkv"
        output.write_text("precious")
        result = self.run_library("--resume")
        self.assertEqual(result.returncode, 64)
        self.assertIn("tarn-ledger.txt lists it with another size or time", result.stderr)
        self.assertEqual(output.read_text(), "precious")
        self.assertEqual(self.resumed("--force"), ["one.mkv"])
        self.assertEqual(self.resumed(), [])

    def test_interrupted_batches_say_how_to_go_on(self):
        names = [f"{number}.mkv" for number in range(4)]
        for name in names:
            make_film(self.films / name, 60)
        command = [FILM, "--recursive", "--resume", "--json", "--output-dir", self.out, self.films]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
            while not any(not name.startswith(".") for name in self.outputs()):
                self.assertIsNone(process.poll())
                time.sleep(0.01)
            process.send_signal(signal.SIGINT)
            output, errors = process.communicate()
        self.assertEqual(process.returncode, -signal.SIGINT)
        found = re.search(r"^tarn: interrupted: (\d) of 4 films done; .*/(\d)\.mkv is the first that is missing; "
                          r"run again with --resume$", errors, re.MULTILINE)  # fmt: skip
        self.assertIsNotNone(found, errors)
        done = int(found[1])
        self.assertEqual(int(found[2]), done)
        self.assertEqual(["not_tried" in report for report in json.loads(output)], [i >= done for i in range(4)])
        self.assertEqual(self.resumed(), names[done:])
        result = self.run_library("--resume", "--part", "1/1")
        self.assertIn("tarn: 0 of 4 films upmixed into", result.stderr)
        self.assertIn("tarn: 4 films skipped, because they are done already", result.stderr)

    def test_a_full_disk_stops_the_batch(self):
        for name in ("one.mkv", "two.mkv"):
            make_film(self.films / name, 10)
        command = [FILM, "--recursive", "--resume", "--codec", "pcm", "--output-dir", self.out, self.films]
        environment = {**os.environ, "LD_PRELOAD": os.environ["TARN_FULL_DISK"]}
        result = subprocess.run(command, capture_output=True, text=True, env=environment, check=False)
        self.assertEqual(result.returncode, 74, result.stderr)
        self.assertIn("tarn: stopped, because no output can be written: 0 of 2 films done;", result.stderr)
        self.assertIn("films/one.mkv is the first that is missing; run again with --resume", result.stderr)

    def test_killed_batches_go_on(self):
        names = [f"{number % 2}/{number}.mkv" for number in range(8)]
        for number, name in enumerate(names):
            make_film(self.films / name, 20 + number)
        start = time.monotonic()
        self.assertEqual(len(self.resumed("-j", "2")), len(names))
        length = time.monotonic() - start
        whole = {name: sound_of(self.out / name) for name in self.outputs()}
        for name in self.outputs():
            (self.out / name).unlink()

        chance = random.Random(7)
        last = {}
        killed = 0
        command = [FILM, "--recursive", "--resume", "--quiet", "-j", "2", "--output-dir", self.out, self.films]
        for _ in range(200):
            if killed >= 20:
                break
            with subprocess.Popen(command, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
                time.sleep(chance.random() * length / 3)
                process.send_signal(signal.SIGKILL)
            killed += process.returncode == -signal.SIGKILL
            time.sleep(0.05)  # for its own processes
            now = {name: state for name, state in self.outputs().items() if ".tarn-temporary-" not in name}
            self.assertEqual({name: now.get(name) for name in last}, last, "done twice, or lost")
            for name in now.keys() - last.keys():
                self.assertEqual(sound_of(self.out / name), whole[name], name)
            last = now
            if len(last) == len(names):
                self.assertEqual(self.resumed("-j", "2"), [])
                for name in self.outputs():
                    (self.out / name).unlink()
                last = {}
        self.assertGreaterEqual(killed, 20)
        self.resumed("-j", "2")
        self.assertEqual(sorted(self.outputs()), sorted(whole))
        self.assertEqual({name: self.outputs()[name] for name in last}, last)
        self.assertEqual(self.resumed(), [])


class Completion(unittest.TestCase):
    def test_help_has_80_columns(self):
        for line in run_film("--help").stdout.splitlines():
            self.assertLessEqual(len(line), 80, line)

    def test_shells_know_every_option(self):
        options = set(re.findall(r"^  (?:-[a-z],)?(--[a-z-]+)", run_film("--help").stdout, re.MULTILINE))
        self.assertGreater(len(options), 20)
        folder = Path(__file__).parents[2] / "completions"
        script = 'source "$0"; COMP_WORDS=(tarn film --); COMP_CWORD=2; _tarn; printf "%s\\n" "${COMPREPLY[@]}"'
        proposed = subprocess.run(
            ["bash", "-c", script, folder / "tarn.bash"], capture_output=True, text=True, check=True
        )
        self.assertEqual(set(proposed.stdout.split()), options)
        zsh = (folder / "_tarn").read_text().split("\n    film)\n")[1]
        self.assertEqual(set(re.findall(r"--[a-z-]+(?=[\[}])", zsh)), options)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])

"""Tests which files bench/corpus finds."""
# SPDX-License-Identifier: MIT

import contextlib
import importlib.machinery
import io
from pathlib import Path
import tempfile
import types
import unittest

PROGRAM = str(Path(__file__).resolve().parents[2] / "bench/corpus")
corpus = types.ModuleType("corpus")
corpus.__file__ = PROGRAM
importlib.machinery.SourceFileLoader("corpus", PROGRAM).exec_module(corpus)


class AudioFiles(unittest.TestCase):
    def test_links_are_followed_once_per_file(self):
        with tempfile.TemporaryDirectory() as directory:
            folder = Path(directory, "music")
            (folder / "b").mkdir(parents=True)
            for name in ("music/b/real.wav", "elsewhere.FLAC", "music/cover.jpg"):
                Path(directory, name).touch()
            (folder / "a.wav").symlink_to("b/real.wav")
            (folder / "c.flac").symlink_to("../elsewhere.FLAC")
            (folder / "gone.ogg").symlink_to("nothing.ogg")
            messages = io.StringIO()
            with contextlib.redirect_stderr(messages):
                found = corpus.audio_files(folder)
            self.assertEqual(found, [folder / "a.wav", folder / "c.flac"])
            self.assertEqual(messages.getvalue(), f"corpus: {folder / 'gone.ogg'}: is a broken link\n")


if __name__ == "__main__":
    unittest.main()

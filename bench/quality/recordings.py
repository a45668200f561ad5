"""Real music and speech of Debian packages.

The packages are downloaded once, checked and unpacked into build/recordings, not installed. Excerpts are float64, full scale = 1.0.
"""
# SPDX-License-Identifier: MIT

from dataclasses import dataclass
import hashlib
from pathlib import Path
import subprocess
import tempfile

import numpy as np
import scipy.signal
import soundfile

FOLDER = Path(__file__).resolve().parents[2] / "build/recordings"
EXCERPT_START_SECONDS = 15
EXCERPT_SECONDS = 20
SPEECH_PACKAGE = "fillets-ng-data-nl"
SPEECH_FOLDER = "usr/share/games/fillets-ng/sound"
SPEAKERS = ("-v-", "-m-")  # in the names of the files
SPEECH_FILES_PER_EXCERPT = 20


# Version and SHA-256 of the archives in Debian 12.
PACKAGES = {
    "fillets-ng-data-nl": ("1.0.1-1.1", "afb4443fda9ab507dee578b75be857d121718a1cd6017a474f30e0eb13dc9d10"),
    "fretsonfire-songs-muldjord": ("2.dfsg-2.1", "b37adf8b08b46d4182c283e760e4f40622d83674e05803960ea1e11a92600c7b"),
    "fretsonfire-songs-sectoid": ("1.dfsg-3.1", "14c1ed3e43c1a6a80eae7698f0469a0825cd1184e441968d62df89ca418aa0b4"),
    "hyperrogue-music": ("12.0q-1", "61ab9f4c2169442d85f42c42d26e80c1a18b93c741f3d44f1b9d83015904e7f7"),
    "lincity-ng-data": ("2.9~git20150314-5", "8f5e85bd42879abdc7099b035d7a3d7468eceb6b93b52a12270c28f3f3c792f9"),
    "singularity-music": ("007-2", "139ba1e408eeb0a72f1fff3760ca46558b9f81bed97dc8c0efa108c4007f4845"),
    "supertuxkart-data": ("1.4+dfsg-2", "568d69cda50dc8ad1facb89514bd14953dfca736fdb83c49ae330b0aa7dd2364"),
    "wesnoth-1.16-music": ("1:1.16.9-1", "f9bc3cde92b4ab30db5d7b85f89b4bcc3d788dd92602956d0347250850bf59bb"),
}


class FetchError(RuntimeError):
    """A package could not be downloaded or unpacked; the message is for the user."""


@dataclass(frozen=True)
class Track:
    """A stereo recording: files of a package below a folder. Several files are stems, whose sum is the recording."""

    package: str
    folder: str
    files: tuple

    @property
    def name(self):
        return f"{self.package}: {self.files[0]}"


def _tracks(package, folder, *names):
    return [Track(package, folder, name if isinstance(name, tuple) else (name,)) for name in names]


def _with_guitar(*songs):
    return [(f"{song}/song.ogg", f"{song}/guitar.ogg") for song in songs]


TRACKS = [
    *_tracks(
        "fretsonfire-songs-muldjord",
        "usr/share/games/fretsonfire/data/songs/muldjord",
        *_with_guitar("armygeddon", "chaos_god", "internal_degeneration", "mutilated_mime"),
    ),
    *_tracks(
        "fretsonfire-songs-sectoid",
        "usr/share/games/fretsonfire/data/songs/sectoid",
        *_with_guitar("Feelings", "Metal madness"),
    ),
    *_tracks(
        "hyperrogue-music",
        "usr/share/hyperrogue/music",
        *("hr-domina-hunting.ogg", "hr3-caves.ogg", "hr3-icyland.ogg", "hr3-jungle.ogg"),
    ),
    *_tracks(
        "lincity-ng-data",
        "usr/share/games/lincity-ng/music/default",
        "02 - Robert van Herk - City Blues.ogg",
        "03 - Robert van Herk - Architectural Contemplations.ogg",
    ),
    *_tracks("singularity-music", "usr/share/games/singularity/music", "Coherence.ogg", "Through Space.ogg"),
    *_tracks(
        "supertuxkart-data",
        "usr/share/games/supertuxkart/data/music",
        *("Boom_boom_boom.ogg", "Snowy.ogg", "celtic.ogg", "egypt.ogg"),
    ),
    *_tracks(
        "wesnoth-1.16-music",
        "usr/share/games/wesnoth/1.16/data/core/music",
        *("battle-epic.ogg", "elvish-theme.ogg", "frantic.ogg", "knalgan_theme.ogg"),
        *("love_theme.ogg", "nunc_dimittis.ogg", "sad.ogg", "traveling_minstrels.ogg"),
    ),
]

# The tables are designed with one half of the tracks and of the speech, and checked with the other half.
DESIGN_HALF, CHECK_HALF = 0, 1


def tracks(half=None):
    """The tracks of a half, or all."""
    return TRACKS if half is None else TRACKS[half::2]


def missing():
    """The packages that are not in FOLDER."""
    return [package for package in PACKAGES if not (FOLDER / package).is_dir()]


def fetch():
    """Downloads, checks and unpacks the missing packages. Raises FetchError."""
    for package in missing():
        version, checksum = PACKAGES[package]
        FOLDER.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory(dir=FOLDER) as directory:
            _run(["apt-get", "-qq", "-o", "APT::Sandbox::User=root", "download", f"{package}={version}"], directory)
            (archive,) = Path(directory).glob("*.deb")
            with archive.open("rb") as file:
                found = hashlib.file_digest(file, "sha256").hexdigest()
            if found != checksum:
                raise FetchError(f"{archive.name}: the SHA-256 is {found}, not {checksum}")
            _run(["dpkg-deb", "-x", archive, "files"], directory)
            (Path(directory) / "files").rename(FOLDER / package)


def _run(command, directory):
    try:
        result = subprocess.run(command, cwd=directory, capture_output=True, text=True)
    except FileNotFoundError as error:
        raise FetchError(f"there is no {command[0]}, which fetches music from Debian packages") from error
    if result.returncode != 0:
        raise FetchError(f"{' '.join(map(str, command))}: exit {result.returncode}\n{result.stderr.strip()}")


def read(path, rate, start_seconds=0, seconds=None):
    """A part of a file at the given rate: [frames, channels]."""
    with soundfile.SoundFile(path) as file:
        file.seek(start_seconds * file.samplerate)
        samples = file.read(-1 if seconds is None else seconds * file.samplerate, always_2d=True)
        common = np.gcd(rate, file.samplerate)
        return scipy.signal.resample_poly(samples, rate // common, file.samplerate // common, axis=0)


def music(track, rate, seconds):
    """An excerpt of a track: [frames, 2]."""
    folder = FOLDER / track.package / track.folder
    return sum(read(folder / file, rate, EXCERPT_START_SECONDS, seconds) for file in track.files)


def speech(half, index, rate, seconds):
    """Sentences of one speaker, one after the other: [frames]. Every index has other sentences; speakers alternate."""
    files = sorted((FOLDER / SPEECH_PACKAGE / SPEECH_FOLDER).rglob("*.ogg"))
    files = [file for file in files if SPEAKERS[index % 2] in file.name]
    middle = len(files) // 2
    files = files[:middle] if half == DESIGN_HALF else files[middle:]
    sentences, frames = [], 0
    for file in files[index * SPEECH_FILES_PER_EXCERPT :]:
        sentences.append(read(file, rate).mean(axis=1))
        frames += len(sentences[-1])
        if frames >= seconds * rate:
            return np.concatenate(sentences)[: seconds * rate]
    raise ValueError(f"the speech of {SPEECH_PACKAGE} is too short for excerpt {index}")

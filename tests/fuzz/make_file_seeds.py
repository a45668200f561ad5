#!/usr/bin/env python3
"""Makes the seeds of the file fuzzer.

    make_file_seeds.py FOLDER

The seeds are short files of every container with every tag format. Each is written twice, for an output in WAV and in
FLAC. The first four bytes are options that file_fuzzer.cpp decodes.
"""
# SPDX-License-Identifier: MIT

import base64
import io
from pathlib import Path
import sys

import numpy
import soundfile

from file_seeds import containers, tags

FRAMES = 2400
# Containers and codecs that libsndfile both writes and reads with two channels.
CODECS = {
    "AIFF": ("PCM_S8", "PCM_16", "PCM_24", "FLOAT", "ULAW", "IMA_ADPCM"),
    "AU": ("PCM_16", "PCM_24", "DOUBLE", "ALAW"),
    "AVR": ("PCM_16",),
    "CAF": ("PCM_16", "FLOAT", "ALAC_16", "ALAC_20", "ALAC_24", "ALAC_32"),
    "FLAC": ("PCM_S8", "PCM_16", "PCM_24"),
    "IRCAM": ("PCM_16",),
    "MAT4": ("DOUBLE",),
    "MAT5": ("PCM_16",),
    "MP3": ("MPEG_LAYER_III",),
    "MPC2K": ("PCM_16",),
    "NIST": ("PCM_16",),
    "OGG": ("VORBIS", "OPUS"),
    "PAF": ("PCM_24",),
    "PVF": ("PCM_16",),
    "RF64": ("PCM_16", "FLOAT"),
    "VOC": ("PCM_16",),
    "W64": ("PCM_16", "PCM_32", "FLOAT", "MS_ADPCM"),
    "WAV": ("PCM_U8", "PCM_16", "PCM_24", "PCM_32", "FLOAT", "DOUBLE", "ULAW", "ALAW", "IMA_ADPCM", "MS_ADPCM"),
    "WAVEX": ("PCM_16", "PCM_24"),
}
EXTENSIONS = ("", "wav", "flac", "mp3", "ogg", "opus", "aiff", "caf", "w64", "au", "rf64", "oga")


def sound(frames=FRAMES, rate=48000, channels=2, peak=0.5):
    """A tone that moves between the channels, and a little noise."""
    time = numpy.arange(frames) / rate
    tone = numpy.sin(2 * numpy.pi * 440 * time)
    noise = numpy.random.default_rng(1).uniform(-0.002, 0.002, (frames, channels))
    sides = numpy.stack([numpy.cos(7 * time + 0.5 * i) for i in range(channels)], axis=1)
    return peak * (tone[:, None] * sides + noise)


def encoded(container, codec, samples=None, rate=48000, endian=None):
    file = io.BytesIO()
    soundfile.write(file, sound() if samples is None else samples, rate, codec, endian, container)
    return file.getvalue()


def every_codec():
    for container, codecs in CODECS.items():
        for codec in codecs:
            yield f"{container}-{codec}".lower(), encoded(container, codec)


def wave_files():
    wav = encoded("WAV", "PCM_16")
    listed = (b"LIST", tags.info_list("utf-8"))
    latin = (b"LIST", tags.info_list("latin-1"))
    id3 = (b"id3 ", tags.id3v2(4, 3))
    bext = (b"bext", tags.bext())
    others = [(b"iXML", tags.IXML), (b"cart", tags.cart()), (b"cue ", tags.CUE), (b"LIST", tags.ADTL)]
    others += [(b"smpl", tags.SMPL), (b"JUNK", bytes(27)), (b"afsp", b"AFspdate: 2023\0")]
    yield "wav-info", containers.with_chunks(wav, [listed])
    yield "wav-info-behind", containers.with_chunks(wav, [], [listed])
    yield "wav-info-latin-1", containers.with_chunks(wav, [latin])
    yield "wav-id3", containers.with_chunks(wav, [], [id3])
    yield "wav-bext", containers.with_chunks(wav, [bext])
    yield "wav-all", containers.with_chunks(wav, [bext, *others, listed], [id3])
    yield "wav-big-endian", encoded("WAV", "PCM_16", endian="BIG")
    yield "wav-streamed", containers.with_data_size(wav, 0xFFFFFFFF)
    yield "wav-twice", wav + wav
    yield "wav-other-width", wav + encoded("WAV", "PCM_24")
    yield "wav-odd", containers.with_data_size(wav, 4 * FRAMES - 3)
    yield "wav-2s-missing", containers.with_data_size(wav, 4 * (FRAMES + 2 * 48000))
    yield "wav-200ms-missing", containers.with_data_size(wav, 4 * (FRAMES + 9600))
    yield "rf64-all", containers.with_chunks(encoded("RF64", "PCM_16"), [bext], [*others, latin, id3])
    yield "rf64-bext", containers.with_chunks(encoded("RF64", "PCM_24"), [bext])
    yield "wav-above-full-scale", encoded("WAV", "FLOAT", sound(peak=3.0))
    for name, value in ("nan", numpy.nan), ("infinite", -numpy.inf), ("huge", 1e38):
        samples = sound()
        samples[1000, 1] = value
        yield "wav-" + name, encoded("WAV", "FLOAT", samples)
    yield "wav-silent", encoded("WAV", "PCM_16", numpy.zeros((FRAMES, 2)))
    yield "wav-no-frames", encoded("WAV", "PCM_16", numpy.zeros((0, 2)))
    yield "wav-one-frame", encoded("WAV", "PCM_16", sound(1))


def aiff_and_caf_files():
    aiff = encoded("AIFF", "PCM_16")
    yield "aiff-texts", containers.with_chunks(aiff, tags.aiff_texts())
    yield "aiff-id3", containers.with_chunks(aiff, [], [(b"ID3 ", tags.id3v2(3, 1))])
    yield "aiff-twice", aiff + aiff
    caf = containers.with_caf_info(encoded("CAF", "PCM_16"), tags.caf_info())
    yield "caf-info", caf
    yield "caf-twice", caf + caf
    yield "caf-cut", caf[: -len(caf) // 3]


def flac_files():
    flac = encoded("FLAC", "PCM_16")
    comments = (4, tags.vorbis_comments(tags.vorbis_entries()))
    faulty = (4, tags.vorbis_comments(tags.faulty_vorbis_entries()))
    blocks = [
        (3, containers.seek_table()),
        comments,
        (6, tags.picture()),
        (6, tags.picture()),
        (2, b"test" + bytes(16)),
        (5, containers.cue_sheet(FRAMES)),
        (1, bytes(64)),
    ]
    yield "flac-comments", containers.with_flac_blocks(flac, [comments])
    yield "flac-faulty-comments", containers.with_flac_blocks(flac, [faulty])
    yield "flac-all-blocks", containers.with_flac_blocks(flac, blocks)
    yield "flac-id3", tags.id3v2(3, 1) + containers.with_flac_blocks(flac, [comments]) + tags.id3v1()
    yield "flac-unknown-length", containers.with_flac_blocks(flac, [], 0)
    yield "flac-2s-missing", containers.with_flac_blocks(flac, [], FRAMES + 96000)
    yield "flac-cut", flac[: 2 * len(flac) // 3]


def ogg_files():
    comments = tags.vorbis_entries() + [b"METADATA_BLOCK_PICTURE=" + base64.b64encode(tags.picture())]
    for codec, head, tail in ("VORBIS", b"\x03vorbis", b"\x01"), ("OPUS", b"OpusTags", b""):
        ogg = encoded("OGG", codec)
        tagged = containers.with_ogg_comments(ogg, head + tags.vorbis_comments(comments) + tail)
        faulty = containers.with_ogg_comments(ogg, head + tags.vorbis_comments(tags.faulty_vorbis_entries()) + tail)
        name = codec.lower()
        yield name + "-comments", tagged
        yield name + "-faulty-comments", faulty
        yield name + "-chained", tagged + containers.with_serial(ogg, 4711)
        yield name + "-twice", ogg + ogg
        yield name + "-cut", tagged[: -len(tagged) // 8]
        yield name + "-id3", tags.id3v2(4, 3) + ogg
    blocks = [(4, tags.vorbis_comments(comments)), (6, tags.picture())]
    flac = containers.ogg_flac(containers.with_flac_blocks(encoded("FLAC", "PCM_16"), blocks))
    yield "oga-flac", flac
    yield "oga-flac-chained", flac + containers.with_serial(flac, 4711)
    yield "oga-flac-cut", flac[: -len(flac) // 3]
    rates = encoded("OGG", "VORBIS", sound(rate=44100), 44100)
    yield "vorbis-chained-rates", encoded("OGG", "VORBIS") + containers.with_serial(rates, 4711)


def mp3_files():
    mp3 = encoded("MP3", "MPEG_LAYER_III")
    bare = mp3[mp3.index(mp3[:2], 4) :]
    for version, encodings in (2, (0, 1)), (3, (0, 1)), (4, (0, 1, 2, 3)):
        for encoding in encodings:
            yield f"mp3-id3v2.{version}-{encoding}", tags.id3v2(version, encoding, padding=20) + mp3
    yield "mp3-id3v1", mp3 + tags.id3v1()
    yield "mp3-id3-unsynchronised", tags.id3v2(3, 1, unsynchronise=True) + mp3
    yield "mp3-id3-extended", tags.id3v2(3, 0, extended=True) + mp3
    yield "mp3-id3-2.4-all", tags.id3v2(4, 1, unsynchronise=True, extended=True, padding=20) + mp3 + tags.id3v1()
    yield "mp3-id3-footer", tags.id3v2(4, 3, footer=True) + mp3
    yield "mp3-ape", mp3 + tags.ape()
    yield "mp3-ape-id3v1", tags.id3v2(4, 3) + mp3 + tags.ape() + tags.id3v1()
    yield "mp3-latin-1-as-utf-8", (tags.id3v2(4, 3) + mp3).replace("Zoë".encode(), "Zoëë".encode("latin-1"))
    yield "mp3-no-index", bare
    yield "mp3-two", mp3 + mp3
    yield "mp3-two-tagged", tags.id3v2(4, 3) + mp3 + tags.id3v1() + tags.id3v2(3, 1) + mp3 + tags.id3v1()


def long_files():
    """1.5 seconds of near silence, long enough to lose a second."""
    quiet = sound(48000, 32000, peak=0.001)
    yield "flac-long", encoded("FLAC", "PCM_16", numpy.round(quiet * 2048) / 2048, 32000)
    yield "mp3-long", encoded("MP3", "MPEG_LAYER_III", quiet, 32000)
    yield "vorbis-long", encoded("OGG", "VORBIS", quiet, 32000)
    yield "opus-long", encoded("OGG", "OPUS", sound(72000, peak=0.001))


def other_shapes():
    """Files with other channels and rates."""
    for container, codec in ("WAV", "PCM_16"), ("FLAC", "PCM_16"), ("OGG", "VORBIS"), ("MP3", "MPEG_LAYER_III"):
        name = container.lower()
        yield name + "-mono", encoded(container, codec, sound(channels=1))
        yield name + "-22050", encoded(container, codec, sound(1200, 22050), 22050)
    yield "opus-mono", encoded("OGG", "OPUS", sound(channels=1))
    for rate in 8000, 37800, 44100, 192000:
        yield f"wav-{rate}", encoded("WAV", "PCM_16", sound(1200, rate), rate)
    for channels in 3, 6:
        yield f"flac-{channels}-channels", encoded("FLAC", "PCM_16", sound(channels=channels))
    yield "w64-mono-44100", encoded("W64", "PCM_24", sound(rate=44100, channels=1), 44100)
    yield "no-audio", b"Not audio at all.\n" * 8


def options(number, flac, name):
    """The four bytes of options, different for neighbouring seeds."""
    layout = number % 256
    bits = (0, 0, 1, 2)[number // 4 % 4] if flac else number // 4 % 4
    mode_2, no_align, bypass = number // 3 % 2, number % 11 == 0, number % 13 == 0
    quiet, json, loudness_match, gain = number % 2, number // 2 % 2, number % 5 == 0, number % 7 == 0
    strict, exists = number % 17 == 0, number % 3 == 0
    what = bits | flac << 2 | mode_2 << 3 | no_align << 4 | bypass << 5
    how = quiet | json << 1 | loudness_match << 2 | gain << 3 | strict << 4 | exists << 5

    container = name.split("-")[0]
    extension = {"wavex": "wav", "vorbis": "ogg"}.get(container, container)
    misnamed = extension not in EXTENSIONS or number % 4 == 0
    return bytes([layout, what, how, number % len(EXTENSIONS) if misnamed else EXTENSIONS.index(extension)])


def main():
    folder = Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    kinds = (every_codec, wave_files, aiff_and_caf_files, flac_files, ogg_files, mp3_files, long_files, other_shapes)
    for number, (name, file) in enumerate(seed for kind in kinds for seed in kind()):
        for flac in (False, True):
            seed = folder / f"{name}-to-{'flac' if flac else 'wav'}"
            seed.write_bytes(options(number, flac, name) + file)


main()

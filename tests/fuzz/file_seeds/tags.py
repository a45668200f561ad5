"""Tags as bytes: ID3, APE, Vorbis comments, pictures, and the chunks of WAVE, AIFF and CAF that hold texts."""
# SPDX-License-Identifier: MIT

import struct
import zlib

TEXTS = {
    "title": "Grüße aus Łódź",
    "artist": "Zoë Ångström",
    "album": "夜の音",
    "date": "2023-11-05",
    "track": "3/12",
    "genre": "Ambient",
    "comment": "recorded in one take; 100 % live",
    "copyright": "© 2023 Zoë",
}
LATIN_TEXTS = {key: text for key, text in TEXTS.items() if key not in ("title", "album")} | {"title": "Grüße"}


def png():
    """A picture of one pixel."""

    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))

    header = struct.pack(">IIBBBBB", 1, 1, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(bytes(4))) + chunk(b"IEND", b"")


# --- ID3 ---

# Frame ids by the keys of TEXTS, of version 2.2 and of later ones.
ID3_FRAMES = {
    "title": (b"TT2", b"TIT2"),
    "artist": (b"TP1", b"TPE1"),
    "album": (b"TAL", b"TALB"),
    "date": (b"TYE", b"TDRC"),
    "track": (b"TRK", b"TRCK"),
    "genre": (b"TCO", b"TCON"),
    "copyright": (b"TCR", b"TCOP"),
}
# ID3 text encodings: codec and terminator.
ID3_CODECS = {0: ("latin-1", b"\0"), 1: ("utf-16", b"\0\0"), 2: ("utf-16-be", b"\0\0"), 3: ("utf-8", b"\0")}


def id3v1():
    """The tag of 128 bytes behind the audio."""
    title, artist, album = (text.encode("latin-1", "replace") for text in ("Grüße", TEXTS["artist"], "Night"))
    return b"TAG" + struct.pack("30s30s30s4s28sBBB", title, artist, album, b"2023", b"live", 0, 3, 26)


def synchsafe(number):
    """Four bytes of seven bits."""
    return bytes(number >> shift & 0x7F for shift in (21, 14, 7, 0))


def id3_frame(version, name, body, unsynchronise):
    if version == 2:
        return name + struct.pack(">I", len(body))[1:] + body
    if version == 3:
        return name + struct.pack(">IH", len(body), 0) + body
    if unsynchronise:
        body = unsynchronised(body)
    return name + synchsafe(len(body)) + struct.pack(">H", 2 * unsynchronise) + body


def id3_frames(version, encoding, texts, unsynchronise):
    """The frames that programs commonly write."""
    codec, end = ID3_CODECS[encoding]
    old = version == 2

    def text(value):
        return value.encode(codec)

    mark = bytes([encoding])
    frames = [(ID3_FRAMES[key][not old], mark + text(texts[key])) for key in ID3_FRAMES if key in texts]
    if version == 3:
        frames.append((b"TYER", mark + text("2023")))
    kind = b"PNG" if old else b"image/png\0"
    people = "IPLS" if version == 3 else "TIPL"
    named = {
        "COM": (b"COMM", mark + b"eng" + text("") + end + text(texts["comment"])),
        "ULT": (b"USLT", mark + b"eng" + text("") + end + text("la la la\nla")),
        "TXX": (b"TXXX", mark + text("REPLAYGAIN_TRACK_GAIN") + end + text("-6.20 dB")),
        "PIC": (b"APIC", mark + kind + b"\x03" + text("cover") + end + png()),
        "IPL": (
            people.encode(),
            mark + end.join(map(text, ("producer", "Zoë", "mix", "A Mixer", "role", "A, B"))) + end,
        ),
        "UFI": (b"UFID", b"http://musicbrainz.org\0" + b"0123456789abcdef"),
    }
    frames += [(short.encode() if old else long, body) for short, (long, body) in named.items()]
    if not old:
        frames.append((b"PRIV", b"example.org\0" + bytes(range(256))))
    return b"".join(id3_frame(version, name, body, unsynchronise) for name, body in frames)


def unsynchronised(body):
    """Inserts zeros so that no two bytes look like the start of an MPEG frame."""
    result = bytearray()
    for i, byte in enumerate(body):
        result.append(byte)
        if byte == 0xFF and (i + 1 == len(body) or body[i + 1] >= 0xE0 or body[i + 1] == 0):
            result.append(0)
    return bytes(result)


def id3v2(version, encoding, *, unsynchronise=False, extended=False, footer=False, padding=0):
    """The tag in front of the audio."""
    texts = LATIN_TEXTS if encoding == 0 else TEXTS
    body = id3_frames(version, encoding, texts, unsynchronise)
    if extended:
        body = (b"\0\0\0\x06\x01\0" if version == 4 else b"\0\0\0\x06" + bytes(6)) + body
    body += bytes(padding)
    if unsynchronise and version == 3:
        body = unsynchronised(body)
    flags = 0x80 * unsynchronise | 0x40 * extended | 0x10 * footer
    header = bytes([version, 0, flags]) + synchsafe(len(body))
    return b"ID3" + header + body + (b"3DI" + header if footer else b"")


# --- APE, Vorbis, FLAC ---


def ape():
    """Version 2, with header and footer."""
    binary = 2
    items = [(key.title().encode(), text.encode(), 0) for key, text in TEXTS.items()]
    items.append((b"Cover Art (Front)", b"cover.png\0" + png(), binary))
    body = b"".join(struct.pack("<II", len(value), flags) + key + b"\0" + value for key, value, flags in items)

    def end(flags):
        return b"APETAGEX" + struct.pack("<IIII8x", 2000, len(body) + 32, len(items), flags)

    return end(0xA0000000) + body + end(0x80000000)


def picture():
    """The body of FLAC's picture block."""
    mime, description, data = b"image/png", "Łódź".encode(), png()
    return (
        struct.pack(">II", 3, len(mime))
        + mime
        + struct.pack(">I", len(description))
        + description
        + struct.pack(">IIIII", 1, 1, 24, 0, len(data))
        + data
    )


def vorbis_comments(entries):
    """The comment block of Vorbis, Opus and FLAC."""
    vendor = b"an encoder"
    counted = b"".join(struct.pack("<I", len(entry)) + entry for entry in entries)
    return struct.pack("<I", len(vendor)) + vendor + struct.pack("<I", len(entries)) + counted


def vorbis_entries():
    names = {"track": "TRACKNUMBER"}
    entries = [(names.get(key, key.upper()) + "=" + text).encode() for key, text in TEXTS.items()]
    return entries + [
        b"ARTIST=a second artist",
        b"lyrics=la la la\nla",
        b"REPLAYGAIN_TRACK_GAIN=-6.20 dB",
        b"WAVEFORMATEXTENSIBLE_CHANNEL_MASK=0x0003",
        b"EMPTY=",
    ]


def faulty_vorbis_entries():
    """Entries that are invalid, but occur in files."""
    return ["ARTIST=Zoë Ångström".encode("latin-1"), b"no equals sign", b"=no name", b"N\xe4me=a", b"TITLE=a\0b", b""]


# --- WAVE, AIFF, CAF ---


def info_list(encoding):
    """The texts of a LIST chunk, without its header."""
    names = {
        "title": b"INAM",
        "artist": b"IART",
        "album": b"IPRD",
        "date": b"ICRD",
        "track": b"ITRK",
        "genre": b"IGNR",
        "comment": b"ICMT",
        "copyright": b"ICOP",
    }
    body = b"INFO"
    for key, text in TEXTS.items():
        value = text.encode(encoding, "replace") + b"\0"
        body += names[key] + struct.pack("<I", len(value)) + value + bytes(len(value) % 2)
    return body


def bext(history="A=PCM,F=48000,W=16,M=stereo,T=device\r\n"):
    """The broadcast extension, version 2."""
    return (
        struct.pack(
            "<256s32s32s10s8sQH64s5h180x",
            b"a description",
            b"an originator",
            b"ZZ0123456789",
            b"2023-11-05",
            b"12:34:56",
            123456789,
            2,
            bytes(range(64)),
            -2300,
            700,
            -100,
            -1800,
            -2000,
        )
        + history.encode()
    )


def cart():
    """The cart chunk of radio stations."""
    texts = (b"a title", b"an artist", b"a cut", b"a client", b"a category", b"a class", b"an out cue")
    programs = (b"a program", b"1.0", b"")
    timers = b"".join(struct.pack("<4sI", b"SEC1", 44100 * i) for i in range(8))
    return (
        struct.pack("<4s" + "64s" * 7, b"0101", *texts)
        + struct.pack("10s8s10s8s", b"2023-11-05", b"00:00:00", b"2033-11-05", b"23:59:59")
        + struct.pack("<64s64s64sI", *programs, 32768)
        + timers
        + struct.pack("276x1024s", b"http://example.org")
        + b"a tag text\r\n\0"
    )


IXML = b'<?xml version="1.0" encoding="UTF-8"?><BWFXML><IXML_VERSION>1.5</IXML_VERSION><SCENE>1</SCENE></BWFXML>'
CUE = struct.pack("<I", 1) + struct.pack("<II4sIII", 1, 0, b"data", 0, 0, 480)
ADTL = b"adtl" + b"labl" + struct.pack("<II", 10, 1) + b"a cue\0" + b"note" + struct.pack("<II", 11, 1) + b"a note\0\0"
SMPL = struct.pack("<9I", 0, 0, 20833, 60, 0, 0, 0, 1, 0) + struct.pack("<6I", 0, 0, 100, 200, 0, 0)


def aiff_texts():
    """The text chunks of AIFF as (id, body) pairs."""
    comments = struct.pack(">HIHH", 1, 3_000_000_000, 0, 6) + b"a note"
    return [
        (b"NAME", TEXTS["title"].encode()),
        (b"AUTH", TEXTS["artist"].encode("latin-1")),
        (b"(c) ", b"2023 a company"),
        (b"ANNO", b"a note"),
        (b"COMT", comments),
        (b"MARK", struct.pack(">HHI", 1, 1, 480) + b"\x05start"),
    ]


def caf_info():
    """The body of a CAF info chunk."""
    texts = TEXTS | {
        "track number": "4",
        "year": "2022",
        "recorded date": "2021",
        "album_artist": "Zoë",
        "tempo": "120",
    }
    strings = b"".join(key.encode() + b"\0" + text.encode() + b"\0" for key, text in texts.items())
    return struct.pack(">I", len(texts)) + strings

"""Changes of finished files: more chunks, other metadata blocks, other Ogg packets."""
# SPDX-License-Identifier: MIT

import io
import struct

from mutagen.ogg import OggPage


def with_chunks(file, before=(), behind=()):
    """Adds chunks to a RIFF or AIFF file, in front of the audio and at the end."""
    order = ">" if file[:4] == b"FORM" else "<"
    chunks, at = [], 12
    while at + 8 <= len(file):
        size = struct.unpack(order + "I", file[at + 4 : at + 8])[0]
        end = at + 8 + size + size % 2
        if file[at : at + 4] in (b"data", b"SSND"):
            chunks += [_chunk(order, *chunk) for chunk in before]
        chunks.append(file[at:end])
        at = end
    body = b"".join(chunks + [_chunk(order, *chunk) for chunk in behind])
    size = 0xFFFFFFFF if file[:4] == b"RF64" else len(body) + 4
    return file[:4] + struct.pack(order + "I", size) + file[8:12] + body


def _chunk(order, name, body):
    return name + struct.pack(order + "I", len(body)) + body + bytes(len(body) % 2)


def with_data_size(file, size):
    """Changes the size in the header of the audio chunk of a RIFF file."""
    at = file.index(b"data") + 4
    return file[:at] + struct.pack("<I", size) + file[at + 4 :]


def with_caf_info(file, info):
    """Adds an info chunk to a CAF file, in front of the audio."""
    at = file.index(b"data")
    return file[:at] + b"info" + struct.pack(">Q", len(info)) + info + file[at:]


def with_flac_blocks(file, blocks, frames=None):
    """Replaces the metadata blocks of a FLAC file by (type, body) pairs, and the total of frames in STREAMINFO."""
    at, last = 4, False
    while not last:
        last = file[at] >= 0x80
        at += 4 + int.from_bytes(file[at + 1 : at + 4], "big")
    info = bytearray(file[8:42])
    if frames is not None:
        info[13] = info[13] & 0xF0 | frames >> 32
        info[14:18] = struct.pack(">I", frames & 0xFFFFFFFF)
    head = b"fLaC"
    for i, (kind, body) in enumerate([(0, bytes(info)), *blocks]):
        head += bytes([kind | 0x80 * (i == len(blocks))]) + len(body).to_bytes(3, "big") + body
    return head + file[at:]


def seek_table():
    return struct.pack(">QQH", 0, 0, 2400) + struct.pack(">QQH", 2**64 - 1, 0, 0)


def cue_sheet(frames):
    """One track with one index, and the lead-out."""
    index = struct.pack(">QB3x", 0, 1)
    track = struct.pack(">QB12sB13xB", 0, 1, b"ABCDE1234567", 0, 1) + index
    lead_out = struct.pack(">QB12sB13xB", frames, 170, b"", 0, 0)
    return struct.pack(">128sQB258xB", b"1234567890123", 88200, 0, 2) + track + lead_out


def with_ogg_comments(file, comments):
    """Replaces the second packet of an Ogg file."""
    stream, pages = io.BytesIO(file), []
    while stream.tell() < len(file):
        pages.append(OggPage(stream))
    # The headers end with a page: two packets of Opus, three of Vorbis.
    wanted = 1 if pages[0].packets[0].startswith(b"OpusHead") else 2
    packets, used = [], 1
    while len(packets) < wanted or not pages[used - 1].complete:
        used += 1
        packets = OggPage.to_packets(pages[1:used])
    headers = OggPage.from_packets([comments] + packets[1:], sequence=1)
    renewed = pages[:1] + headers + pages[used:]
    for number, page in enumerate(renewed):
        page.serial, page.sequence = pages[0].serial, number
    return b"".join(page.write() for page in renewed)


def ogg_flac(file):
    """Puts a FLAC file into Ogg: a packet for the first metadata block, one for each of the others, one for all frames."""
    blocks, at, last = [], 4, False
    while not last:
        last, begin = file[at] >= 0x80, at
        at += 4 + int.from_bytes(file[at + 1 : at + 4], "big")
        blocks.append(file[begin:at])
    head = b"\x7fFLAC\1\0" + struct.pack(">H", len(blocks) - 1) + file[:4] + blocks[0]
    packets = [[head], [*blocks[1:]], [file[at:]]] if blocks[1:] else [[head], [file[at:]]]
    pages = [page for some in packets for page in OggPage.from_packets(some)]
    for number, page in enumerate(pages):
        page.serial, page.sequence, page.position = 1, number, 0
    pages[0].first = pages[-1].last = True
    return b"".join(page.write() for page in pages)


def with_serial(file, serial):
    """Changes the serial number of an Ogg stream, which has to be unique in a chain."""
    stream, result = io.BytesIO(file), b""
    while stream.tell() < len(file):
        page = OggPage(stream)
        page.serial = serial
        result += page.write()
    return result

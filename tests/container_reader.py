#!/usr/bin/env python3
"""Reads a container from its layout alone, as a second opinion beside the library.

    container_reader.py FILE        prints what the container holds
    container_reader.py --make DIR  makes a few unusual containers there, by hand

The first line gives the code of the walk (0, or 4002 where the file is damaged), file version and
time stamp; then each stream has a line, in the order of the index: tag, data type, file id, file
kind, extra value, offset, extent, CRC-32 of its bytes. A stream extends to the next offset at which
another one begins, or to the end of the container.
"""

import os
import struct
import sys
import zlib

HEADER, ENTRY, CONF_HEADER = 24, 32, 72
CONF = 274
FIXED_ID = {274: 100, 284: 102}
TYPE_AND_KIND = {
    256: (1, 2), 257: (3, 2), 258: (8, 2), 259: (10, 2), 260: (16, 2), 261: (5, 4),
    266: (99, 4), 267: (99, 1), 268: (4, 4), 269: (4, 1), 270: (20, 4), 271: (20, 1),
    272: (21, 4), 273: (21, 1), 274: (100, 2), 276: (6, 4), 277: (6, 1), 284: (102, 2),
    286: (51, 4), 287: (51, 1),
}


class Damaged(Exception):
    pass


def unpack(layout, data, at):
    if at + struct.calcsize(layout) > len(data):
        raise Damaged
    return struct.unpack_from(layout, data, at)


def walk(data, found):
    """Adds what the index tells to found, until its end or the first damage."""
    size, zero, count, chained = unpack("<8xIIII", data, 0)
    if size == 0 or zero != 0 or count == 0 or chained > 1:
        raise Damaged
    at, known_at = HEADER, {}
    for _ in range(count):
        if known_at.get(at) == len(found["streams"]):
            return  # a lap of a circle that found nothing: nor will the others
        known_at[at] = len(found["streams"])
        tag, number, extra, offset, following = unpack("<HxxII4xI4xI4x", data, at)
        if tag in TYPE_AND_KIND:
            data_type, kind = TYPE_AND_KIND[tag]
            file_id = FIXED_ID.get(tag, (number * 1000 + data_type) % 2**32)
            found["streams"].append((tag, data_type, file_id, kind, extra, offset))
        if tag == CONF:
            words = unpack("<18I", data, offset)
            found["version"], found["stamp"] = words[2], words[13]
        at = following if chained else at + ENTRY


def show(path):
    with open(path, "rb") as file:
        data = file.read()
    found = {"streams": [], "version": 0, "stamp": 0}
    code = 0
    try:
        walk(data, found)
    except Damaged:
        code = 4002
    print(code, found["version"], found["stamp"])
    begins = sorted({stream[-1] for stream in found["streams"]} | {len(data)})
    for stream in found["streams"]:
        end = next((begin for begin in begins if begin > stream[-1]), stream[-1])
        extent = max(end - stream[-1], 0)
        print(*stream, extent, zlib.crc32(data[stream[-1]:end]))


def header(size, count, chained):
    return struct.pack("<HHIIIII", 0x1111, 0x2222, 0x33333333, size, 0, count, chained)


def entry(tag, number, extra, offset, following=0):
    return struct.pack("<HHIIIIIII", tag, 9, number, extra, 9, offset, 9, following, 9)


def place(size, *pieces):
    data = bytearray(b"\xdd" * size)
    for at, piece in pieces:
        data[at:at + len(piece)] = piece
    return bytes(data)


def make(directory):
    conf = struct.pack("<18I", *range(1000, 1018))
    text = bytes(range(256))
    containers = {
        # Packed, with holes between the data and an unknown entry in the index.
        "holes": place(700, (0, header(700, 4, 0)), (24, entry(257, 1, 7, 400)),
                       (56, entry(262, 1, 8, 0xFFFFFFFF)), (88, entry(274, 5, 9, 180)),
                       (120, entry(261, 2, 10, 300)), (180, conf), (300, text[:50]),
                       (400, text)),
        # Chained backwards through the data; the unknown entry in its middle lies last.
        "backwards": place(600, (0, header(600, 4, 1)), (24, entry(270, 3, 1, 60, 500)),
                           (60, text[:90]), (200, entry(271, 3, 2, 240, 0xFFFFFFFF)),
                           (240, text[:10]), (400, entry(284, 8, 3, 440, 568)), (440, text[:9]),
                           (500, entry(286, 0xFFFFFFFF, 4, 540, 400)), (540, text[:20]),
                           (568, entry(1, 1, 1, 1, 200))),
        # Two conf streams, of which the later counts, and ids that wrap.
        "wrapped": place(500, (0, header(500, 4, 0)), (24, entry(274, 0, 0, 160)),
                         (56, entry(274, 1, 1, 260)), (88, entry(266, 4294968, 2, 400)),
                         (120, entry(267, 4294967295, 3, 420)), (160, conf), (260, conf[8:] + conf)),
        # Two laps and a half of a circle, all of it known.
        "circle": place(200, (0, header(200, 5, 1)), (24, entry(259, 1, 1, 90, 56)),
                        (56, entry(260, 2, 2, 95, 24)), (90, text[:50])),
        # A circle that adds nothing, for ever.
        "idle": place(160, (0, header(160, 0xFFFFFFFF, 1)), (24, entry(256, 1, 1, 120, 56)),
                      (56, entry(0, 0, 0, 0, 88)), (88, entry(0xFFFF, 0, 0, 0, 56))),
        # Fewer entries than announced.
        "cut": place(100, (0, header(100, 3, 0)), (24, entry(272, 1, 1, 90)),
                     (56, entry(273, 1, 1, 95))),
    }
    for name, data in containers.items():
        with open(os.path.join(directory, name), "wb") as file:
            file.write(data)


if __name__ == "__main__":
    if len(sys.argv) == 3 and sys.argv[1] == "--make":
        make(sys.argv[2])
    elif len(sys.argv) == 2:
        show(sys.argv[1])
    else:
        sys.exit(__doc__)

"""Builds whole and damaged containers."""

import struct

HEADER = 24
ENTRY = 32
CONF = struct.pack("<18I", 0, 0, 3, *[0] * 10, 1234567, *[0] * 4)


def entry(tag, number, offset, extra=0, next=0, length=0):
    return struct.pack("<HHIIIIIII", tag, 0, number, extra, 0, offset, length, next, 0)


def container(streams, index_type=0, **changes):
    """Returns a container of (tag, number, data) streams, in order and without gaps.

    changes: `header` {offset: word} and `entries` {index: {field: value}} replace words, `count`
    replaces the number of entries, `cut` removes bytes at the end, `more` adds some.
    """
    at = HEADER + ENTRY * len(streams)
    entries, data = [], b""
    for index, (tag, number, content) in enumerate(streams):
        fields = {"tag": tag, "number": number, "offset": at + len(data),
                  "next": HEADER + ENTRY * (index + 1), "length": len(content)}
        fields.update(changes.get("entries", {}).get(index, {}))
        entries.append(entry(**fields))
        data += content
    words = [0, 0, at + len(data), 0, changes.get("count", len(streams)), index_type]
    for offset, word in changes.get("header", {}).items():
        words[offset // 4] = word
    whole = struct.pack("<6I", *words) + b"".join(entries) + data
    return whole[:len(whole) - changes.get("cut", 0)] + b"?" * changes.get("more", 0)


# Three streams: data at 120, 220 and 292, the end at 592.
THREE = [(256, 1, b"a" * 100), (274, 0, CONF), (268, 7, b"c" * 300)]

# Damaged containers and their expected findings, each (code, offset).
DAMAGED = {
    "half a header": (container(THREE)[:23], [("header-cut-off", 0)]),
    "size 0": (container(THREE, header={8: 0}), [("header-size-zero", 8)]),
    "word not 0": (container(THREE, header={12: 1}), [("header-word-not-zero", 12)]),
    "no entries": (container(THREE, count=0), [("header-no-entries", 16)]),
    "index type 2": (container(THREE, 2), [("header-index-type", 20)]),
    "text": (b"This is no container, but a letter to somebody.",
             [("header-word-not-zero", 12), ("header-index-type", 20)]),
    "last stream cut off": (container(THREE, cut=10),
                            [("file-too-short", 582), ("data-cut-off", 292)]),
    "last stream gone": (container(THREE, cut=301),
                         [("file-too-short", 291), ("conf-header-cut-off", 220),
                          ("data-cut-off", 220), ("data-past-end", 88)]),
    "index cut off": (container(THREE)[:100],
                      [("file-too-short", 100), ("entry-past-end", 88), ("data-past-end", 24),
                       ("conf-header-cut-off", 220), ("data-past-end", 56),
                       ("longer-than-noted", 292)]),
    "bytes behind": (container(THREE, more=5), [("file-too-long", 592)]),
    "one entry too many": (container([(256, 1, b"a" * 10)], count=2), [("entry-past-end", 56)]),
    "data past the end": (container(THREE, entries={2: {"offset": 593}}),
                          [("data-past-end", 88), ("longer-than-noted", 292)]),
    "data behind the given size": (container(THREE, header={8: 200}),
                                   [("file-too-long", 200), ("data-past-end", 56),
                                    ("data-past-end", 88), ("shorter-than-noted", 200)]),
    "index behind the given size": (container(THREE, header={8: 100}),
                                    [("file-too-long", 100), ("entry-past-size", 88),
                                     ("data-past-end", 24), ("data-past-end", 56),
                                     ("data-past-end", 88)]),
    "conf header cut off": (container([THREE[0], (274, 0, CONF[:71])]),
                            [("conf-header-cut-off", 188)]),
    "unknown tag": (container(THREE, entries={0: {"tag": 262}}), [("unknown-tag", 24)]),
    "same stream twice": (container(THREE + [(268, 7, b"d")]), [("entry-hidden", 120)]),
    "same bytes twice": (container(THREE, entries={2: {"offset": 120, "length": 100}}),
                         [("overlap", 120), ("longer-than-noted", 292)]),
    "one stream inside another": (container(THREE, entries={0: {"length": 150}}),
                                  [("overlap", 220)]),
    "data in the header": (container(THREE, entries={0: {"offset": 8}}),
                           [("overlap", 8), ("overlap", 24), ("gap", 120)]),
    "data in the index": (container(THREE, entries={0: {"offset": 60}}),
                          [("overlap", 60), ("overlap", 88), ("gap", 120)]),
    "a length too short": (container(THREE, entries={0: {"length": 90}}),
                           [("longer-than-noted", 210)]),
    "no length fits": (container(THREE, entries={n: {"length": 9999} for n in range(3)}),
                       [("noted-lengths", 24)]),
    "bytes of nobody": (container([(256, 1, b"a" * 9)], entries={0: {"offset": 60, "length": 5}}),
                        [("gap", 56)]),
    "chain to itself": (container(THREE, 1, entries={1: {"next": 56}}, count=9),
                        [("chain-circle", 56), ("longer-than-noted", 292)]),
    "chain to the first": (container(THREE, 1, entries={2: {"next": 24}}, count=1000000),
                           [("chain-circle", 88)]),
    "chain that ends before its circle is closed twice": (
        container(THREE, 1, entries={2: {"next": 24}}, count=4), [("chain-circle", 88)]),
    "chain out of the file": (container(THREE, 1, entries={1: {"next": 0xFFFFFFF0}}),
                              [("entry-past-end", 0xFFFFFFF0), ("longer-than-noted", 292)]),
    "entries on one another": (
        container(THREE, 1, entries={0: {"next": 40}}, count=2),
        [("overlap", 40), ("unknown-tag", 40), ("longer-than-noted", 220), ("gap", 72)]),
    "entry in the header": (
        container(THREE, 1, entries={0: {"next": 0}}, count=2),
        [("overlap", 0), ("overlap", 24), ("unknown-tag", 0), ("longer-than-noted", 220),
         ("gap", 56)]),
}

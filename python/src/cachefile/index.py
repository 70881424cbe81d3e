"""Reads the index of a container. Time and memory are limited for any input."""

from __future__ import annotations

import enum
import struct
from array import array
from typing import Any, NamedTuple, Optional, Sequence, Tuple, Union

from . import _np
from .layout import (
    CHAINED,
    ENTRY,
    ENTRY_SIZE,
    HEADER_SIZE,
    MAX_ENTRIES_READ,
    MAX_KNOWN_ENTRIES,
    TAGS,
    Header,
    parse_header,
)
from .sources import BLOCK, IndexBlocks, Source

_NEXT = struct.Struct("<24xI4x")


class EndOfWalk(enum.Enum):
    """Why the walk of the index ended."""

    NONE = "the file has no valid container header"
    COMPLETE = "all entries that the header counts were read"
    CUT_OFF = "the next entry is not completely in the file"
    CIRCLE = "the chain leads back to an entry that was read before"
    TOO_MANY = "there are more entries than a reader accepts"


class Entry(NamedTuple):
    """The words of an entry, without the reserved ones."""

    tag: int
    number: int
    extra: int
    offset: int
    noted: int
    following: int


class Index:
    """The entries of a container in the order of the walk, each once, including unknown tags.

    The entries are kept as raw bytes, 32 each; ``entry`` parses one on request.
    """

    def __init__(
        self,
        header: Header,
        raw: bytes = b"",
        places: Sequence[int] = (),
        end: EndOfWalk = EndOfWalk.NONE,
        end_offset: int = 0,
        known: Sequence[int] = (),
    ) -> None:
        self.header = header
        self.raw = raw
        self.places = places  #: the offsets of the entries in the file
        self.end = end
        self.end_offset = end_offset  #: the offset of the next entry
        self.known = known  #: the indexes of the entries with known tags

    def __len__(self) -> int:
        return len(self.places)

    def entry(self, index: int) -> Entry:
        """Returns the entry with this index, counted from 0."""
        return Entry._make(ENTRY.unpack_from(self.raw, index * ENTRY_SIZE))

    def tag(self, index: int) -> int:
        """Returns the tag of the entry with this index."""
        return self.raw[index * ENTRY_SIZE] | self.raw[index * ENTRY_SIZE + 1] << 8

    def columns(self) -> Any:
        """Returns all entries as a NumPy array with named fields."""
        names = ["tag", "number", "extra", "offset", "noted", "following"]
        layout = {
            "names": names,
            "formats": ["<u2"] + ["<u4"] * 5,
            "offsets": [0, 4, 8, 16, 20, 24],
            "itemsize": ENTRY_SIZE,
        }
        return _np.numpy.frombuffer(self.raw, dtype=_np.numpy.dtype(layout))


def read_index(source: Source) -> Index:
    """Reads the header and the index.

    This takes at most two reads if the index is packed, or chained in file order.
    """
    first = source.read(0, BLOCK)
    header = parse_header(first)
    if not header.accepted:
        return Index(header)
    count = min(header.entry_count, MAX_ENTRIES_READ)
    if header.index_type != CHAINED:
        raw = _front(source, first, count)
        return _finish(header, raw, _in_a_row(raw), HEADER_SIZE + len(raw))
    return _Chain(source, header, first).walk()


def _front(source: Source, first: bytes, count: int) -> bytes:
    """Returns the bytes of the first entries after the header, at most count whole entries."""
    end = min(HEADER_SIZE + count * ENTRY_SIZE, source.size)
    if end <= len(first):
        data = first[HEADER_SIZE:end]
    elif source.remote:
        data = first[HEADER_SIZE:] + source.read(len(first), end - len(first))
    else:
        data = source.read(HEADER_SIZE, end - HEADER_SIZE)
    partial = len(data) % ENTRY_SIZE
    return data[:-partial] if partial else data


def _in_a_row(raw: bytes) -> range:
    return range(HEADER_SIZE, HEADER_SIZE + len(raw), ENTRY_SIZE)


def _count_in_a_row(raw: bytes) -> int:
    """Returns how many entries from the first one on are chained in file order without gaps."""
    count = len(raw) // ENTRY_SIZE
    np = _np.numpy
    if np is not None:
        following = np.frombuffer(raw, dtype="<u4")[6::8]
        expected = np.arange(1, count + 1, dtype=np.uint32) * ENTRY_SIZE + HEADER_SIZE
        elsewhere = np.flatnonzero(following != expected)
        return int(elsewhere[0]) + 1 if len(elsewhere) else count
    expected_place = HEADER_SIZE
    for index, (following_place,) in enumerate(_NEXT.iter_unpack(raw)):
        expected_place += ENTRY_SIZE
        if following_place != expected_place:
            return index + 1
    return count


class _Chain:
    """Walks a chained index: first the entries in file order together, then the others singly."""

    def __init__(self, source: Source, header: Header, first: bytes) -> None:
        self._source = source
        self._header = header
        self._count = min(header.entry_count, MAX_ENTRIES_READ)
        self._first = first

    def walk(self) -> Index:
        raw = self._read_row()
        if not raw:
            return _finish(self._header, b"", range(0), HEADER_SIZE)
        at = _NEXT.unpack_from(raw, len(raw) - ENTRY_SIZE)[0]
        places = _in_a_row(raw)
        if len(places) == self._count:
            return _finish(self._header, raw, places, at)
        return self._follow(bytearray(raw), array("Q", places), at)

    def _read_row(self) -> bytes:
        first_entries = min(self._count, (len(self._first) - HEADER_SIZE) // ENTRY_SIZE)
        raw = _front(self._source, self._first, first_entries)
        row = _count_in_a_row(raw)
        if row * ENTRY_SIZE == len(raw) and row < self._count:
            raw = _front(self._source, self._first, self._count)
            row = _count_in_a_row(raw)
        return raw[: row * ENTRY_SIZE]

    def _follow(self, raw: bytearray, places: "array[int]", at: int) -> Index:
        """Walks the rest of the chain entry by entry.

        Circles are detected with Brent's algorithm: each offset is compared with one remembered
        offset, which is replaced after 1, 2, 4, 8 and so on steps. A chain that has only gone
        forward cannot have closed a circle, so the comparison starts with the first step back.
        """
        blocks = IndexBlocks(self._source)
        blocks.keep(self._first)
        lap: Optional[int] = None
        watching = at <= places[-1]
        there, steps, next_move = -1, 0, 1
        for _ in range(self._count - len(places)):
            if watching:
                steps += 1
                if at == there:
                    lap = steps
                    break
                if steps == next_move:
                    there, steps, next_move = at, 0, next_move * 2
            data = blocks.entry(at)
            if len(data) != ENTRY_SIZE:
                break
            raw += data
            places.append(at)
            following = _NEXT.unpack(data)[0]
            watching = watching or following <= at
            at = following
        if lap is None and watching:
            lap = _lap(places)
        return _finish(self._header, bytes(raw), places, at, lap)


def _lap(places: "array[int]") -> Optional[int]:
    """Returns after how many steps the chain repeats, or None if it does not.

    Each entry has one successor. So if any offset of the walk occurs twice, the last offset occurs
    twice too, with the same distance.
    """
    last = places[-1]
    for steps in range(1, len(places)):
        if places[-1 - steps] == last:
            return steps
    return None


def _first_repeat(places: Sequence[int], lap: int) -> int:
    """Returns the index of the first offset that repeats an earlier one, by binary search.

    From the entry of the circle on, each offset equals the one a lap later.
    """
    low, high = 0, len(places) - 1 - lap
    while low < high:
        middle = (low + high) // 2
        if places[middle] == places[middle + lap]:
            high = middle
        else:
            low = middle + 1
    return low + lap


def _finish(
    header: Header,
    raw: bytes,
    places: "Union[range, array[int]]",
    at: int,
    lap: Optional[int] = None,
) -> Index:
    """Makes the index from a walk: keeps each entry once, and at most MAX_KNOWN_ENTRIES known."""
    keep = len(places)
    known = _known(raw)
    end = EndOfWalk.COMPLETE
    if len(known) > MAX_KNOWN_ENTRIES:
        keep = int(known[MAX_KNOWN_ENTRIES])
        end, at = EndOfWalk.TOO_MANY, places[keep]
    elif lap is None and keep < header.entry_count:
        end = EndOfWalk.TOO_MANY if keep == MAX_ENTRIES_READ else EndOfWalk.CUT_OFF
    if lap is not None and isinstance(places, array):
        way = places + array("Q", [at]) if end is not EndOfWalk.TOO_MANY else places
        repeat = _first_repeat(way, lap)
        if repeat < keep or end is EndOfWalk.COMPLETE:
            keep, end, at = repeat, EndOfWalk.CIRCLE, way[repeat]
    if keep < len(places):
        raw, places = raw[: keep * ENTRY_SIZE], places[:keep]
        known = _known(raw)
    return Index(header, raw, places, end, at, known)


def _known(raw: bytes) -> Sequence[int]:
    count = len(raw) // ENTRY_SIZE
    known: Sequence[int]
    np = _np.numpy
    if np is not None:
        table = np.zeros(65536, dtype=bool)
        table[list(TAGS)] = True
        known = np.flatnonzero(table[np.frombuffer(raw, dtype="<u2")[::16]])
    else:
        tags = struct.iter_unpack("<H30x", raw)
        known = array("L", [index for index, (tag,) in enumerate(tags) if tag in TAGS])
    return range(count) if len(known) == count else known


def first_matches(describers: "Sequence[Tuple[int, int, int]]") -> "dict[Tuple[int, int, int], int]":
    """Maps (type, id, single bit of a kind) to the index of the first describer that has it."""
    found: "dict[Tuple[int, int, int], int]" = {}
    for index, (data_type, stream_id, kind) in enumerate(describers):
        if kind & (kind - 1) == 0:
            found.setdefault((data_type, stream_id, kind), index)
        else:
            for bit in range(8):
                if kind & 1 << bit:
                    found.setdefault((data_type, stream_id, 1 << bit), index)
    return found

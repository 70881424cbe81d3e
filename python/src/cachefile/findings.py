"""What is wrong with a container, from its header and index alone: the findings of ``doctor``."""

from __future__ import annotations

from bisect import bisect_right
from typing import Dict, List, Sequence, Tuple

from .errors import Finding, Severity
from .extents import Extents
from .index import EndOfWalk, Entry, Index
from .layout import (
    CONF_SIZE,
    CONF_TAG,
    ENTRY_SIZE,
    HEADER_SIZE,
    PACKED,
    CHAINED,
    TAGS,
    file_id,
    stream_name,
)

#: Every code there is. The codes are for programs and do not change.
SEVERITIES: Dict[str, Severity] = {
    "header-cut-off": Severity.ERROR,
    "header-size-zero": Severity.ERROR,
    "header-word-not-zero": Severity.ERROR,
    "header-no-entries": Severity.ERROR,
    "header-index-type": Severity.ERROR,
    "file-too-short": Severity.ERROR,
    "file-too-long": Severity.WARNING,
    "entry-past-end": Severity.ERROR,
    "entry-past-size": Severity.WARNING,
    "too-many-entries": Severity.ERROR,
    "chain-circle": Severity.ERROR,
    "data-past-end": Severity.ERROR,
    "data-cut-off": Severity.ERROR,
    "conf-header-cut-off": Severity.ERROR,
    "overlap": Severity.WARNING,
    "entry-hidden": Severity.WARNING,
    "unknown-tag": Severity.WARNING,
}


def _bytes(count: int) -> str:
    return f"{count:,} byte" + ("" if count == 1 else "s")


def examine(index: Index, file_size: int, extents: Extents) -> List[Finding]:
    """The findings in the order of the file's parts: header, size, index, streams."""
    examiner = _Examiner(index, file_size, extents)
    examiner.run()
    return examiner.findings


class _Examiner:
    def __init__(self, index: Index, file_size: int, extents: Extents) -> None:
        self.findings: List[Finding] = []
        self._index = index
        self._header = index.header
        self._declared = index.header.size
        self._size = file_size
        self._extents, self._lengths = extents

    def run(self) -> None:
        self._examine_header()
        if self._index.end is EndOfWalk.NONE:
            return
        self._examine_size()
        self._examine_entries()
        self._examine_end_of_walk()
        self._examine_streams()
        self._examine_starts()

    def _add(self, code: str, offset: int, message: str) -> None:
        self.findings.append(Finding(SEVERITIES[code], code, offset, message))

    def _who(self, index: int) -> str:
        entry = self._index.entry(index)
        name = f"entry {index + 1}"
        if entry.tag not in TAGS:
            return name
        return f"{name} ({stream_name(*self._key(entry))})"

    @staticmethod
    def _key(entry: Entry) -> Tuple[int, int, int]:
        data_type, kind = TAGS[entry.tag]
        return data_type, file_id(entry.tag, entry.number), kind

    def _examine_header(self) -> None:
        header = self._header
        if self._size < HEADER_SIZE:
            self._add("header-cut-off", 0, f"the header has {_bytes(self._size)} of {HEADER_SIZE}")
            return
        if header.size == 0:
            self._add("header-size-zero", 8, "the size is given as 0")
        if header.must_be_zero != 0:
            self._add("header-word-not-zero", 12, f"a word that has to be 0 is {header.must_be_zero}")
        if header.entry_count == 0:
            self._add("header-no-entries", 16, "the number of entries is given as 0")
        if header.index_type not in (PACKED, CHAINED):
            message = f"the index type is {header.index_type}, which is neither 0 nor 1"
            self._add("header-index-type", 20, message)

    def _examine_size(self) -> None:
        message = f"the header says {_bytes(self._declared)}, the file has {self._size:,}"
        if self._size < self._declared:
            self._add("file-too-short", self._size, message)
        if self._size > self._declared:
            self._add("file-too-long", self._declared, message)

    def _examine_entries(self) -> None:
        """Entries of a chain may lie anywhere, also on one another."""
        places = self._index.places
        for i, place in enumerate(places):
            if place < HEADER_SIZE:
                self._add("overlap", place, f"{self._who(i)} lies in the header")
            if place + ENTRY_SIZE > self._declared:
                message = f"{self._who(i)} reaches past the {_bytes(self._declared)} of the header"
                self._add("entry-past-size", place, message)
        if isinstance(places, range):
            return
        order = sorted(range(len(places)), key=places.__getitem__)
        for before, i in zip(order, order[1:]):
            if places[i] < places[before] + ENTRY_SIZE:
                self._add("overlap", places[i], f"{self._who(i)} lies on {self._who(before)}")

    def _examine_end_of_walk(self) -> None:
        end, at = self._index.end, self._index.end_offset
        read, count = len(self._index), self._header.entry_count
        following = f"entry {read + 1} of {count}"
        if end is EndOfWalk.CUT_OFF:
            self._add("entry-past-end", at, f"{following} is not in the file, or not all of it")
        elif end is EndOfWalk.TOO_MANY:
            self._add("too-many-entries", at, f"{following} is more than a reader takes")
        elif end is EndOfWalk.CIRCLE:
            message = f"{self._who(read - 1)} leads back to the entry at {at}"
            self._add("chain-circle", self._index.places[read - 1], message)

    def _examine_streams(self) -> None:
        first: Dict[Tuple[int, int, int], int] = {}
        for i, place in enumerate(self._index.places):
            entry = self._index.entry(i)
            if entry.tag not in TAGS:
                self._add("unknown-tag", place, f"{self._who(i)} has the unknown tag {entry.tag}")
                continue
            earlier = first.setdefault(self._key(entry), i)
            if earlier != i:
                message = f"{self._who(i)} cannot be reached: entry {earlier + 1} is the same stream"
                self._add("entry-hidden", place, message)
            self._examine_data(i, place, entry)

    def _examine_data(self, i: int, place: int, entry: Entry) -> None:
        at, extent = entry.offset, int(self._extents[i])
        present = min(extent, max(self._size - at, 0))
        if entry.tag == CONF_TAG and at + CONF_SIZE > self._size:
            message = f"{self._who(i)}: its header of {CONF_SIZE} bytes is cut off"
            self._add("conf-header-cut-off", at, message)
        if at > self._declared or at > self._size:
            message = f"{self._who(i)} has its data at {at}, past the end"
            self._add("data-past-end", place, message)
        elif present < extent:
            message = f"{self._who(i)} lacks {_bytes(extent - present)} of {extent:,}"
            self._add("data-cut-off", at, message)

    def _examine_starts(self) -> None:
        """Looks for streams that begin inside of something else."""
        places = sorted(self._index.places)
        starts = [self._index.entry(i).offset for i in range(len(self._index))]
        order = sorted(range(len(starts)), key=starts.__getitem__)
        notes = self._holds_lengths(starts)
        for position, i in enumerate(order):
            at, entry = starts[i], self._index.entry(i)
            if entry.tag not in TAGS:
                continue
            above = bisect_right(places, at)
            in_entry = above > 0 and at < places[above - 1] + ENTRY_SIZE
            inside = in_entry or at < HEADER_SIZE
            if inside:
                where = "index" if in_entry else "header"
                self._add("overlap", at, f"{self._who(i)} has its data in the {where}")
            present = min(int(self._extents[i]), max(self._size - at, 0))
            if position > 0 and starts[order[position - 1]] == at and present > 0:
                message = f"{self._who(i)} has the same bytes as {self._who(order[position - 1])}"
                self._add("overlap", at, message)
            if notes and not inside:
                self._examine_length(i, entry)

    def _holds_lengths(self, starts: Sequence[int]) -> bool:
        return False

    def _examine_length(self, i: int, entry: Entry) -> None:
        return

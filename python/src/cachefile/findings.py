"""Checks the header and the index of a container and reports the findings of ``doctor``."""

from __future__ import annotations

from array import array
from bisect import bisect_right
from heapq import merge
from itertools import chain
from typing import Callable, Dict, Optional, Sequence, Tuple

from .errors import Finding, Findings, Severity
from .extents import NOTED as _NOTED
from .extents import OFFSET as _OFFSET
from .extents import Extents
from .index import EndOfWalk, Entry, Index
from .layout import (
    CHAINED,
    CONF_SIZE,
    CONF_TAG,
    ENTRY_SIZE,
    HEADER_SIZE,
    PACKED,
    TAGS,
    file_id,
    stream_name,
)

#: All codes. Programs depend on them, so they do not change.
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
    "shorter-than-noted": Severity.WARNING,
    "longer-than-noted": Severity.WARNING,
    "noted-lengths": Severity.WARNING,
    "gap": Severity.WARNING,
    "entry-hidden": Severity.WARNING,
    "unknown-tag": Severity.WARNING,
}


def _bytes(count: int) -> str:
    return f"{count:,} byte" + ("" if count == 1 else "s")


def examine(index: Index, file_size: int, extents: Extents, limit: Optional[int]) -> Findings:
    """Returns the findings in the order of the file's parts: header, size, index, streams."""
    examiner = _Examiner(index, file_size, extents, limit)
    examiner.run()
    return examiner.findings


class _Examiner:
    def __init__(
        self, index: Index, file_size: int, extents: Extents, limit: Optional[int]
    ) -> None:
        self.findings = Findings()
        self._limit = limit
        self._index = index
        self._header = index.header
        self._declared = index.header.size
        self._size = file_size
        self._extents, self._lengths = extents
        self._places: Sequence[int] = index.places  # where entries begin, sorted later
        self._starts = array("Q", [words[0] for words in _OFFSET.iter_unpack(index.raw)])
        self._order: Sequence[int] = ()  # the entries by their starts

    def run(self) -> None:
        self._examine_header()
        if self._index.end is EndOfWalk.NONE:
            return
        self._examine_size()
        self._examine_entries()
        self._examine_end_of_walk()
        self._examine_streams()
        self._order = sorted(range(len(self._starts)), key=self._starts.__getitem__)
        self._examine_starts()
        self._examine_lengths()
        if self._index.end is EndOfWalk.COMPLETE:
            self._examine_gaps()

    def _add(self, code: str, offset: int, message: Callable[[], str]) -> None:
        """Counts a finding, and keeps it up to the limit: there may be millions of them.

        The message is a function, so that only the messages of kept findings are formatted.
        """
        count = self.findings.totals.get(code, 0)
        self.findings.totals[code] = count + 1
        if self._limit is None or count < self._limit:
            self.findings.append(Finding(SEVERITIES[code], code, offset, message()))

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
            has = f"the header has {_bytes(self._size)} of {HEADER_SIZE}"
            self._add("header-cut-off", 0, lambda: has)
            return
        if header.size == 0:
            self._add("header-size-zero", 8, lambda: "the size in the header is 0")
        if header.must_be_zero != 0:
            word = f"the word that must be 0 is {header.must_be_zero}"
            self._add("header-word-not-zero", 12, lambda: word)
        if header.entry_count == 0:
            self._add("header-no-entries", 16, lambda: "the number of entries in the header is 0")
        if header.index_type not in (PACKED, CHAINED):
            kind = f"the index type is {header.index_type}, which is neither 0 nor 1"
            self._add("header-index-type", 20, lambda: kind)

    def _examine_size(self) -> None:
        message = f"the header says {_bytes(self._declared)}, the file has {self._size:,}"
        if self._size < self._declared:
            self._add("file-too-short", self._size, lambda: message)
        if self._size > self._declared:
            self._add("file-too-long", self._declared, lambda: message)

    def _examine_entries(self) -> None:
        """Looks for entries outside the container, and for chained entries that overlap."""
        places = self._index.places
        for i, place in enumerate(places):
            if place < HEADER_SIZE:
                self._add("overlap", place, lambda: f"{self._who(i)} overlaps the header")
            if place + ENTRY_SIZE > self._declared:
                end = f"the {_bytes(self._declared)} that the header gives"
                self._add("entry-past-size", place, lambda: f"{self._who(i)} ends after {end}")
        if isinstance(places, range):
            return
        order = sorted(range(len(places)), key=places.__getitem__)
        for before, i in zip(order, order[1:]):
            if places[i] - places[before] < ENTRY_SIZE:
                self._add(
                    "overlap", places[i], lambda: f"{self._who(i)} overlaps {self._who(before)}"
                )
        self._places = array("Q", [places[i] for i in order])

    def _examine_end_of_walk(self) -> None:
        end, at = self._index.end, self._index.end_offset
        read, count = len(self._index), self._header.entry_count
        following = f"entry {read + 1} of {count}"
        if end is EndOfWalk.CUT_OFF:
            self._add("entry-past-end", at, lambda: f"{following} is not completely in the file")
        elif end is EndOfWalk.TOO_MANY:
            self._add("too-many-entries", at, lambda: f"{following} is more than a reader keeps")
        elif end is EndOfWalk.CIRCLE:
            back = f"points back to the entry at {at}: {read} of {count} entries can be reached"
            place = self._index.places[read - 1]
            self._add("chain-circle", place, lambda: f"{self._who(read - 1)} {back}")

    def _examine_streams(self) -> None:
        first: Dict[Tuple[int, int, int], int] = {}
        for i, place in enumerate(self._index.places):
            entry = self._index.entry(i)
            tag = entry.tag
            if tag not in TAGS:
                self._add("unknown-tag", place, lambda: f"{self._who(i)} has the unknown tag {tag}")
                continue
            same = first.setdefault(self._key(entry), i)
            if same != i:
                why = f"cannot be reached: entry {same + 1} names the same stream"
                self._add("entry-hidden", place, lambda: f"{self._who(i)} {why}")
            self._examine_data(i, place, entry)

    def _examine_data(self, i: int, place: int, entry: Entry) -> None:
        at, length = entry.offset, int(self._lengths[i])
        there = max(self._size - at, 0)
        if entry.tag == CONF_TAG and there < CONF_SIZE:
            has = f"the file has {there} of the {CONF_SIZE} bytes of its header"
            message = f"{has}; a reader stops here"
            self._add("conf-header-cut-off", at, lambda: f"{self._who(i)}: {message}")
        if at > self._declared or at > self._size:
            end = "of the file" if at > self._size else "given in the header"
            past = f"has its data at {at}, past the end {end}"
            self._add("data-past-end", place, lambda: f"{self._who(i)} {past}")
        elif there < length:
            lacks = f"lacks {_bytes(length - there)} of {length:,}"
            self._add("data-cut-off", at, lambda: f"{self._who(i)} {lacks}")

    def _examine_starts(self) -> None:
        """Looks for streams that begin in the header, in an entry, or where another one begins."""
        end = min(self._declared, self._size)
        before = -1
        for i in self._order:
            at = self._starts[i]
            if self._index.tag(i) in TAGS:
                above = bisect_right(self._places, at)
                in_entry = above > 0 and at - self._places[above - 1] < ENTRY_SIZE
                if in_entry or at < HEADER_SIZE:
                    where = "has its data inside the " + ("index" if in_entry else "header")
                    self._add("overlap", at, lambda: f"{self._who(i)} {where}")
                if before >= 0 and self._starts[before] == at and at < end:
                    both = (i, before)
                    self._add("overlap", at, lambda: self._same_start(*both))
            before = i

    def _same_start(self, i: int, before: int) -> str:
        return f"{self._who(i)} starts at the same byte as {self._who(before)}"

    def _examine_lengths(self) -> None:
        """Compares the noted lengths with the extents.

        If no note fits, the writer used the words for something else, which is one finding.
        """
        words = (word for (word,) in _NOTED.iter_unpack(self._index.raw))
        both = [(noted, int(extent)) for noted, extent in zip(words, self._extents)]
        notes = [(i, *pair) for i, pair in enumerate(both) if pair[0] != 0 or pair[1] == 0]
        if notes and all(noted > extent for _, noted, extent in notes):
            message = f"none of the {len(notes):,} noted lengths fits"
            if len(notes) == 1:
                message = "the only noted length does not fit"
            self._add("noted-lengths", HEADER_SIZE, lambda: message)
            return
        for i, noted, extent in notes:
            if self._index.tag(i) in TAGS and self._starts[i] <= self._declared:
                self._examine_length(i, noted, extent)

    def _examine_length(self, i: int, noted: int, extent: int) -> None:
        at = self._starts[i]
        but = f"has a noted length of {_bytes(noted)}, but"
        if noted < extent:
            why = f"{but} nothing else begins before {extent:,}"
            self._add("longer-than-noted", at + noted, lambda: f"{self._who(i)} {why}")
        elif noted > extent:
            inside = at + extent < self._declared
            what = "something else begins" if inside else "the container ends"
            why = f"{but} {what} after {extent:,}"
            code = "overlap" if inside else "shorter-than-noted"
            self._add(code, at + extent, lambda: f"{self._who(i)} {why}")

    def _examine_gaps(self) -> None:
        """Looks for bytes that belong to no entry and no stream.

        Bytes between a noted end and the end of the extent were reported as longer-than-noted.
        """
        entries = ((place, ENTRY_SIZE) for place in self._places)
        data = ((self._starts[i], int(self._extents[i])) for i in self._order)
        covered = HEADER_SIZE
        last = iter([(self._declared, 0)])
        for begin, size in chain(merge(entries, data), last):
            end = min(begin, self._declared)
            if end > covered:
                count = end - covered
                self._add("gap", covered, lambda: f"{_bytes(count)} are not used")
            covered = max(covered, begin + size)

"""Derives from an index where the streams of a container end.

The index has only the offsets of the streams. So a stream extends to the next offset at which
something else begins: the data of an entry, known or not, or the 32 bytes of an entry. Otherwise it
extends to the end of the container.

An entry may also note the length of its stream, but other writers use that word for other purposes.
A note fits if it is not longer than the extent. 0 is no note if the extent is not empty. If at
least half of all notes fit, those that fit are used as lengths.
"""

from __future__ import annotations

import struct
from array import array
from bisect import bisect_right
from typing import Any, Sequence, Tuple

from . import _np
from .index import Index
from .layout import ENTRY_SIZE, MAX_OFFSET

OFFSET = struct.Struct("<16xI12x")
NOTED = struct.Struct("<20xI8x")

#: For each entry of an index, its extent (the bytes up to what begins next) and its length.
Extents = Tuple[Sequence[int], Sequence[int]]


def derive(index: Index, file_size: int) -> Extents:
    """Returns the extents and lengths of all entries.

    If several entries have the same offset, the last one has the extent. The extent of each other
    one is its note, or empty if that does not fit.
    """
    if _np.numpy is not None and len(index) > 64:
        return _derive_fast(_np.numpy, index, file_size)
    return _derive(index, file_size)


def _derive(index: Index, file_size: int) -> Extents:
    offsets = array("Q", [words[0] for words in OFFSET.iter_unpack(index.raw)])
    notes = array("Q", [words[0] for words in NOTED.iter_unpack(index.raw)])
    bounds = sorted([*index.places, *(place + ENTRY_SIZE for place in index.places)])
    order = sorted(range(len(offsets)), key=offsets.__getitem__)
    extents, lengths = array("Q", offsets), array("Q", offsets)
    count = fitting = 0
    size, following = 0, MAX_OFFSET
    for position in range(len(order) - 1, -1, -1):
        i = order[position]
        at, noted = offsets[i], notes[i]
        last = position + 1 == len(order) or offsets[order[position + 1]] != at
        if last:
            end = index.header.size if at <= index.header.size else file_size
            bound = bisect_right(bounds, at)
            if bound < len(bounds):
                end = min(end, bounds[bound])
            size = max(min(end, following) - at, 0)
            following = at
        note = noted != 0 or size == 0
        fits = note and noted <= size
        count += note
        fitting += fits
        extents[i] = size if last else noted if fits else 0
        lengths[i] = noted if fits else extents[i]
    return extents, lengths if 2 * fitting >= count else extents


def _derive_fast(np: Any, index: Index, file_size: int) -> Extents:
    columns = index.columns()
    offsets = columns["offset"].astype(np.int64)
    noted = columns["noted"].astype(np.int64)
    places = np.asarray(index.places, dtype=np.int64)
    bounds = np.sort(np.concatenate((places, places + ENTRY_SIZE, [1 << 40])))
    begins, group = np.unique(offsets, return_inverse=True)
    ends = np.where(begins <= index.header.size, index.header.size, file_size)
    ends = np.minimum(np.minimum(ends, MAX_OFFSET), np.append(begins[1:], 1 << 40))
    ends = np.minimum(ends, bounds[np.searchsorted(bounds, begins, side="right")])
    sizes = np.maximum(ends - begins, 0)[group]
    note = (noted != 0) | (sizes == 0)
    fits = note & (noted <= sizes)
    last = np.zeros(len(begins), dtype=np.int64)
    np.maximum.at(last, group, np.arange(len(offsets)))
    is_last = last[group] == np.arange(len(offsets))
    extents = np.where(is_last, sizes, np.where(fits, noted, 0))
    believed = 2 * np.count_nonzero(fits) >= np.count_nonzero(note)
    return extents, np.where(fits, noted, extents) if believed else extents

"""Packs streams into a container. The bytes are the same as those of the library's writer."""

from __future__ import annotations

import io
import os
from typing import BinaryIO, Callable, Iterable, Iterator, List, NamedTuple, Optional, Tuple, Union

from .errors import CacheFileError, Code
from .layout import (
    CHAINED,
    CONF_SIZE,
    CONF_TAG,
    ENTRY,
    ENTRY_SIZE,
    HEADER,
    HEADER_SIZE,
    MAX_KNOWN_ENTRIES,
    MAX_OFFSET,
    PACKED,
    stream_name,
    tag_and_number,
)
from .recording import Stream

_BLOCK = 1 << 20
_MOST_PARTIALS = 1000

Progress = Callable[[int, int], object]
Data = Union[bytes, bytearray, memoryview, "os.PathLike[str]"]


class Source(NamedTuple):
    """A stream to be packed: its description, and its bytes or the path of a file with them."""

    type: int
    id: int
    kind: int
    data: Data
    extra: int = 0


class _Item(NamedTuple):
    tag: int
    number: int
    extra: int
    name: str
    size: int
    data: Union[Data, Stream]


def pack(
    path: "Union[str, os.PathLike[str]]",
    streams: "Iterable[Union[Source, Stream, Tuple[int, int, int, Data]]]",
    *,
    index_type: int = PACKED,
    file_version: Optional[int] = None,
    time_stamp: Optional[int] = None,
    progress: Optional[Progress] = None,
) -> None:
    """Writes a container with these streams, in their order, to path. An existing file is replaced.

    streams: tuples of type, id, kind, data and optionally the extra value; or streams of an open
    recording. data is bytes-like, or an os.PathLike of a file.

    file_version and time_stamp are set in the header of the conf stream (100:100:2), which is added
    at the end if it is missing. If only one of them is given, the other is 0. The file gets its
    final name after all of it is on the disk. progress is called after each block of
    at most 1 MiB, with the number of bytes written so far and of all bytes of the streams. An
    exception that it raises cancels the call: nothing is left, and an existing file stays.

    Raises CacheFileError with one of these codes. INVALID_ARG: a container cannot hold such a
    stream, a stream is given twice, a conf stream is shorter than its header, or the container
    would be larger than 4 GiB - 1 byte. INVALID_STATE: there is no stream. OUT_OF_MEMORY: there are
    more than 1,048,576 streams. FAILED: a file changed its size during the call. Raises OSError if
    a file cannot be read or written.
    """
    if index_type not in (PACKED, CHAINED):
        raise CacheFileError(Code.INVALID_ARG, f"unknown index type {index_type}")
    with_header = file_version is not None or time_stamp is not None
    words = _word(file_version or 0), _word(time_stamp or 0)
    items = _collect(streams)
    if with_header and all(item.tag != CONF_TAG for item in items):
        items.append(_Item(CONF_TAG, 0, 0, "100:100:2", CONF_SIZE, bytes(CONF_SIZE)))
    if not items:
        raise CacheFileError(Code.INVALID_STATE, "there is no stream to pack")
    if len(items) > MAX_KNOWN_ENTRIES:
        raise CacheFileError(Code.OUT_OF_MEMORY, "there are more streams than a reader accepts")
    index = _lay_out(items, index_type)
    name = os.fspath(path)
    with _PartialFile(name) as partial:
        partial.file.write(index)
        total, done = sum(item.size for item in items), 0
        for item in items:
            for count in _write_data(partial.file, item, words if with_header else None):
                done += count
                if progress is not None:
                    progress(done, total)
        partial.finish()


def _word(value: int) -> bytes:
    if not 0 <= value <= MAX_OFFSET:
        raise CacheFileError(Code.INVALID_ARG, f"{value} does not fit into 32 bits")
    return value.to_bytes(4, "little")


def _collect(
    streams: "Iterable[Union[Source, Stream, Tuple[int, int, int, Data]]]",
) -> "List[_Item]":
    items: List[_Item] = []
    names = set()
    for stream in streams:
        item = _item(stream)
        if item.name in names:
            raise CacheFileError(Code.INVALID_ARG, f"{item.name} is given twice")
        if item.tag == CONF_TAG and item.size < CONF_SIZE:
            message = f"{item.name} is shorter than the {CONF_SIZE} bytes of its header"
            raise CacheFileError(Code.INVALID_ARG, message)
        names.add(item.name)
        items.append(item)
    return items


def _item(stream: "Union[Source, Stream, Tuple[int, int, int, Data]]") -> _Item:
    data: Union[Data, Stream]
    if isinstance(stream, Stream):
        data_type, stream_id, kind, data, extra = (
            stream.type, stream.id, stream.kind, stream, stream.extra
        )  # fmt: skip
        size = stream.length
    else:
        data_type, stream_id, kind, data, extra = Source(*stream)
        if isinstance(data, os.PathLike):
            size = os.stat(data).st_size
        else:
            data = memoryview(data).cast("B")
            size = len(data)
    name = stream_name(data_type, stream_id, kind)
    found = tag_and_number(data_type, stream_id, kind)
    if found is None or not 0 <= extra <= MAX_OFFSET:
        message = f"a container cannot hold {name}"
        raise CacheFileError(Code.INVALID_ARG, message)
    return _Item(*found, extra, name, size, data)


def _lay_out(items: "List[_Item]", index_type: int) -> bytes:
    """Returns header and index. Data has no gaps; empty streams begin at the end of the file."""
    begin = HEADER_SIZE + ENTRY_SIZE * len(items)
    size = begin + sum(item.size for item in items)
    if size > MAX_OFFSET:
        raise CacheFileError(Code.INVALID_ARG, "the container would be larger than 4 GiB - 1 byte")
    parts = [HEADER.pack(0, 0, 0, size, 0, len(items), index_type)]
    at = begin
    for number, item in enumerate(items, 1):
        chained = index_type == CHAINED and number < len(items)
        following = HEADER_SIZE + ENTRY_SIZE * number if chained else 0
        offset = at if item.size else size
        parts.append(
            ENTRY.pack(item.tag, item.number, item.extra, offset, item.size, following)
        )
        at += item.size
    return b"".join(parts)


def _write_data(
    file: BinaryIO, item: _Item, words: Optional[Tuple[bytes, bytes]]
) -> Iterator[int]:
    """Writes block by block, and yields the size of each."""
    with _reader(item) as reader:
        done = 0
        while done < item.size:
            block = reader.read(min(_BLOCK, item.size - done))
            if not block:
                raise CacheFileError(Code.FAILED, f"the source of {item.name} became shorter")
            if done == 0 and words is not None and item.tag == CONF_TAG:
                block = block[:8] + words[0] + block[12:52] + words[1] + block[56:]
            file.write(block)
            done += len(block)
            yield len(block)
        if reader.read(1):
            raise CacheFileError(Code.FAILED, f"the source of {item.name} has grown")


def _reader(item: _Item) -> BinaryIO:
    if isinstance(item.data, Stream):
        return io.BufferedReader(_StreamReader(item.data), _BLOCK)
    if isinstance(item.data, os.PathLike):
        return open(item.data, "rb")
    return io.BytesIO(item.data)


class _StreamReader(io.RawIOBase):
    def __init__(self, stream: Stream) -> None:
        self._stream = stream
        self._at = 0

    def readable(self) -> bool:
        return True

    def readinto(self, buffer: "memoryview") -> int:  # type: ignore[override]
        data = self._stream.read(self._at, len(buffer))
        buffer[: len(data)] = data
        self._at += len(data)
        return len(data)


class _PartialFile:
    """A file that gets its final name when it is complete.

    Until then its bytes are in a file in the same directory, with the first free name of
    NAME.partial, NAME.partial2 and so on. An unfinished file is removed.
    """

    def __init__(self, path: str) -> None:
        self._path = path
        self._partial = path + ".partial"
        self._finished = False
        self.file: BinaryIO

    def __enter__(self) -> "_PartialFile":
        for number in range(2, _MOST_PARTIALS + 2):
            try:
                self.file = open(self._partial, "xb")
                return self
            except FileExistsError:
                self._partial = f"{self._path}.partial{number}"
        raise FileExistsError(f"{self._path}.partial to {self._partial} all exist")

    def finish(self) -> None:
        """Syncs the file to the disk and renames it."""
        self.file.flush()
        os.fsync(self.file.fileno())
        self.file.close()
        os.replace(self._partial, self._path)
        self._finished = True
        _sync_directory(os.path.dirname(self._path) or ".")

    def __exit__(self, *_: object) -> None:
        self.file.close()
        if not self._finished:
            os.remove(self._partial)


def _sync_directory(path: str) -> None:
    """Syncs the new name to the disk, if the system can do that."""
    if not hasattr(os, "O_DIRECTORY"):
        return
    descriptor = os.open(path, os.O_RDONLY | os.O_DIRECTORY)
    try:
        os.fsync(descriptor)
    except OSError:
        pass  # some file systems cannot do this; the file itself is on the disk
    finally:
        os.close(descriptor)

"""Sources of a recording's bytes: a file, a file object, or a URL through fsspec."""

from __future__ import annotations

import importlib
import io
import mmap
import os
import stat
import threading
from collections import OrderedDict
from typing import Any, BinaryIO, Optional, Union

from .errors import CacheFileError, Code
from .layout import ENTRY_SIZE, MAX_ENTRIES_READ

BLOCK = 65536


class Source:
    """Bytes that any thread can read at any offset. ``size`` is the size when it was opened."""

    name = ""
    size = 0
    remote = False  #: each read is a network request, so a few large reads are best

    def read(self, offset: int, length: int) -> bytes:
        """Returns length bytes at offset, fewer only at the end."""
        raise NotImplementedError

    def view(self, offset: int, length: int) -> memoryview:
        """Returns the same bytes, without a copy if the source allows that."""
        return memoryview(self.read(offset, length))

    def close(self) -> None:
        """Closes the source. Later reads fail; views stay valid."""


class FileSource(Source):
    """A local file. The first view maps it into memory."""

    def __init__(self, path: "Union[str, os.PathLike[str]]") -> None:
        self.name = os.fspath(path)
        if not stat.S_ISREG(os.stat(path).st_mode):
            raise CacheFileError(Code.FAILED, f"{self.name} is not a regular file")
        self._file: BinaryIO = io.open(path, "rb", buffering=0)
        self._map: Optional[mmap.mmap] = None
        self._lock = threading.Lock()
        self.size = os.fstat(self._file.fileno()).st_size

    def read(self, offset: int, length: int) -> bytes:
        if length <= 0 or offset >= self.size:
            return b""
        length = min(length, self.size - offset)
        if not hasattr(os, "pread"):
            with self._lock:
                self._file.seek(offset)
                return _read_whole(self._file, length)
        data = os.pread(self._file.fileno(), length, offset)
        while len(data) < length:
            more = os.pread(self._file.fileno(), length - len(data), offset + len(data))
            if not more:
                break
            data += more
        return data

    def view(self, offset: int, length: int) -> memoryview:
        if length <= 0 or offset >= self.size:
            return memoryview(b"")
        with self._lock:
            if self._map is None:
                self._map = mmap.mmap(self._file.fileno(), self.size, access=mmap.ACCESS_READ)
            return memoryview(self._map)[offset : offset + length]

    def close(self) -> None:
        # The map is not closed: views may still use it. It is freed with the last of them.
        self._map = None
        self._file.close()


class ObjectSource(Source):
    """A seekable binary file object. The caller owns it, so it is not closed here."""

    def __init__(self, file: BinaryIO) -> None:
        self._file = file
        self._lock = threading.Lock()
        self.name = str(getattr(file, "name", "file object"))
        self.size = file.seek(0, os.SEEK_END)

    def read(self, offset: int, length: int) -> bytes:
        with self._lock:
            self._file.seek(offset)
            return _read_whole(self._file, max(0, min(length, self.size - offset)))


class UrlSource(Source):
    """A file at a URL that fsspec supports, read by ranges."""

    remote = True

    def __init__(self, url: str, options: "dict[str, Any]") -> None:
        try:
            fsspec: Any = importlib.import_module("fsspec")
        except ImportError:
            raise CacheFileError(Code.FAILED, f"{url}: fsspec is not installed") from None
        self._fs, self._path = fsspec.core.url_to_fs(url, **options)
        size = self._fs.info(self._path).get("size")
        if size is None:
            raise CacheFileError(Code.FAILED, f"{url}: the server does not report the size")
        self.name = url
        self.size = int(size)

    def read(self, offset: int, length: int) -> bytes:
        length = min(length, self.size - offset)
        if length <= 0:
            return b""
        data = bytes(self._fs.cat_file(self._path, start=offset, end=offset + length))
        if len(data) > length:
            raise CacheFileError(Code.FAILED, f"{self.name}: the server ignores ranges")
        return data


def _read_whole(file: BinaryIO, length: int) -> bytes:
    parts = []
    while length > 0:
        part = file.read(length)
        if not part:
            break
        parts.append(part)
        length -= len(part)
    return b"".join(parts)


class IndexBlocks:
    """Reads single entries of an index that is spread over a file.

    A remote source is read in aligned blocks of 64 KiB, and the 1,024 most recently used blocks are
    cached. A local source is read in blocks of 64 KiB only after several small steps forward.
    Otherwise a chain in random order would read 64 KiB for each entry of 32 bytes.
    """

    KEPT_BLOCKS = 1024
    MOST_BLOCKS = 65536  #: the number of blocks in a file of 4 GiB
    _STEPS_FOR_BLOCK = 8

    def __init__(self, source: Source) -> None:
        self._source = source
        self._block, self._begin = b"", 0
        self._last, self._steps = 0, 0
        self._kept: "OrderedDict[int, bytes]" = OrderedDict()
        self._fetched = 0

    def entry(self, at: int) -> bytes:
        """Returns the 32 bytes at this offset, fewer at the end of the file."""
        within = at - self._begin
        if not 0 <= within <= len(self._block) - ENTRY_SIZE:
            if self._source.remote:
                return self._remote_entry(at)
            self._count_step(at)
            if self._steps < self._STEPS_FOR_BLOCK:
                return self._source.read(at, ENTRY_SIZE)
            self._block, self._begin, within = self._source.read(at, BLOCK), at, 0
        else:
            self._count_step(at)
        return self._block[within : within + ENTRY_SIZE]

    def _count_step(self, at: int) -> None:
        self._steps = self._steps + 1 if 0 < at - self._last < BLOCK // 2 else 0
        self._last = at

    def _remote_entry(self, at: int) -> bytes:
        number, within = divmod(at, BLOCK)
        data = self._remote_block(number)
        if within > BLOCK - ENTRY_SIZE:
            data += self._remote_block(number + 1)
        else:
            self._block, self._begin = data, number * BLOCK
        return data[within : within + ENTRY_SIZE]

    def keep(self, data: bytes) -> None:
        """Puts the first bytes of the file, which were read already, into the cache."""
        for begin in range(0, len(data), BLOCK):
            if begin + BLOCK <= len(data) or len(data) == self._source.size:
                self._kept[begin // BLOCK] = data[begin : begin + BLOCK]

    def _remote_block(self, number: int) -> bytes:
        if number in self._kept:
            self._kept.move_to_end(number)
            return self._kept[number]
        self._fetched += 1
        if self._fetched > self.MOST_BLOCKS:
            message = f"{self._source.name}: reading the index needs too many requests"
            raise CacheFileError(Code.OUT_OF_MEMORY, message)
        data = self._source.read(number * BLOCK, BLOCK)
        self._kept[number] = data
        if len(self._kept) > self.KEPT_BLOCKS:
            self._kept.popitem(last=False)
        return data


MOST_INDEX_BYTES = MAX_ENTRIES_READ * ENTRY_SIZE

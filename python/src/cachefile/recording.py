"""Opens recordings: containers and directories of record files."""

from __future__ import annotations

import os
import re
import struct
from typing import (
    TYPE_CHECKING,
    Any,
    BinaryIO,
    Dict,
    Iterator,
    List,
    Optional,
    Sequence,
    Tuple,
    Union,
    overload,
)

from . import _np, extents, findings
from .errors import CacheFileError, Code, ContainerError, Findings
from .index import EndOfWalk, Index, first_matches, read_index
from .layout import (
    CONF,
    CONF_SIZE,
    CONF_TAG,
    CONF_TYPE,
    TAGS,
    Header,
    file_id,
    stream_file_name,
    stream_name,
)
from .sources import FileSource, ObjectSource, Source, UrlSource

if TYPE_CHECKING:
    import numpy
    import numpy.typing

Openable = Union[str, "os.PathLike[str]", BinaryIO]
Describer = Tuple[int, int, int]

_FILE_NAME = re.compile(r"(0|[1-9][0-9]*)_(0|[1-9][0-9]*)-([1-9][0-9]*)\.dat")


class Stream:
    """One stream of a recording: an entry of a container, or a record file of a directory.

    It can be read while its recording is open. Any thread may read.
    """

    __slots__ = ("_recording", "index", "type", "id", "kind", "extra", "offset")

    def __init__(
        self, recording: "Recording", index: int, describer: Describer, extra: int, offset: int
    ) -> None:
        self._recording = recording
        self.index = index  #: the index, from 0, of its entry in the container or in the directory
        self.type, self.id, self.kind = describer
        self.extra = extra  #: a value that only the application interprets
        self.offset = offset  #: the offset of its first byte in the container; 0 in a directory

    @property
    def name(self) -> str:
        """TYPE:ID:KIND, as on the command line."""
        return stream_name(self.type, self.id, self.kind)

    @property
    def length(self) -> int:
        """The number of bytes that can be read, without bytes that the file lacks."""
        return self._recording._length(self)

    def __len__(self) -> int:
        return self.length

    def read(self, offset: int = 0, length: int = -1) -> bytes:
        """Returns length bytes at offset, fewer at the end of the stream.

        Without a length it returns everything from offset on.
        """
        start, count = self._range(offset, length)
        source, base = self._recording._place(self)
        return source.read(base + start, count)

    def view(self, offset: int = 0, length: int = -1) -> memoryview:
        """Returns the same bytes as a memoryview of the mapped file, without a copy.

        The view stays valid after the recording is closed. If the file is truncated while it is
        mapped, the system ends a process that accesses the missing bytes (SIGBUS); ``read`` does
        not have this problem. For a URL or a file object the bytes are copied.
        """
        start, count = self._range(offset, length)
        source, base = self._recording._place(self)
        return source.view(base + start, count)

    def numpy(self, dtype: Any = "u1", offset: int = 0, length: int = -1) -> "numpy.typing.NDArray[Any]":
        """Returns the same bytes as a read-only array over the view.

        The number of bytes must be a multiple of the item size.
        """
        np = _np.numpy
        if np is None:
            raise CacheFileError(Code.FAILED, "NumPy is not installed")
        array: "numpy.typing.NDArray[Any]" = np.frombuffer(self.view(offset, length), dtype=dtype)
        return array

    def _range(self, offset: int, length: int) -> Tuple[int, int]:
        if offset < 0:
            raise CacheFileError(Code.INVALID_ARG, "the offset is negative")
        there = max(self.length - offset, 0)
        return offset, there if length < 0 else min(length, there)

    def __repr__(self) -> str:
        return f"<Stream {self.name}>"


class Streams(Sequence[Stream]):
    """The streams of a recording in order.

    The Stream objects are created on access, because a container may have a million streams.
    """

    def __init__(self, recording: "Recording", indexes: Sequence[int]) -> None:
        self._recording = recording
        self._indexes = indexes

    def __len__(self) -> int:
        return len(self._indexes)

    @overload
    def __getitem__(self, position: int) -> Stream: ...

    @overload
    def __getitem__(self, position: slice) -> List[Stream]: ...

    def __getitem__(self, position: Union[int, slice]) -> Union[Stream, List[Stream]]:
        if isinstance(position, slice):
            return [self._recording._stream(int(index)) for index in self._indexes[position]]
        return self._recording._stream(int(self._indexes[position]))

    def __iter__(self) -> Iterator[Stream]:
        return (self._recording._stream(int(index)) for index in self._indexes)


class Recording:
    """A recording that is open for reading. ``cachefile.open`` returns it. A context manager.

    Several threads may use it at the same time.
    """

    name: str
    streams: Streams  #: in the order of the index; in a directory sorted by type, id and kind
    _first: Optional[Dict[Describer, int]] = None

    def find(self, data_type: int, stream_id: int, kinds: int = 255) -> Optional[Stream]:
        """Returns the stream that a player reads for this type, id and mask of kinds, or None.

        It is the first one with this type and id whose kind is in the mask.
        """
        if self._first is None:
            self._first = first_matches(self._describers())
        keys = ((data_type, stream_id, 1 << bit) for bit in range(8) if kinds & 1 << bit)
        found = [self._first[key] for key in keys if key in self._first]
        return self.streams[min(found)] if found else None

    def __getitem__(self, name: str) -> Stream:
        """Returns the stream with the name TYPE:ID:KIND, or raises KeyError."""
        parts = name.split(":")
        found = None
        if len(parts) == 3 and all(part.isdecimal() for part in parts):
            found = self.find(int(parts[0]), int(parts[1]), int(parts[2]))
        if found is None:
            raise KeyError(name)
        return found

    @property
    def file_version(self) -> Optional[int]:
        """The file version in the conf stream's header, or None if there is none."""
        return self._conf()[0]

    @property
    def time_stamp(self) -> Optional[int]:
        """The CB time stamp in the conf stream's header, or None if there is none."""
        return self._conf()[1]

    @property
    def findings(self) -> Findings:
        """The findings of ``cachefile doctor`` for the container; none for a directory.

        The list has the first 100 findings of each code; ``examine`` can return all of them.
        """
        return Findings()

    def close(self) -> None:
        """Closes the recording. Its streams cannot be read afterwards; views stay valid."""

    def __enter__(self) -> "Recording":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<{type(self).__name__} {self.name!r}, {len(self.streams)} streams>"

    def _stream(self, index: int) -> Stream:
        raise NotImplementedError

    def _describers(self) -> List[Describer]:
        raise NotImplementedError

    def _conf(self) -> Tuple[Optional[int], Optional[int]]:
        raise NotImplementedError

    def _length(self, stream: Stream) -> int:
        raise NotImplementedError

    def _place(self, stream: Stream) -> Tuple[Source, int]:
        raise NotImplementedError


class Container(Recording):
    """A recording in one file."""

    def __init__(self, source: Source) -> None:
        self._source = source
        self.name = source.name
        self.index: Index = read_index(source)
        self.header: Header = self.index.header
        self.streams = Streams(self, self.index.known)
        self._extents: Optional[extents.Extents] = None
        self._conf_words: Optional[Tuple[Optional[int], Optional[int]]] = None

    @property
    def size(self) -> int:
        """The size of the file, which may differ from the size in the header."""
        return self._source.size

    @property
    def extents(self) -> extents.Extents:
        """For each entry, the bytes up to what begins next and the length of the stream."""
        if self._extents is None:
            self._extents = extents.derive(self.index, self.size)
        return self._extents

    @property
    def findings(self) -> Findings:
        return self.examine()

    def examine(self, limit: Optional[int] = 100) -> Findings:
        """Returns at most limit findings of each code, or all of them if limit is None."""
        return findings.examine(self.index, self.size, self.extents, limit)

    def close(self) -> None:
        self._source.close()

    def _stream(self, index: int) -> Stream:
        entry = self.index.entry(index)
        data_type, kind = TAGS[entry.tag]
        describer = data_type, file_id(entry.tag, entry.number), kind
        return Stream(self, index, describer, entry.extra, entry.offset)

    def _describers(self) -> List[Describer]:
        words = struct.iter_unpack("<HxxI24x", self.index.raw)
        known = ((tag, number) for tag, number in words if tag in TAGS)
        return [(TAGS[tag][0], file_id(tag, number), TAGS[tag][1]) for tag, number in known]

    def _length(self, stream: Stream) -> int:
        there = max(self.size - stream.offset, 0)
        return min(int(self.extents[1][stream.index]), there)

    def _place(self, stream: Stream) -> Tuple[Source, int]:
        return self._source, stream.offset

    def _conf(self) -> Tuple[Optional[int], Optional[int]]:
        """Reads the words from the last conf stream that has a complete header."""
        if self._conf_words is None:
            self._conf_words = None, None
            tags = [tag for (tag,) in struct.iter_unpack("<H30x", self.index.raw)]
            for index in range(len(tags) - 1, -1, -1):
                offset = self.index.entry(index).offset if tags[index] == CONF_TAG else self.size
                if offset + CONF_SIZE <= self.size:
                    version, stamp = CONF.unpack(self._source.read(offset, CONF_SIZE))
                    self._conf_words = version, stamp
                    break
        return self._conf_words


class Directory(Recording):
    """A recording in a directory of record files, as ``cachefile record`` creates it.

    Names and lengths are read when it is opened.
    """

    def __init__(self, path: "Union[str, os.PathLike[str]]") -> None:
        self.name = os.fspath(path)
        self.other_files: List[str] = []  #: names of files that are not record files
        self._files: List[Tuple[Describer, int]] = []
        self._sources: Dict[int, FileSource] = {}
        with os.scandir(path) as entries:
            for entry in entries:
                describer = _parse_file_name(entry.name)
                if describer and entry.is_file():
                    self._files.append((describer, entry.stat().st_size))
                else:
                    self.other_files.append(entry.name)
        self._files.sort()
        self.other_files.sort()
        self.streams = Streams(self, range(len(self._files)))

    def close(self) -> None:
        for source in self._sources.values():
            source.close()
        self._sources.clear()

    def _stream(self, index: int) -> Stream:
        return Stream(self, index, self._files[index][0], 0, 0)

    def _describers(self) -> List[Describer]:
        return [describer for describer, _ in self._files]

    def _length(self, stream: Stream) -> int:
        return self._files[stream.index][1]

    def _place(self, stream: Stream) -> Tuple[Source, int]:
        source = self._sources.get(stream.index)
        if source is None:
            file_name = stream_file_name(stream.type, stream.id, stream.kind)
            source = FileSource(os.path.join(self.name, file_name))
            source = self._sources.setdefault(stream.index, source)
        return source, 0

    def _conf(self) -> Tuple[Optional[int], Optional[int]]:
        for stream in self.streams:
            if stream.type == CONF_TYPE and stream.length >= CONF_SIZE:
                version, stamp = CONF.unpack(stream.read(0, CONF_SIZE))
                return version, stamp
        return None, None


def _parse_file_name(name: str) -> Optional[Describer]:
    match = _FILE_NAME.fullmatch(name)
    if not match:
        return None
    data_type, stream_id, kind = map(int, match.groups())
    good = data_type <= 0xFFFF and stream_id <= 0xFFFFFFFF and kind <= 0xFF
    return (data_type, stream_id, kind) if good else None


def _source(what: Openable, options: "Dict[str, Any]") -> Source:
    if not isinstance(what, (str, os.PathLike)):
        return ObjectSource(what)
    path = os.fspath(what)
    if isinstance(what, str) and re.match(r"[A-Za-z][A-Za-z0-9+.-]+(::[^:]+)*://", path):
        return UrlSource(path, options)
    return FileSource(path)


def open_recording(what: Openable, **options: Any) -> Recording:
    """Opens a recording: a container or a directory of record files.

    what: a path, a seekable binary file object (the caller closes it), or a URL. A URL requires
    fsspec, to which the options are passed.

    A damaged container opens as far as a player could read it, and ``findings`` of the result
    describes the damage. Raises ContainerError if the file has no valid container header, and
    OSError if it cannot be read.
    """
    if isinstance(what, (str, os.PathLike)) and os.path.isdir(what):
        return Directory(what)
    container = _open_container(what, options)
    if container.index.end is EndOfWalk.NONE:
        found = container.findings
        container.close()
        reason = "; ".join(finding.message for finding in found)
        message = f"{container.name} is not a container: {reason}"
        raise ContainerError(Code.BAD_CONTAINER, message, found)
    return container


def _open_container(what: Openable, options: "Dict[str, Any]") -> Container:
    source = _source(what, options)
    try:
        return Container(source)
    except BaseException:
        source.close()
        raise


def examine(what: Openable, limit: Optional[int] = 100, **options: Any) -> Findings:
    """Returns the findings of ``cachefile doctor`` for a file, even if it is not a container.

    The list has at most limit findings of each code, or all of them if limit is None.
    """
    container = _open_container(what, options)
    with container:
        return container.examine(limit)

"""A stream that is being recorded, and how its failures are reported."""

from __future__ import annotations

import collections
import ctypes
from typing import TYPE_CHECKING, List, NamedTuple, Tuple, Union

from . import library
from .errors import CacheFileError, Code

if TYPE_CHECKING:
    from .recorder import Recorder

_END = 0xFFFFFFFF
_MOST = 0xFFFFFFFF
_MOST_HOLES = 1024
_PART = 32_768


class RecordingError(CacheFileError):
    """A recording failed. ``lost`` counts bytes that a call had accepted and that were lost."""

    def __init__(self, code: int, message: str, lost: int = 0) -> None:
        super().__init__(code, message)
        self.lost = lost

    def __reduce__(self) -> "Tuple[object, ...]":
        return type(self), (int(self.code), self.args[0], self.lost)


class Hole(NamedTuple):
    """A place of a stream where bytes are missing.

    If ``in_place`` is false, an append of ``length`` bytes failed there, and what was appended
    later begins at ``offset``. Otherwise a write at an offset or a sync failed, and it is not
    certain what the file has there.
    """

    offset: int
    length: int
    in_place: bool


class Losses(NamedTuple):
    """What became of the bytes of an open stream."""

    lost: int  #: after the call that took them had succeeded
    pending: int  #: accepted and not yet written
    unsynced: int  #: written and not yet on the disk
    holes: List[Hole]  #: sorted by offset, 1,024 at most
    all_holes: bool  #: whether the holes show all lost bytes


def check(result: int, what: str) -> None:
    if result != Code.OK:
        raise RecordingError(result, f"{what}: {library.result_text(result)}")


class RecordedStream:
    """A stream that is being recorded. ``Recorder.open`` returns it."""

    def __init__(self, recorder: "Recorder", name: str, file: int) -> None:
        self._recorder = recorder
        self.name = name  #: TYPE:ID:KIND
        self._file = file

    def append(self, data: "Union[bytes, bytearray, memoryview]") -> None:
        """Writes bytes at the end. The library gathers small pieces into blocks of 32 KiB."""
        self.write(data, _END)

    def write(self, data: "Union[bytes, bytearray, memoryview]", offset: int) -> None:
        """Writes bytes at an offset below 2^31."""
        recorder, lib = self._recorder, self._recorder._enter()
        address, length, memory = library.address(data)
        if length > _MOST or not 0 <= offset <= _END:
            raise RecordingError(Code.INVALID_ARG, f"write {self.name}: out of range")
        result = lib.cachefile_writer_write(recorder._writer, self._file, address, length, offset)
        del memory
        check(result, f"write {self.name}")

    async def send(self, data: "Union[bytes, bytearray, memoryview]") -> None:
        """Appends, and waits while the limit of pending bytes is reached.

        It appends in parts of 32 KiB, because these fit under any limit. Only one coroutine at a
        time may send to a stream; otherwise their parts would be mixed.
        """
        view = memoryview(data).cast("B")
        for begin in range(0, len(view), _PART):
            while not self._try_append(view[begin : begin + _PART]):
                await self._recorder._wake_up()

    def _try_append(self, data: memoryview) -> bool:
        try:
            self.append(data)
            return True
        except CacheFileError as error:
            if error.code != Code.TRY_AGAIN:
                raise
            return False

    def flush(self) -> None:
        """Writes the gathered bytes. Raises failures that the worker has reported."""
        lib = self._recorder._enter()
        lib.cachefile_writer_flush(self._recorder._writer, self._file)
        self._recorder.check()

    def sync(self) -> None:
        """Brings everything to the disk: the bytes, the name and the directories of the file.

        Blocks until that is done or has failed; coroutines use ``synced``. After a failed sync the
        bytes since the last good one count as lost. Also raises failures that the worker has
        reported.
        """
        results = self._begin_sync()
        while not results:
            self._recorder.wait()
        self._end_sync(results[0])

    async def synced(self) -> None:
        """As ``sync``, but the event loop goes on until the bytes are on the disk."""
        results = self._begin_sync()
        while not results:
            await self._recorder._wake_up()
        self._end_sync(results[0])

    def _begin_sync(self) -> List[int]:
        """Returns a list that receives the result of the sync, at once in synchronous mode."""
        results: List[int] = []
        recorder, lib = self._recorder, self._recorder._enter()
        result = lib.cachefile_writer_sync(recorder._writer, self._file)
        if result == Code.OK and recorder._asynchronous:
            recorder._syncs.setdefault(self._file, collections.deque()).append(results)
        else:
            results.append(result)
        return results

    def _end_sync(self, result: int) -> None:
        if result != Code.OK:
            text = f"sync {self.name}: {library.result_text(result)}"
            raise RecordingError(result, text, self._recorder._take_lost())
        self._recorder.check()

    def losses(self) -> Losses:
        """Returns what became of the stream's bytes. The stream must be open."""
        lib = self._recorder._enter()
        losses = library.LossesStruct(ctypes.sizeof(library.LossesStruct))
        holes = (library.HoleStruct * _MOST_HOLES)()
        result = lib.cachefile_writer_losses(
            self._recorder._writer, self._file, ctypes.byref(losses), holes, _MOST_HOLES
        )
        check(result, f"losses of {self.name}")
        known = [Hole(one.offset, one.length, bool(one.in_place)) for one in holes[: losses.holes]]
        return Losses(losses.lost, losses.pending, losses.unsynced, known, bool(losses.all_holes))

    def close(self) -> None:
        """Writes the gathered bytes and closes the file. Closing twice has no effect."""
        file, self._file = self._file, 0
        if file:
            self._recorder._streams.pop(file, None)
            lib = self._recorder._enter()
            result = lib.cachefile_writer_close(self._recorder._writer, file)
            check(result, f"close {self.name}")

    def __enter__(self) -> "RecordedStream":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

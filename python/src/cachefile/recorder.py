"""Records with the installed library. ``library`` says how it is found."""

from __future__ import annotations

import asyncio
import ctypes
import os
import threading
from types import TracebackType
from typing import Any, Callable, ClassVar, Deque, Dict, List, Optional, Set, Type, Union

from . import library
from .errors import Code
from .layout import stream_file_name, stream_name
from .recorded import RecordedStream, RecordingError, check

_ASYNC = 1
_MOST = 0xFFFFFFFF
_POLL_SECONDS = 0.005
_OPERATIONS = {1: "open", 2: "close", 3: "read", 4: "write"}


class Recorder:
    """Records streams as record files in a directory, which is created if it is missing.

    A context manager. ``async with`` also connects it with the running event loop. Only the thread
    that created the recorder may call it.

    In asynchronous mode the library's worker thread writes the files. The next ``check``, ``flush``
    or ``close`` raises a failure of the worker. ``close`` returns after everything is written. If
    bytes were lost, one of these calls raises RecordingError, at the latest ``close``. The library
    counts lost bytes for the whole process.
    """

    _open: "ClassVar[Set[Recorder]]" = set()  # keeps the callbacks alive while they may be called
    _waiting: "ClassVar[List[asyncio.Future[None]]]" = []  # for results, or for room to append

    def __init__(
        self, directory: "Union[str, os.PathLike[str]]", *, asynchronous: bool = False
    ) -> None:
        self._lib = library.load()
        self._thread = threading.get_ident()
        self._asynchronous = asynchronous
        self._failures: List[RecordingError] = []
        self._streams: Dict[int, RecordedStream] = {}
        self._loop: Optional[asyncio.AbstractEventLoop] = None
        self._writer: Optional[ctypes.c_void_p] = None
        self._lost_before = self._lost()
        self._syncs: Dict[int, Deque[List[int]]] = {}  # by file, in the order of the calls
        self._low_space: Optional[Callable[[int], None]] = None
        self._on_status = library.ON_STATUS(self._take_status)
        self._on_synced = library.ON_SYNCED(self._take_synced)
        self._on_low_space = library.ON_LOW_SPACE(self._take_low_space)
        self.directory = os.fspath(directory)
        if asynchronous:
            check(self._lib.cachefile_caller_attach(), "attach")
            self._lib.cachefile_set_room_wake_up(1)
        try:
            self._create()
        except BaseException:
            self._detach()
            raise
        Recorder._open.add(self)

    def _create(self) -> None:
        callbacks = library.Callbacks(ctypes.sizeof(library.Callbacks), None, self._on_status, None)
        writer = ctypes.c_void_p()
        flags = _ASYNC if self._asynchronous else 0
        result = self._lib.cachefile_writer_create(
            0, flags, ctypes.byref(callbacks), ctypes.byref(writer)
        )
        check(result, "create")
        self._writer = writer
        path = os.fsencode(os.path.join(os.path.abspath(self.directory), ""))
        result = self._lib.cachefile_writer_set_dir(writer, path)
        if result == Code.OK:
            result = self._set_safety(0)
        if result != Code.OK:
            self._lib.cachefile_writer_destroy(writer)
        check(result, self.directory)

    def _set_safety(self, mark: int) -> int:
        return int(
            self._lib.cachefile_writer_set_safety(
                self._writer, self._on_synced, self._on_low_space, mark, None
            )
        )

    def open(
        self, data_type: int, stream_id: int, kind: int, *, overwrite: bool = False
    ) -> RecordedStream:
        """Opens a stream. Raises FileExistsError if its file exists and overwrite is not set."""
        lib = self._enter()
        file_name = stream_file_name(data_type, stream_id, kind)
        if not overwrite and os.path.lexists(os.path.join(self.directory, file_name)):
            raise FileExistsError(f"{file_name} already exists in {self.directory}")
        file = ctypes.c_uint32()
        result = lib.cachefile_writer_open(self._writer, file_name.encode(), ctypes.byref(file))
        name = stream_name(data_type, stream_id, kind)
        check(result, f"open {name}")
        stream = RecordedStream(self, name, file.value)
        self._streams[file.value] = stream
        return stream

    def set_pending_limit(self, count: Optional[int]) -> None:
        """Limits the pending bytes of this recorder, as ``cachefile.set_pending_limit``."""
        word = library.limit_word(count)
        check(self._enter().cachefile_writer_set_pending_limit(self._writer, word), "limit")

    def set_low_space(self, mark: int, callback: Optional[Callable[[int], None]]) -> None:
        """Calls callback with the free bytes when fewer than mark are left on the file system.

        It is called once until there is more space again, from a write in synchronous mode and
        with the results otherwise. The space is looked at when something is written, at most once a
        second. A mark of 0 ends it. An exception of callback goes to ``sys.unraisablehook``.
        """
        self._enter()
        word = library.limit_word(mark)
        self._low_space = callback
        check(self._set_safety(word), "low space")

    def fileno(self) -> int:
        """Returns a descriptor that is readable while results are pending; then call ``run``."""
        descriptor = ctypes.c_int(-1)
        result = self._enter().cachefile_caller_get_descriptor(ctypes.byref(descriptor))
        check(result, "descriptor")
        return descriptor.value

    def run(self) -> int:
        """Receives the pending results and returns their number."""
        self._enter()
        return self._run()

    def wait(self, seconds: float = 3600) -> int:
        """Waits for results, or for room after a refused append, and returns the number of results.

        For asynchronous recorders that no event loop serves.
        """
        count = ctypes.c_uint32()
        milliseconds = min(max(0, round(seconds * 1000)), _MOST)
        result = self._enter().cachefile_caller_wait_and_run(milliseconds, ctypes.byref(count))
        self._wake_waiting()
        check(result, "wait")
        return count.value

    @classmethod
    def _run(cls) -> int:
        count = ctypes.c_uint32()
        library.load().cachefile_caller_run_pending(ctypes.byref(count))
        cls._wake_waiting()
        return count.value

    @classmethod
    def _wake_waiting(cls) -> None:
        waiting, cls._waiting = cls._waiting, []
        for future in waiting:
            if not future.done():
                future.set_result(None)

    async def _wake_up(self) -> None:
        """Returns after the next run of the results. The caller then looks whether it can go on."""
        self._enter()
        if self._loop is None:
            await asyncio.sleep(_POLL_SECONDS)
            self.run()
        else:
            future = self._loop.create_future()
            Recorder._waiting.append(future)
            await future

    def check(self) -> None:
        """Raises the first failure that the worker has reported, or an error if bytes were lost."""
        if self._failures:
            failure = self._failures.pop(0)
            failure.lost = self._take_lost()
            raise failure
        lost = self._take_lost()
        if lost:
            raise RecordingError(Code.FAILED, f"{lost:,} bytes were lost", lost)

    def close(self) -> None:
        """Closes the streams and waits until all is written. Closing twice has no effect."""
        if self._writer is None:
            return
        self._enter()
        failures = self._close_streams()
        if self._asynchronous:
            self._drain()
        self._release()
        self._failures += failures
        self.check()

    def _drain(self) -> None:
        """Waits until everything is written. The last asynchronous recorder ends the worker."""
        if sum(one._asynchronous for one in Recorder._open) == 1:
            self._lib.cachefile_shutdown()
            return
        while library.pending_bytes() > 0:
            self._lib.cachefile_caller_wait_and_run(int(_POLL_SECONDS * 1000), None)

    def _close_streams(self) -> List[RecordingError]:
        failures = []
        for stream in list(self._streams.values()):
            try:
                stream.close()
            except RecordingError as failure:
                failures.append(failure)
        return failures

    def _release(self) -> None:
        Recorder._open.discard(self)
        if self._loop is not None and all(one._loop is None for one in Recorder._open):
            self._loop.remove_reader(self.fileno())
        self._loop = None
        writer, self._writer = self._writer, None
        self._lib.cachefile_writer_destroy(writer)
        self._detach()
        self._wake_waiting()  # they find the recorder closed

    def _detach(self) -> None:
        if self._asynchronous:
            self._lib.cachefile_caller_detach()
            if not any(one._asynchronous for one in Recorder._open):
                self._lib.cachefile_set_room_wake_up(0)

    def _enter(self) -> Any:
        if self._writer is None or threading.get_ident() != self._thread:
            why = "is closed" if self._writer is None else "belongs to another thread"
            raise RecordingError(Code.INVALID_STATE, f"the recorder {why}")
        return self._lib

    def _lost(self) -> int:
        return int(self._lib.cachefile_lost_bytes())

    def _take_lost(self) -> int:
        lost, self._lost_before = self._lost() - self._lost_before, self._lost()
        return lost

    def _take_status(self, _user: object, operation: int, result: int) -> None:
        if result != Code.OK:
            text = library.result_text(result)
            what = _OPERATIONS.get(operation, str(operation))
            self._failures.append(RecordingError(result, f"{what} in {self.directory}: {text}"))

    def _take_synced(self, _user: object, file: int, result: int) -> None:
        self._syncs[file].popleft().append(result)

    def _take_low_space(self, _user: object, free: int) -> None:
        if self._low_space is not None:
            self._low_space(free)

    def __enter__(self) -> "Recorder":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        try:
            self.close()
        except RecordingError:
            if kind is None:
                raise  # otherwise the exception of the body is more important

    async def __aenter__(self) -> "Recorder":
        loop = asyncio.get_running_loop()
        if all(one._loop is None for one in Recorder._open):
            loop.add_reader(self.fileno(), Recorder._run)  # all recorders share the descriptor
        self._loop = loop
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        failures = self._close_streams()
        while library.pending_bytes() > 0:
            await asyncio.sleep(_POLL_SECONDS)
        self._failures += failures
        self.__exit__(kind, error, trace)

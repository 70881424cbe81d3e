"""Records with the installed library, through its C interface.

The library is searched where the system searches for libraries. The environment variable
CACHEFILE_LIBRARY selects another file.
"""

from __future__ import annotations

import asyncio
import ctypes
import ctypes.util
import functools
import os
import sys
import threading
from types import TracebackType
from typing import Any, Dict, List, Optional, Set, Tuple, Type, Union

from .errors import CacheFileError, Code
from .layout import stream_file_name, stream_name

_ASYNC = 1
_END = 0xFFFFFFFF
_MOST = 0xFFFFFFFF
_POLL_SECONDS = 0.005
_PART = 32_768
_OPERATIONS = {1: "open", 2: "close", 3: "read", 4: "write"}
_ON_STATUS = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int32, ctypes.c_int32)


class _Callbacks(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_size_t),
        ("user", ctypes.c_void_p),
        ("on_status", _ON_STATUS),
        ("on_data", ctypes.c_void_p),
    ]


class RecordingError(CacheFileError):
    """A recording failed. ``lost`` counts bytes that a call had accepted and that were lost."""

    def __init__(self, code: int, message: str, lost: int = 0) -> None:
        super().__init__(code, message)
        self.lost = lost

    def __reduce__(self) -> "Tuple[object, ...]":
        return type(self), (int(self.code), self.args[0], self.lost)


_SIGNATURES: Dict[str, Tuple[Any, List[Any]]] = {
    "version": (ctypes.c_char_p, []),
    "result_text": (ctypes.c_char_p, [ctypes.c_int32]),
    "lost_bytes": (ctypes.c_uint64, []),
    "pending_bytes": (ctypes.c_uint64, []),
    "set_pending_limit": (None, [ctypes.c_uint64]),
    "shutdown": (ctypes.c_int32, []),
    "caller_attach": (ctypes.c_int32, []),
    "caller_detach": (ctypes.c_int32, []),
    "caller_run_pending": (ctypes.c_int32, [ctypes.POINTER(ctypes.c_uint32)]),
    "caller_wait_and_run": (ctypes.c_int32, [ctypes.c_uint32, ctypes.POINTER(ctypes.c_uint32)]),
    "caller_get_descriptor": (ctypes.c_int32, [ctypes.POINTER(ctypes.c_int)]),
    "writer_create": (
        ctypes.c_int32,
        [
            ctypes.c_uint32,
            ctypes.c_uint32,
            ctypes.POINTER(_Callbacks),
            ctypes.POINTER(ctypes.c_void_p),
        ],
    ),
    "writer_destroy": (None, [ctypes.c_void_p]),
    "writer_set_dir": (ctypes.c_int32, [ctypes.c_void_p, ctypes.c_char_p]),
    "writer_open": (
        ctypes.c_int32,
        [ctypes.c_void_p, ctypes.c_char_p, ctypes.POINTER(ctypes.c_uint32)],
    ),
    "writer_write": (
        ctypes.c_int32,
        [ctypes.c_void_p, ctypes.c_uint32, ctypes.c_void_p, ctypes.c_uint32, ctypes.c_uint32],
    ),
    "writer_flush": (ctypes.c_int32, [ctypes.c_void_p, ctypes.c_uint32]),
    "writer_close": (ctypes.c_int32, [ctypes.c_void_p, ctypes.c_uint32]),
}


@functools.lru_cache(maxsize=1)
def _library() -> Any:
    name = os.environ.get("CACHEFILE_LIBRARY") or ctypes.util.find_library("cachefile")
    if not name:
        name = "cachefile.dll" if sys.platform == "win32" else "libcachefile.so.1"
    try:
        library = ctypes.CDLL(name)
        for function, (result, arguments) in _SIGNATURES.items():
            found = getattr(library, "cachefile_" + function)
            found.restype, found.argtypes = result, arguments
    except (OSError, AttributeError) as error:
        raise CacheFileError(Code.NOT_FOUND, f"cannot use the library: {error}") from None
    return library


def library_version() -> str:
    """The version of the library that the recorder uses."""
    return str(_library().cachefile_version().decode())


def pending_bytes() -> int:
    """Returns how many bytes of asynchronous recorders are accepted and not yet written."""
    return int(_library().cachefile_pending_bytes())


def set_pending_limit(count: Optional[int]) -> None:
    """Limits the pending bytes of the process. None means no limit; the minimum is 65,536.

    An append that would exceed the limit raises CacheFileError with TRY_AGAIN and writes nothing.
    """
    _library().cachefile_set_pending_limit((1 << 64) - 1 if count is None else count)


def _check(result: int, what: str) -> None:
    if result != Code.OK:
        text = _library().cachefile_result_text(result).decode()
        raise RecordingError(result, f"{what}: {text}")


def _address(data: Any) -> Tuple[Any, int, Any]:
    """Returns the address and length of a bytes-like object, and an object that keeps it alive.

    Memory that is read-only or not contiguous is copied.
    """
    if isinstance(data, bytes):
        return ctypes.cast(ctypes.c_char_p(data), ctypes.c_void_p), len(data), data
    view = memoryview(data)
    if view.readonly or not view.c_contiguous:
        copy = view.tobytes()
        return ctypes.cast(ctypes.c_char_p(copy), ctypes.c_void_p), len(copy), copy
    if view.nbytes == 0:
        return None, 0, view
    memory = (ctypes.c_char * view.nbytes).from_buffer(view)
    return ctypes.cast(memory, ctypes.c_void_p), view.nbytes, memory


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
        address, length, memory = _address(data)
        if length > _MOST or not 0 <= offset <= _END:
            raise RecordingError(Code.INVALID_ARG, f"write {self.name}: out of range")
        result = lib.cachefile_writer_write(recorder._writer, self._file, address, length, offset)
        del memory
        _check(result, f"write {self.name}")

    async def send(self, data: "Union[bytes, bytearray, memoryview]") -> None:
        """Appends, and waits while the limit of pending bytes is reached.

        It appends in parts of 32 KiB, because these fit under any limit. Only one coroutine at a
        time may send to a stream; otherwise their parts would be mixed.
        """
        view = memoryview(data).cast("B")
        for begin in range(0, len(view), _PART):
            while not self._try_append(view[begin : begin + _PART]):
                await asyncio.sleep(_POLL_SECONDS)

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

    def close(self) -> None:
        """Writes the gathered bytes and closes the file. Closing twice has no effect."""
        file, self._file = self._file, 0
        if file:
            self._recorder._streams.pop(file, None)
            lib = self._recorder._enter()
            result = lib.cachefile_writer_close(self._recorder._writer, file)
            _check(result, f"close {self.name}")

    def __enter__(self) -> "RecordedStream":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


class Recorder:
    """Records streams as record files in a directory, which is created if it is missing.

    A context manager. ``async with`` also connects it with the running event loop. Only the thread
    that created the recorder may call it.

    In asynchronous mode the library's worker thread writes the files. The next ``check``, ``flush``
    or ``close`` raises a failure of the worker. ``close`` returns after everything is written. If
    bytes were lost, one of these calls raises RecordingError, at the latest ``close``. The library
    counts lost bytes for the whole process.
    """

    _open: "Set[Recorder]" = set()  # keeps the callbacks alive while the library may call them

    def __init__(
        self, directory: "Union[str, os.PathLike[str]]", *, asynchronous: bool = False
    ) -> None:
        self._lib = _library()
        self._thread = threading.get_ident()
        self._asynchronous = asynchronous
        self._failures: List[RecordingError] = []
        self._streams: Dict[int, RecordedStream] = {}
        self._loop: Optional[asyncio.AbstractEventLoop] = None
        self._writer: Optional[ctypes.c_void_p] = None
        self._lost_before = self._lost()
        self._on_status = _ON_STATUS(self._take_status)
        self.directory = os.fspath(directory)
        if asynchronous:
            _check(self._lib.cachefile_caller_attach(), "attach")
        try:
            self._create()
        except BaseException:
            self._detach()
            raise
        Recorder._open.add(self)

    def _create(self) -> None:
        callbacks = _Callbacks(ctypes.sizeof(_Callbacks), None, self._on_status, None)
        writer = ctypes.c_void_p()
        flags = _ASYNC if self._asynchronous else 0
        result = self._lib.cachefile_writer_create(
            0, flags, ctypes.byref(callbacks), ctypes.byref(writer)
        )
        _check(result, "create")
        self._writer = writer
        path = os.fsencode(os.path.join(os.path.abspath(self.directory), ""))
        result = self._lib.cachefile_writer_set_dir(writer, path)
        if result != Code.OK:
            self._lib.cachefile_writer_destroy(writer)
        _check(result, self.directory)

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
        _check(result, f"open {name}")
        stream = RecordedStream(self, name, file.value)
        self._streams[file.value] = stream
        return stream

    def fileno(self) -> int:
        """Returns a descriptor that is readable while results are pending; then call ``run``."""
        descriptor = ctypes.c_int(-1)
        _check(self._enter().cachefile_caller_get_descriptor(ctypes.byref(descriptor)), "descriptor")
        return descriptor.value

    def run(self) -> int:
        """Receives the pending results and returns their number."""
        count = ctypes.c_uint32()
        self._enter().cachefile_caller_run_pending(ctypes.byref(count))
        return count.value

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
        while pending_bytes() > 0:
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
        if self._loop is not None:
            self._loop.remove_reader(self.fileno())
            self._loop = None
        writer, self._writer = self._writer, None
        self._lib.cachefile_writer_destroy(writer)
        Recorder._open.discard(self)
        self._detach()

    def _detach(self) -> None:
        if self._asynchronous:
            self._lib.cachefile_caller_detach()

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
            text = self._lib.cachefile_result_text(result).decode()
            what = _OPERATIONS.get(operation, str(operation))
            self._failures.append(RecordingError(result, f"{what} in {self.directory}: {text}"))

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
        self._loop = asyncio.get_running_loop()
        self._loop.add_reader(self.fileno(), self.run)
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        failures = self._close_streams()
        while pending_bytes() > 0:
            await asyncio.sleep(_POLL_SECONDS)
        self._failures += failures
        self.__exit__(kind, error, trace)

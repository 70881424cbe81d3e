"""The installed library, loaded through its C interface, and what it offers for the whole process.

The library is searched where the system searches for libraries. The environment variable
CACHEFILE_LIBRARY selects another file.
"""

from __future__ import annotations

import ctypes
import ctypes.util
import functools
import os
import sys
from typing import Any, Dict, List, Optional, Tuple

from .errors import CacheFileError, Code

_INT = ctypes.c_int32
_U32 = ctypes.c_uint32
_U64 = ctypes.c_uint64
_POINTER = ctypes.c_void_p

ON_STATUS = ctypes.CFUNCTYPE(None, _POINTER, _INT, _INT)
ON_SYNCED = ctypes.CFUNCTYPE(None, _POINTER, _U32, _INT)
ON_LOW_SPACE = ctypes.CFUNCTYPE(None, _POINTER, _U64)


class Callbacks(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_size_t),
        ("user", _POINTER),
        ("on_status", ON_STATUS),
        ("on_data", _POINTER),
    ]


class HoleStruct(ctypes.Structure):
    _fields_ = [("offset", _U64), ("length", _U64), ("in_place", _INT), ("reserved", _INT)]


class LossesStruct(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_size_t),
        ("lost", _U64),
        ("pending", _U64),
        ("unsynced", _U64),
        ("holes", ctypes.c_size_t),
        ("all_holes", _INT),
        ("reserved", _INT),
    ]


_SIGNATURES: Dict[str, Tuple[Any, List[Any]]] = {
    "version": (ctypes.c_char_p, []),
    "result_text": (ctypes.c_char_p, [_INT]),
    "lost_bytes": (_U64, []),
    "pending_bytes": (_U64, []),
    "unsynced_bytes": (_U64, []),
    "set_pending_limit": (None, [_U64]),
    "set_sync_interval": (_INT, [_U32]),
    "set_gather_age": (None, [_U32]),
    "flush_aged": (None, []),
    "set_room_wake_up": (None, [_INT]),
    "shutdown": (_INT, []),
    "caller_attach": (_INT, []),
    "caller_detach": (_INT, []),
    "caller_run_pending": (_INT, [ctypes.POINTER(_U32)]),
    "caller_wait_and_run": (_INT, [_U32, ctypes.POINTER(_U32)]),
    "caller_get_descriptor": (_INT, [ctypes.POINTER(ctypes.c_int)]),
    "writer_create": (_INT, [_U32, _U32, ctypes.POINTER(Callbacks), ctypes.POINTER(_POINTER)]),
    "writer_destroy": (None, [_POINTER]),
    "writer_set_dir": (_INT, [_POINTER, ctypes.c_char_p]),
    "writer_set_pending_limit": (_INT, [_POINTER, _U64]),
    "writer_set_safety": (_INT, [_POINTER, ON_SYNCED, ON_LOW_SPACE, _U64, _POINTER]),
    "writer_open": (_INT, [_POINTER, ctypes.c_char_p, ctypes.POINTER(_U32)]),
    "writer_write": (_INT, [_POINTER, _U32, _POINTER, _U32, _U32]),
    "writer_flush": (_INT, [_POINTER, _U32]),
    "writer_sync": (_INT, [_POINTER, _U32]),
    "writer_losses": (
        _INT,
        [
            _POINTER,
            _U32,
            ctypes.POINTER(LossesStruct),
            ctypes.POINTER(HoleStruct),
            ctypes.c_size_t,
        ],
    ),
    "writer_close": (_INT, [_POINTER, _U32]),
}


@functools.lru_cache(maxsize=1)
def load() -> Any:
    """Returns the library. Raises CacheFileError if it is missing or older than this package."""
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


def result_text(result: int) -> str:
    """Returns the meaning of a result code."""
    return str(load().cachefile_result_text(result).decode())


def library_version() -> str:
    """The version of the library that the recorder uses."""
    return str(load().cachefile_version().decode())


def pending_bytes() -> int:
    """Returns how many bytes of asynchronous recorders are accepted and not yet written."""
    return int(load().cachefile_pending_bytes())


def unsynced_bytes() -> int:
    """Returns how many bytes are written and not yet on the disk.

    They are counted while an interval is set, and for streams that were synced explicitly.
    """
    return int(load().cachefile_unsynced_bytes())


def set_pending_limit(count: Optional[int]) -> None:
    """Limits the pending bytes of the process. None means no limit; the minimum is 65,536.

    An append that would exceed the limit raises CacheFileError with TRY_AGAIN and writes nothing.
    """
    load().cachefile_set_pending_limit(limit_word(count))


def set_sync_interval(seconds: Optional[float]) -> None:
    """Brings what is written from now on to the disk within this time and the time of one sync.

    None ends it and syncs what is left. A failed sync is reported like a failed write.
    """
    result = load().cachefile_set_sync_interval(_milliseconds(seconds))
    if result != Code.OK:
        raise CacheFileError(result, f"sync interval: {result_text(result)}")


def set_gather_age(seconds: Optional[float]) -> None:
    """Limits how long gathered bytes stay in memory. None means until their block is full.

    Asynchronous recorders keep it while the event loop or ``Recorder.wait`` runs. Synchronous ones
    keep it in their calls; a thread that makes none for a while calls ``flush_aged``.
    """
    load().cachefile_set_gather_age(_milliseconds(seconds))


def flush_aged() -> None:
    """Writes what the calling thread has gathered for as long as the age or longer."""
    load().cachefile_flush_aged()


def address(data: Any) -> Tuple[Any, int, Any]:
    """Returns the address and length of a bytes-like object, and an object that keeps it alive.

    Memory that is read-only or not contiguous is copied.
    """
    if isinstance(data, bytes):
        return ctypes.cast(ctypes.c_char_p(data), _POINTER), len(data), data
    view = memoryview(data)
    if view.readonly or not view.c_contiguous:
        copy = view.tobytes()
        return ctypes.cast(ctypes.c_char_p(copy), _POINTER), len(copy), copy
    if view.nbytes == 0:
        return None, 0, view
    memory = (ctypes.c_char * view.nbytes).from_buffer(view)
    return ctypes.cast(memory, _POINTER), view.nbytes, memory


def limit_word(count: Optional[int]) -> int:
    """Returns a limit in bytes as the library expects it. None means no limit."""
    if count is not None and not 0 <= count < 1 << 64:
        raise CacheFileError(Code.INVALID_ARG, f"{count} bytes are out of range")
    return (1 << 64) - 1 if count is None else count


def _milliseconds(seconds: Optional[float]) -> int:
    if seconds is None:
        return 0
    if not 0 < seconds <= 4_000_000:
        raise CacheFileError(Code.INVALID_ARG, f"{seconds} seconds are out of range")
    return max(1, round(seconds * 1000))

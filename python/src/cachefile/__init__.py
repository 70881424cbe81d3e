"""Reads and writes the recordings of the cache file library: containers and directories.

    import cachefile

    with cachefile.open("talk.container") as recording:
        for stream in recording.streams:
            print(stream.name, stream.length)
        samples = recording["4:7004:4"].numpy("<i2")

``open`` reads, ``examine`` reports damage, and ``pack`` writes containers. They are pure Python and
use NumPy if it is installed. ``Recorder`` records with the installed library.
"""

from .errors import CacheFileError, Code, ContainerError, Finding, Findings, Severity
from .layout import Header
from .library import (
    flush_aged,
    library_version,
    pending_bytes,
    set_gather_age,
    set_pending_limit,
    set_sync_interval,
    unsynced_bytes,
)
from .recorded import Hole, Losses, RecordedStream, RecordingError
from .recorder import Recorder
from .recording import Container, Directory, Recording, Stream, Streams, examine
from .recording import open_recording as open
from .writing import Source, pack

__version__ = "1.0.0"
__all__ = [
    "CacheFileError",
    "Code",
    "Container",
    "ContainerError",
    "Directory",
    "Finding",
    "Findings",
    "Header",
    "Hole",
    "Losses",
    "RecordedStream",
    "Recorder",
    "Recording",
    "RecordingError",
    "Severity",
    "Source",
    "Stream",
    "Streams",
    "examine",
    "flush_aged",
    "library_version",
    "open",
    "pack",
    "pending_bytes",
    "set_gather_age",
    "set_pending_limit",
    "set_sync_interval",
    "unsynced_bytes",
]

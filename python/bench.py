"""Compares the package with the library and with plain mmap, in one process.

    bench.py [DIRECTORY]

CACHEFILE_LIBRARY names the library, which should be a release build. Prints ratios of processor
times, each the best of several runs.
"""

import ctypes
import mmap
import os
import sys
import tempfile
import time

import cachefile
from cachefile import _np, layout

STREAMS = 100_000
GIB = 1 << 30


def best(call, tries=7):
    times = []
    for _ in range(tries):
        begin = time.process_time()
        call()
        times.append(time.process_time() - begin)
    return min(times)


def open_with_library(library, path):
    index = ctypes.c_void_p()
    library.cachefile_index_create(ctypes.byref(index))
    result = library.cachefile_index_open(index, path.encode())
    count = library.cachefile_index_entry_count(index)
    library.cachefile_index_destroy(index)
    assert (result, count) == (0, STREAMS)


def open_with_package(path):
    with cachefile.open(path) as recording:
        assert len(recording.streams) == STREAMS


def compare_opening(directory):
    library = ctypes.CDLL(os.environ["CACHEFILE_LIBRARY"])
    library.cachefile_index_entry_count.restype = ctypes.c_size_t
    path = os.path.join(directory, "many.container")
    streams = [(1, 1000 * i + 1, 2, b"x") for i in range(STREAMS)]
    for index_type, name in ((layout.PACKED, "packed"), (layout.CHAINED, "chained")):
        cachefile.pack(path, streams, index_type=index_type)
        own = best(lambda: open_with_library(library, path))
        print(f"open {STREAMS:,} streams, {name}: library {own * 1000:.1f} ms")
        for numpy, most in ((_np.numpy, 5), (None, 60)):
            saved, _np.numpy = _np.numpy, numpy
            taken = best(lambda: open_with_package(path))
            _np.numpy = saved
            how = "with NumPy" if numpy else "without NumPy"
            print(f"    {how}: {taken * 1000:.1f} ms, {taken / own:.1f} times (at most {most})")
    os.remove(path)


def compare_reading(directory):
    np = _np.numpy
    path = os.path.join(directory, "long.container")
    start = layout.HEADER_SIZE + layout.ENTRY_SIZE
    with open(path, "wb") as file:
        file.write(layout.HEADER.pack(0, 0, 0, start + GIB, 0, 1, layout.PACKED))
        file.write(layout.ENTRY.pack(256, 0, 0, start, GIB, 0))
        for _ in range(GIB >> 20):
            file.write(os.urandom(1 << 20))

    def by_view():
        with cachefile.open(path) as recording:
            return int(recording.streams[0].numpy("<u8").sum())

    def by_mmap():
        with open(path, "rb") as file:
            mapped = mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ)
            return int(np.frombuffer(mapped, "<u8", GIB // 8, start).sum())

    assert by_view() == by_mmap()
    view, plain = best(by_view), best(by_mmap)
    print(f"read 1 GiB: view {GIB / view / 1e9:.1f} GB/s, mmap {GIB / plain / 1e9:.1f} GB/s, "
          f"{plain / view:.2f} of mmap (at least 0.9)")
    os.remove(path)


if __name__ == "__main__":
    with tempfile.TemporaryDirectory(dir=sys.argv[1] if len(sys.argv) > 1 else None) as temporary:
        compare_opening(temporary)
        compare_reading(temporary)

"""Tests that packing gives the same bytes as the library's writer."""

import ctypes
import itertools
import os
import random
import subprocess

import pytest
from containers import CONF

import cachefile
from cachefile import Code, layout


def random_streams(rand):
    """Returns distinct streams in any order, some empty, with extra values."""
    ids = lambda tag: layout.file_id(tag, rand.choice([0, 1, 7, 4294967, 0x1FFFFFFF]))
    tags = [rand.choice(list(layout.TAGS)) for _ in range(rand.randint(1, 12))]
    streams = {}
    for tag in tags:
        data = CONF + rand.randbytes(9) if tag == 274 else rand.randbytes(rand.choice([0, 1, 500]))
        streams[layout.TAGS[tag][0], ids(tag), layout.TAGS[tag][1]] = data
    return [(*what, data, rand.choice([0, 9, 0xFFFFFFFF])) for what, data in streams.items()]


class Describer(ctypes.Structure):
    _fields_ = [("struct_size", ctypes.c_size_t), ("file_id", ctypes.c_uint32),
                ("extra_info", ctypes.c_uint32), ("data_type", ctypes.c_uint16),
                ("file_kind", ctypes.c_uint8), ("reserved", ctypes.c_uint8 * 5)]


def pack_with_library(path, streams, index_type, header):
    library = ctypes.CDLL(os.environ["CACHEFILE_LIBRARY"])
    packer = ctypes.c_void_p()
    assert library.cachefile_packer_create(ctypes.byref(packer)) == 0
    assert library.cachefile_packer_set_index_type(packer, index_type) == 0
    if header:
        assert library.cachefile_packer_set_header(packer, *header) == 0
    for data_type, stream_id, kind, data, extra in streams:
        what = Describer(ctypes.sizeof(Describer), stream_id, extra, data_type, kind)
        assert library.cachefile_packer_add_memory(packer, ctypes.byref(what), data, len(data)) == 0
    result = library.cachefile_packer_write(packer, str(path).encode())
    library.cachefile_packer_destroy(packer)
    return result


def test_random_streams_give_the_bytes_of_the_library(tmp_path):
    rand = random.Random(11)
    for header, index_type, _ in itertools.product([None, (3, 77), (0xFFFFFFFF, 0)], [0, 1], range(25)):
        streams = random_streams(rand)
        version, stamp = header or (None, None)
        cachefile.pack(tmp_path / "python", streams, index_type=index_type, file_version=version,
                       time_stamp=stamp)
        assert pack_with_library(tmp_path / "library", streams, index_type, header) == 0
        assert (tmp_path / "python").read_bytes() == (tmp_path / "library").read_bytes()
    assert sorted(os.listdir(tmp_path)) == ["library", "python"]


def test_a_directory_gives_the_bytes_of_the_tool(tmp_path, tool):
    rand, directory = random.Random(12), tmp_path / "recording"
    directory.mkdir()
    for what in random_streams(rand) + [(100, 100, 2, CONF, 0), (16, 16, 2, bytes(3 << 20), 0)]:
        (directory / layout.stream_file_name(*what[:3])).write_bytes(what[3])
    for index_type, more in itertools.product([0, 1], [{}, {"file_version": 8, "time_stamp": 9}]):
        options = ["--version", "8", "--timestamp", "9"] if more else []
        subprocess.run([tool, "pack", directory, "-o", tmp_path / "tool", "--force", "--index",
                        str(index_type), *options], check=True, stdout=subprocess.DEVNULL)
        with cachefile.open(directory) as recording:
            cachefile.pack(tmp_path / "python", recording.streams, index_type=index_type, **more)
        sources = [cachefile.Source(s.type, s.id, s.kind, directory / layout.stream_file_name(
            s.type, s.id, s.kind)) for s in recording.streams]
        cachefile.pack(tmp_path / "files", sources, index_type=index_type, **more)
        expected = (tmp_path / "tool").read_bytes()
        assert (tmp_path / "python").read_bytes() == expected
        assert (tmp_path / "files").read_bytes() == expected


class Sparse(os.PathLike):
    """A sparse file of 4 GiB."""

    def __init__(self, path):
        self.path = path
        with open(path, "wb") as file:
            file.truncate(1 << 32)

    def __fspath__(self):
        return str(self.path)


@pytest.mark.parametrize("code,streams,options", [
    (Code.INVALID_STATE, [], {}),
    (Code.INVALID_ARG, [(2, 2, 2, b"")], {}),  # no such type and kind
    (Code.INVALID_ARG, [(4, 5, 4, b"")], {}),  # no n gives the id
    (Code.INVALID_ARG, [(100, 1100, 2, CONF)], {}),
    (Code.INVALID_ARG, [(4, -996, 4, b"")], {}),
    (Code.INVALID_ARG, [(4, 4, 4, b"", -1)], {}),
    (Code.INVALID_ARG, [(4, 4, 4, b""), (4, 4, 4, b"x")], {}),
    (Code.INVALID_ARG, [(100, 100, 2, CONF[:71])], {}),
    (Code.INVALID_ARG, [(4, 4, 4, b"")], {"index_type": 2}),
    (Code.INVALID_ARG, [(4, 4, 4, b"")], {"file_version": 1 << 32}),
    (Code.INVALID_ARG, "sparse", {}),
])
def test_what_cannot_be_packed_leaves_nothing(tmp_path, code, streams, options):
    if streams == "sparse":
        streams = [(4, 4, 4, Sparse(tmp_path / "sparse"))]
    before = os.listdir(tmp_path)
    with pytest.raises(cachefile.CacheFileError) as failure:
        cachefile.pack(tmp_path / "any", streams, **options)
    assert failure.value.code == code and os.listdir(tmp_path) == before


def test_a_source_that_changes_is_noticed_and_the_old_file_stays(tmp_path, monkeypatch):
    (tmp_path / "source").write_bytes(b"abc")
    (tmp_path / "container").write_bytes(b"old")
    real = os.stat
    for size in (2, 4):
        fake = lambda path, size=size, **more: os.stat_result((*real(path, **more)[:6], size, 0, 0, 0))
        with monkeypatch.context() as patch, pytest.raises(cachefile.CacheFileError) as failure:
            patch.setattr(os, "stat", fake)
            cachefile.pack(tmp_path / "container", [(4, 4, 4, tmp_path / "source")])
        assert failure.value.code == Code.FAILED
    assert (tmp_path / "container").read_bytes() == b"old" and len(os.listdir(tmp_path)) == 2


def test_a_partial_file_of_somebody_else_stays(tmp_path):
    (tmp_path / "one.partial").write_bytes(b"theirs")
    cachefile.pack(tmp_path / "one", [(4, 4, 4, b"mine")])
    assert (tmp_path / "one.partial").read_bytes() == b"theirs"
    assert sorted(os.listdir(tmp_path)) == ["one", "one.partial"]

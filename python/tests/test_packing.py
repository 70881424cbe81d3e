"""Packing: byte for byte what the command line makes of the same streams."""

import os
import random
import subprocess

import pytest
from containers import CONF

import cachefile
from cachefile import Code, layout


def random_streams(rand):
    """Distinct streams in any order, some of them empty; perhaps a conf stream."""
    streams = {}
    for tag in [rand.choice(list(layout.TAGS)) for _ in range(rand.randint(1, 12))]:
        number = layout.file_id(tag, rand.choice([0, 1, 7, 4294967, 0x1FFFFFFF]))
        data = CONF + rand.randbytes(9) if tag == 274 else rand.randbytes(rand.choice([0, 1, 500]))
        streams[layout.TAGS[tag][0], number, layout.TAGS[tag][1]] = data
    return streams


@pytest.mark.parametrize("index_type", [0, 1])
@pytest.mark.parametrize("more", [{}, {"file_version": 8, "time_stamp": 9},
                                  {"file_version": 0xFFFFFFFF, "time_stamp": 0}])
def test_a_directory_gives_the_bytes_of_the_tool(tmp_path, tool, index_type, more):
    options = [f"--{name}={more[key]}" for name, key in [("version", "file_version"),
                                                         ("timestamp", "time_stamp")] if more]
    for seed in range(8):
        directory = tmp_path / str(seed)
        directory.mkdir()
        for what, data in {**random_streams(random.Random(seed)), (16, 16, 2): bytes(1 << 20)}.items():
            (directory / layout.stream_file_name(*what)).write_bytes(data)
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


def test_progress_reports_all_bytes_and_cancels_by_an_exception(tmp_path):
    seen = []
    streams = [(4, 4, 4, bytes(3 << 20)), (4, 1004, 4, b""), (4, 2004, 4, b"end")]
    cachefile.pack(tmp_path / "one", streams, progress=lambda *now: seen.append(now))
    assert seen[::3] == [(1 << 20, (3 << 20) + 3), ((3 << 20) + 3,) * 2]
    with pytest.raises(ZeroDivisionError):
        cachefile.pack(tmp_path / "two", streams, progress=lambda done, total: 1 // (total - done))
    assert os.listdir(tmp_path) == ["one"]


def test_a_partial_file_of_somebody_else_stays(tmp_path):
    (tmp_path / "one.partial").write_bytes(b"theirs")
    cachefile.pack(tmp_path / "one", [(4, 4, 4, b"mine", 0xFFFFFFFF)])
    with cachefile.open(tmp_path / "one") as recording:
        assert recording["4:4:4"].extra == 0xFFFFFFFF
    assert (tmp_path / "one.partial").read_bytes() == b"theirs"
    assert sorted(os.listdir(tmp_path)) == ["one", "one.partial"]

"""Tests of reading containers and directories, undamaged and damaged."""

import io
import itertools
import os
import struct
import tracemalloc

import pytest
from containers import CONF, DAMAGED, ENTRY, HEADER, THREE, container, entry
from hypothesis import HealthCheck, given, settings
from hypothesis import strategies as st

import cachefile
from cachefile import _np, index, layout, sources
from cachefile.index import EndOfWalk

pytestmark = pytest.mark.usefixtures("either")
lenient = settings(suppress_health_check=[HealthCheck.function_scoped_fixture], deadline=None)


def describers():
    """Streams that a container can hold. Types and numbers are few, so that some are equal."""
    pairs = st.sampled_from([pair for tag, pair in layout.TAGS.items() if tag not in (274, 284)])
    return st.tuples(pairs, st.integers(0, 3)).map(
        lambda one: (one[0][0], one[1] * 1000 + one[0][0], one[0][1]))


@pytest.mark.parametrize("name", DAMAGED)
def test_damage_is_reported_with_the_codes_of_doctor(make, name):
    data, expected = DAMAGED[name]
    assert [(found.code, found.offset) for found in cachefile.examine(make(data))] == expected


@lenient
@given(st.dictionaries(describers(), st.binary(max_size=300), min_size=1), st.sampled_from([0, 1]),
       st.randoms(use_true_random=False))
def test_what_was_packed_is_read_in_every_way(make, streams, index_type, rand):
    path = make([(*what, data) for what, data in streams.items()], index_type=index_type)
    with open(path, "rb") as file, cachefile.open(path) as one, cachefile.open(file) as two:
        assert one.findings == []
        assert [(s.type, s.id, s.kind) for s in one.streams] == list(streams)
        for stream, other, data in zip(one.streams, two.streams, streams.values()):
            assert stream.length == len(data) and stream.read() == data and other.read() == data
            begin, count = rand.randint(0, 310), rand.randint(-1, 310)
            part = data[begin:] if count < 0 else data[begin:begin + count]
            assert stream.read(begin, count) == part == bytes(stream.view(begin, count))
            assert bytes(other.view(begin, count)) == part
            if _np.numpy:
                assert stream.numpy("<u2", 0, len(data) & ~1).tobytes() == data[:len(data) & ~1]


@lenient
@given(st.lists(st.tuples(describers(), st.integers(1, 255)), max_size=12),
       st.tuples(describers(), st.integers(0, 255)))
def test_the_first_match_is_found(entries, wanted):
    table = [(kind_of[0][0], kind_of[0][1], kind_of[1]) for kind_of in entries]
    (data_type, stream_id, _), kinds = wanted
    walk = [i for i, (t, n, k) in enumerate(table) if (t, n) == (data_type, stream_id) and k & kinds]
    found = index.first_matches(table)
    keys = [(data_type, stream_id, 1 << bit) for bit in range(8) if kinds & 1 << bit]
    assert min((found[key] for key in keys if key in found), default=None) == (walk or [None])[0]


def test_hidden_streams_and_masks(make):
    with cachefile.open(make(container(THREE + [(268, 7, b"d"), (269, 7, b"e")]))) as recording:
        assert recording.find(4, 7004, 4).read() == b"c" * 300
        assert recording.find(4, 7004, 5).index == 2 and recording.find(4, 7004, 1).read() == b"e"
        assert recording.find(4, 7004, 2) is None and recording.find(4, 7004, 0) is None
        assert recording["4:7004:4"].extra == 0 and len(recording.streams) == 5
        assert (recording.file_version, recording.time_stamp) == (3, 1234567)
        assert [stream.index for stream in recording.streams[1:3]] == [1, 2]
        for name in ["4:7004:2", "4:7004", "x:1:1", "4:-7:1"]:
            with pytest.raises(KeyError):
                recording[name]


def test_no_container_names_the_reason(make):
    with pytest.raises(cachefile.ContainerError) as failure:
        cachefile.open(make(b"This is no container, but a letter to somebody."))
    assert failure.value.code == cachefile.Code.BAD_CONTAINER
    assert [found.code for found in failure.value.findings] == [
        "header-word-not-zero", "header-index-type"]
    with pytest.raises(FileNotFoundError):
        cachefile.open("missing")


def test_a_directory_of_record_files(tmp_path):
    for name, data in [("1_2-1.dat", b"one"), ("1_2-6.dat", b"six"), ("01_2-1.dat", b"no"),
                       ("1_2-0.dat", b"no"), ("70000_1-1.dat", b"no"), ("100_100-2.dat", CONF)]:
        (tmp_path / name).write_bytes(data)
    (tmp_path / "3_3-1.dat").mkdir()
    with cachefile.open(tmp_path) as recording:
        assert [stream.name for stream in recording.streams] == ["1:2:1", "1:2:6", "100:100:2"]
        assert recording.other_files == ["01_2-1.dat", "1_2-0.dat", "3_3-1.dat", "70000_1-1.dat"]
        assert recording.find(1, 2, 4).read() == b"six" and recording.find(1, 2).read() == b"one"
        assert bytes(recording["1:2:1"].view(1)) == b"ne" and recording.findings == []
        assert (recording.file_version, recording.time_stamp) == (3, 1234567)


def test_views_outlive_the_recording(make):
    with cachefile.open(make(container(THREE))) as recording:
        view = recording.streams[2].view()
        stream = recording.streams[0]
    assert bytes(view) == b"c" * 300
    with pytest.raises((OSError, ValueError)):
        stream.read()


def test_a_special_file_is_refused(tmp_path):
    os.mkfifo(tmp_path / "fifo")
    with pytest.raises(cachefile.CacheFileError):
        cachefile.open(tmp_path / "fifo")


@pytest.mark.parametrize("first,back", [(i, j) for i in range(9) for j in range(i + 1)])
def test_every_circle_is_cut_where_it_closes(make, first, back):
    """The header may count more entries than a walk reads."""
    streams = [(268 if i % 2 else 300, i, b"") for i in range(9)]
    entries = {first: {"next": HEADER + ENTRY * back}}
    for count in (first + 2, 20, 0xFFFFFFFF):
        data = container(streams, 1, entries=entries, count=count)
        found = index.read_index(sources.ObjectSource(io.BytesIO(data)))
        assert (found.end, len(found)) == (EndOfWalk.CIRCLE, first + 1)
        assert found.end_offset == HEADER + ENTRY * back


class Endless(sources.Source):
    """A sparse file of 4 GiB whose index never ends. It counts the reads."""

    size = 1 << 32

    def __init__(self, index_type, tag, step):
        self.reads = self.bytes = 0
        self._header = struct.pack("<IIIIII", 0, 0, 0xFFFFFFFF, 0, 0xFFFFFFFF, index_type)
        self._tag, self._step = tag, step

    def read(self, offset, length):
        self.reads += 1
        self.bytes += length
        data = bytearray(length + ENTRY)
        grid = abs(self._step)
        for place in range(offset + (HEADER - offset) % grid, offset + length, grid):
            words = entry(self._tag, 0, 0, next=(place + self._step) & 0xFFFFFFFF)
            data[place - offset:place - offset + ENTRY] = words
        if offset == 0:
            data[:HEADER] = self._header
        return bytes(data[:length])


@pytest.mark.parametrize("tag,limit", [(256, "MAX_KNOWN_ENTRIES"), (0, "MAX_ENTRIES_READ")])
@pytest.mark.parametrize("index_type,step", [(0, ENTRY), (1, ENTRY), (1, 4096), (1, -64)])
def test_an_endless_index_ends_at_the_budget(monkeypatch, index_type, step, tag, limit):
    monkeypatch.setattr(index, "MAX_KNOWN_ENTRIES", 1000)
    monkeypatch.setattr(index, "MAX_ENTRIES_READ", 5000)
    source = Endless(index_type, tag, step)
    tracemalloc.start()
    found = index.read_index(source)
    peak = tracemalloc.get_traced_memory()[1]
    tracemalloc.stop()
    assert (found.end, len(found)) == (EndOfWalk.TOO_MANY, getattr(index, limit))
    assert peak < 8 << 20 and source.bytes < 5000 * sources.BLOCK // 4


def test_both_ways_to_derive_lengths_agree(monkeypatch, make):
    """The fast way is used only for large indexes. Random words are the worst case."""
    import random
    rand = random.Random(7)
    for count, index_type in itertools.product([1, 2, 70, 300], [0, 1]):
        words = [0, 1, 30, 500, 40000, 0xFFFFFFFF]
        raw = b"".join(entry(256, i, rand.choice(words) or rand.randint(0, 20000),
                             length=rand.choice(words)) for i in range(count))
        header = struct.pack("<IIIIII", 0, 0, rand.choice([15000, 30000]), 0, count, index_type)
        with cachefile.open(make(header + raw + bytes(20000))) as recording:
            one = recording.extents
            monkeypatch.setattr(_np, "numpy", None)
            recording._extents = None
            assert [list(map(int, side)) for side in recording.extents] == [
                list(map(int, side)) for side in one]
            monkeypatch.undo()

"""Tests of containers that are read by ranges from a web server on the loopback interface."""

import random

import pytest
from containers import container

import cachefile
from cachefile import sources

COUNT = 100_000
MANY = [(1, 1000 * i + 1, 2, b"x" * (i % 3)) for i in range(COUNT)]
FRONT = 24 + 32 * COUNT


@pytest.mark.parametrize("index_type", [0, 1])
def test_header_and_index_take_three_requests(server, index_type):
    cachefile.pack(server.root / "many", MANY, index_type=index_type)
    server.requests()
    with cachefile.open(server.url("many")) as recording:
        assert len(recording.streams) == COUNT
        requests = server.requests()
        assert len(requests) <= 3 and sum(size for _, size in requests) == FRONT
        assert recording.streams[COUNT - 2].read() == b"x" * ((COUNT - 2) % 3)
        assert [size for _, size in server.requests()] == [(COUNT - 2) % 3]
        assert recording.findings == [] and server.requests() == []


def test_a_small_container_takes_two(server):
    cachefile.pack(server.root / "small", [(1, 1, 2, b"abc"), (3, 3, 2, b"d" * 100)])
    server.requests()
    with cachefile.open(server.url("small")) as recording:
        assert [method for method, _ in server.requests()] == ["HEAD", "GET"]
        assert recording["3:3:2"].read(90, 50) == b"d" * 10
        assert bytes(recording["1:1:2"].view()) == b"abc"
        assert [size for _, size in server.requests()] == [10, 3]


def test_a_spread_index_takes_one_request_for_each_block(server):
    """Entries in random order in eight blocks; one crosses two blocks."""
    rand, size = random.Random(3), 8 * sources.BLOCK
    places = [24] + rand.sample(range(100, size - 32, 64), 400) + [sources.BLOCK * 3 - 10]
    data = bytearray(size)
    for i, place in enumerate(places):
        following = places[i + 1] if i + 1 < len(places) else 0
        data[place:place + 32] = container([(256, i, b"")], entries={
            0: {"next": following, "offset": size}})[24:56]
    data[:24] = container([(256, 0, b"")], 1, count=len(places), header={8: size})[:24]
    (server.root / "spread").write_bytes(data)
    server.requests()
    with cachefile.open(server.url("spread")) as recording:
        requests = server.requests()
        assert len(recording.streams) == len(places)
        assert len(requests) == 1 + 8 and sum(size for _, size in requests) == size


def test_what_goes_wrong_at_the_server(server):
    with pytest.raises(FileNotFoundError):
        cachefile.open(server.url("missing"))
    cachefile.pack(server.root / "long", [(1, 1, 2, bytes(200_000))])
    with pytest.raises(cachefile.CacheFileError, match="ignores ranges"):
        cachefile.open(server.url("whole/long"))
    (server.root / "letter").write_bytes(b"no container")
    with pytest.raises(cachefile.ContainerError):
        cachefile.open(server.url("letter"))

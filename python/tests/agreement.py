"""Compares the package with the code of the command line on many containers.

    agreement.py TOOL DIRECTORY [--count N] [--seed N] [--corpus DIRECTORY]

Both read the same containers: those of the corpus, and N random ones, most of them damaged. The
streams, lengths, findings, file version and time stamp must be equal. Needs only Python. Runs once
without NumPy and, if it is installed, once with it.
"""

import argparse
import concurrent.futures
import json
import os
import random
import struct
import subprocess
import sys

import cachefile
from cachefile import _np, layout

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../../tests"))
from containers import ENTRY, HEADER, container  # noqa: E402

KNOWN_TAGS = sorted(layout.TAGS)
UNKNOWN_TAGS = [0, 255, 262, 275, 285, 288, 65535]


def make(rand):
    """Returns an undamaged container, some with unknown tags, notes of lengths or a chained index."""
    tags = [rand.choice(KNOWN_TAGS if rand.random() < 0.9 else UNKNOWN_TAGS)
            for _ in range(rand.randint(1, 9))]
    streams = [(tag, rand.randint(0, 3), rand.randbytes(rand.choice([0, 1, 5, 72, rand.randint(0, 400)])))
               for tag in tags]
    notes = rand.choice([None, 0, 5, 400])
    changes = {} if notes is None else {"length": notes}
    return bytearray(container(streams, rand.randint(0, 1), entries={
        i: {"extra": rand.randint(0, 9), **changes} for i in range(len(streams))})), len(streams)


def damage(rand, data, count):
    """Makes one change: a word of the header or the index, a bit, or the end of the file."""
    kind = rand.randrange(8)
    if kind == 0:
        return data[:rand.randint(0, len(data))]
    if kind == 1:
        return data + rand.randbytes(rand.randint(1, 50))
    if kind == 2 and data:
        data[rand.randrange(len(data))] ^= 1 << rand.randrange(8)
        return data
    place, other = (HEADER + ENTRY * rand.randrange(count) for _ in range(2))
    at = rand.choice([8, 16, 20]) if kind == 3 else place + rand.choice([0, 4, 16, 16, 20, 24, 24])
    value = rand.choice([0, 1, 24, len(data), len(data) + 1, 0xFFFFFFFF, other,
                         other + rand.choice([-1, 1, 4, 31]),
                         rand.randint(0, 2 * len(data)), rand.randint(0, 1200)])
    if at + 4 <= len(data):
        struct.pack_into("<I", data, at, value)
    return data


def containers(seed, count):
    for number in range(count):
        rand = random.Random(seed * 1000003 + number)
        data, entries = make(rand)
        for _ in range(rand.choice([0, 1, 1, 1, 2, 3])):
            data = damage(rand, data, entries)
        yield f"{seed}-{number}", bytes(data)


def look_with(tool, path):
    """Returns what the command line finds."""
    def run(command, *options):
        output = subprocess.run([tool, command, path, "--json", *options], stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL).stdout
        return json.loads(output) if output else None

    info = run("info") or {"streams": [], "file_version": None, "cb_time_stamp": None}
    keys = ("stream", "extra", "offset", "extent", "present", "hidden_by")
    return {"streams": [[stream[key] for key in keys] for stream in info["streams"] if stream["stream"]],
            "version": info["file_version"], "stamp": info["cb_time_stamp"],
            "findings": [[finding[key] for key in ("severity", "code", "offset", "message")]
                         for finding in run("doctor", "--all")["findings"]]}


def look(path):
    """Returns what the package reads, in the form of the other program's output."""
    found = {"streams": [], "version": None, "stamp": None}
    found["findings"] = [[f.severity.value, f.code, f.offset, f.message] for f in cachefile.examine(path, None)]
    try:
        with cachefile.open(path) as recording:
            found["version"], found["stamp"] = recording.file_version, recording.time_stamp
            numbers = {}
            for stream in recording.streams:
                earlier = numbers.setdefault(stream.name, stream.index + 1)
                hidden_by = None if earlier == stream.index + 1 else earlier
                length = int(recording.extents[1][stream.index])
                found["streams"].append([stream.name, stream.extra, stream.offset, length,
                                         stream.length, hidden_by])
                assert len(stream.read()) == stream.length, stream.name
                assert recording[stream.name].index + 1 == earlier, stream.name
    except cachefile.ContainerError:
        pass
    return found


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tool")
    parser.add_argument("directory")
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--corpus")
    options = parser.parse_args()
    os.makedirs(options.directory, exist_ok=True)
    paths = []
    for name, data in containers(options.seed, options.count):
        paths.append(os.path.join(options.directory, name))
        with open(paths[-1], "wb") as file:
            file.write(data)
    if options.corpus:
        paths += sorted(os.path.join(options.corpus, name) for name in os.listdir(options.corpus))
    with concurrent.futures.ThreadPoolExecutor() as pool:
        expected = list(pool.map(lambda path: look_with(options.tool, path), paths))
    failed = 0
    for numpy in {_np.numpy, None}:
        _np.numpy = numpy
        for path, wanted in zip(paths, expected):
            found = look(path)
            if found != wanted:
                failed += 1
                if failed <= 5:
                    print(f"{path}:\n  tool   {wanted}\n  Python {found}")
    damaged = sum(bool(wanted["findings"]) for wanted in expected)
    print(f"{len(paths)} containers, {damaged} damaged, {failed} disagreements")
    for name, _ in containers(options.seed, options.count if not failed else 0):
        os.remove(os.path.join(options.directory, name))
    return 1 if failed or not damaged else 0


if __name__ == "__main__":
    sys.exit(main())

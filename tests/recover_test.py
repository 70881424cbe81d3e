"""Damages containers at random and checks what `recover` makes of them.

    recover_test.py PROGRAM DIRECTORY [COUNT [SEED]]

Every stream whose entry and bytes are intact must be recovered byte for byte, and nothing may be
called verified that is not. Half of the containers have known checksums. Prints what was counted.
"""

import collections
import json
import os
import random
import shutil
import struct
import subprocess
import sys

from containers import CONF, ENTRY, HEADER, container

# Tag, data type and kind; the id is number * 1000 + type, or the type of a fixed one.
TAGS = [(256, 1, 2), (257, 3, 2), (261, 5, 4), (266, 99, 4), (267, 99, 1), (268, 4, 4), (269, 4, 1),
        (270, 20, 4), (271, 20, 1), (274, 100, 2), (276, 6, 4), (277, 6, 1), (284, 102, 2)]
FIXED = (274, 284)
DONE, FAILED, DAMAGE = 0, 1, 3


def random_content(rng):
    size = rng.choice([0, rng.randrange(1, 70), 32 * rng.randrange(1, 20), rng.randrange(1, 3000)])
    kind = rng.randrange(5)
    if kind == 0:
        return bytes(size)
    if kind == 1:  # a container as data, sometimes at the stride of the entries
        inner = [(rng.choice(TAGS)[0], n, b"inner" * n) for n in range(5)]
        return bytes(rng.choice([0, 8])) + container(inner, rng.randrange(2))
    return rng.randbytes(size)


class Original:
    """A whole container, as the library's writer or another one makes it."""

    def __init__(self, rng):
        self.streams, names = [], set()
        for _ in range(rng.choice([1, 3, 8, 20, 150])):
            tag, data_type, kind = rng.choice(TAGS)
            number = 0 if tag in FIXED else rng.randrange(1, 6)
            file = "%d_%d-%d.dat" % (data_type, number * 1000 + data_type, kind)
            if file not in names:
                names.add(file)
                content = random_content(rng)
                self.streams.append((file, tag, number, CONF + content if tag == 274 else content))
        count = len(self.streams)
        self.size = HEADER + ENTRY * count + sum(len(stream[3]) for stream in self.streams)
        self.index_type = rng.randrange(2)
        self.notes = rng.random() < 0.8
        entries = {}
        for n, (_, _, _, content) in enumerate(self.streams):
            entries[n] = {"offset": self.size} if not content else {}
            if not self.notes:
                entries[n]["length"] = 0
        self.bytes = container([stream[1:] for stream in self.streams], self.index_type,
                               entries=entries)

    def entry(self, content, n):
        return content[HEADER + ENTRY * n:HEADER + ENTRY * (n + 1)]

    def intact(self, damaged, known):
        """The streams whose entry and bytes are as before, by the names of their files.

        Without notes the length of a stream is in other entries and in the header, or known.
        """
        count = len(self.streams)
        if not self.notes and not known:
            if len(damaged) < 12 or damaged[8:12] != self.bytes[8:12] or len(damaged) > self.size:
                return {}
            if any(self.entry(damaged, n)[:24] != self.entry(self.bytes, n)[:24] for n in range(count)):
                return {}
        streams = {}
        for n, (file, _, _, content) in enumerate(self.streams):
            entry = self.entry(self.bytes, n)
            at, = struct.unpack_from("<I", entry, 16)
            if self.entry(damaged, n) == entry and damaged[at:at + len(content)] == content:
                streams[file] = content
        return streams


def set_word(content, at, word):
    if at + 4 <= len(content):
        struct.pack_into("<I", content, at, word & 0xFFFFFFFF)


def damage_index(rng, original, content):
    at = rng.randrange(8, HEADER + ENTRY * len(original.streams), 4)
    if at + 4 > len(content):
        return
    old, = struct.unpack_from("<I", content, at)
    other = struct.unpack_from("<I", original.bytes, rng.randrange(8, HEADER + ENTRY, 4))[0]
    set_word(content, at, rng.choice([0, 1, rng.getrandbits(32), old ^ 1 << rng.randrange(32), other,
                                      old + rng.randrange(-99, 99), rng.randrange(original.size)]))


def damage_chain(rng, original, content):
    count = len(original.streams)
    target = rng.choice([HEADER + ENTRY * rng.randrange(count), rng.randrange(original.size + 99),
                         rng.getrandbits(32), 0])
    set_word(content, HEADER + ENTRY * rng.randrange(count) + 24, target)


def damage_data(rng, original, content):
    first = HEADER + ENTRY * len(original.streams)
    for _ in range(rng.randrange(1, 9)):
        if first < len(content):
            content[rng.randrange(first, len(content))] ^= 1 << rng.randrange(8)


def truncate(rng, original, content):
    del content[rng.randrange(HEADER, len(content) + 1):]


def overwrite(rng, original, content):
    at = rng.randrange(len(content))
    part = rng.choice([bytes(200), rng.randbytes(99)])[:rng.randrange(1, 200)]
    content[at:at + len(part)] = part[:len(content) - at]


def append(rng, original, content):
    content += rng.randbytes(rng.randrange(1, 300))


KINDS = [damage_index, damage_chain, damage_data, truncate, overwrite, append]
WEIGHTS = [8, 4, 3, 3, 2, 1]


class Measurement:
    def __init__(self, program, directory):
        self.program, self.directory = program, directory
        self.counts = collections.Counter()

    def path(self, name):
        return os.path.join(self.directory, name)

    def run(self, *arguments):
        ended = subprocess.run([self.program, *arguments], stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE)
        assert ended.returncode in (DONE, FAILED, DAMAGE), ended
        return ended.returncode, ended.stdout

    def recover(self, known):
        """Returns the exit code and (row, bytes of the file) for each row with a file."""
        shutil.rmtree(self.path("out"), ignore_errors=True)
        options = ["--known", self.path("known")] if known else []
        exit_code, output = self.run("recover", self.path("bad"), "-o", self.path("out"), "--json",
                                     *options)
        rows = []
        for row in json.loads(output)["streams"] if output else []:
            if row["file"]:
                with open(self.path("out/" + row["file"]), "rb") as file:
                    rows.append((row, file.read()))
        return exit_code, rows

    def write(self, name, content):
        with open(self.path(name), "wb") as file:
            file.write(content)

    def one(self, rng):
        original = Original(rng)
        content = bytearray(original.bytes)
        kinds = rng.choices(KINDS, WEIGHTS, k=rng.choice([0, 1, 1, 1, 2, 3]))
        for kind in kinds:
            kind(rng, original, content)
        damaged = bytes(content)
        known = rng.random() < 0.5
        self.write("bad", damaged)
        if known:
            self.write("good", original.bytes)
            self.write("known", self.run("sums", self.path("good"), "--json")[1])
        intact = original.intact(damaged, known)
        exit_code, rows = self.recover(known)
        self.check(original, damaged, known, intact, exit_code, rows)

    def check(self, original, damaged, known, intact, exit_code, rows):
        found = collections.defaultdict(set)
        for row, content in rows:
            file = "%s_%s-%s.dat" % tuple(row["stream"].split(":"))
            found[file].add(content)
            if row["state"] == "verified":
                assert known and (file, content) in [(s[0], s[3]) for s in original.streams], row
                self.counts["verified"] += 1
            self.counts["found by " + row["found_by"]] += 1
        for file, content in intact.items():
            assert content in found[file], (file, len(content), [row for row, _ in rows])
        assert sum(len(content) for _, content in rows) <= 4 * len(damaged)
        whole = sum(s[3] in found[s[0]] for s in original.streams)
        if exit_code == DONE and known or damaged == original.bytes:
            assert (exit_code, whole) == (DONE, len(original.streams)), [row for row, _ in rows]
        self.counts.update({
            "containers": 1, "with checksums": known, "without notes": not original.notes,
            "streams": len(original.streams), "intact streams": len(intact),
            "intact streams recovered": len(intact), "streams recovered whole": whole,
            "exit code %d" % exit_code: 1, "undamaged containers": damaged == original.bytes})


def main():
    program, directory = map(os.path.abspath, sys.argv[1:3])
    count, seed = int((sys.argv[3:] or [300])[0]), int((sys.argv[4:] or [1])[0])
    shutil.rmtree(directory, ignore_errors=True)
    os.makedirs(directory)
    measurement = Measurement(program, directory)
    failed = 0
    for number in range(seed, seed + count):
        try:
            measurement.one(random.Random(number))
        except AssertionError as error:
            failed += 1
            print("seed %d: %s" % (number, error))
    for name, value in sorted(measurement.counts.items()):
        print("%8d %s" % (value, name))
    return failed > 0


if __name__ == "__main__":
    sys.exit(main())

"""Holds the demonstration to what it promises, from outside.

    demo_test.py PROGRAM DIRECTORY

The record files are compared here once more, so that a comparison in the program that sees nothing
would be seen.
"""

import filecmp
import os
import random
import shutil
import subprocess
import sys
import unittest
import wave
import zlib

PROGRAM = os.path.abspath(sys.argv[1])
DIRECTORY = os.path.abspath(sys.argv[2])


def limit_file_size(size):
    import resource
    import signal

    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))


class Demo(unittest.TestCase):
    def setUp(self):
        self.directory = os.path.join(DIRECTORY, self._testMethodName)
        shutil.rmtree(self.directory, ignore_errors=True)
        os.makedirs(self.directory)
        self.into = self.path("a recording")

    def path(self, *names):
        return os.path.join(self.directory, *names)

    def make(self, name, content=b""):
        with open(self.path(name), "wb") as file:
            file.write(content)
        return self.path(name)

    def record(self, *arguments, **options):
        return subprocess.run(
            [PROGRAM, "--into", self.into, *arguments],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **options)

    def assertRefused(self, result, *words):
        """One clear line, which holds the words, and no table that looks like a success."""
        self.assertEqual(result.returncode, 1, result)
        self.assertEqual(result.stdout, "")
        self.assertRegex(result.stderr, r"\Ademo: [^\n]+\n\Z")
        for word in words:
            self.assertIn(word, result.stderr)

    def test_own_streams(self):
        archive = self.make("archive", random.Random(1).randbytes(200001))
        result = self.record("--archive", archive)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        names = sorted(os.listdir(os.path.join(self.into, "1")))
        self.assertEqual(names, ["1_1001-2.dat", "3_1003-2.dat", "4_1004-4.dat"])
        for name in names:
            self.assertIn(name, result.stdout)
        self.assertTrue(filecmp.cmp(archive, os.path.join(self.into, "1", names[2]), False))
        with wave.open(os.path.join(self.into, "1", names[0])) as sound:
            form = (sound.getframerate(), sound.getnchannels(), sound.getsampwidth())
            self.assertEqual(form, (48000, 2, 2))
            self.assertEqual(len(sound.readframes(sound.getnframes())), 10 * 48000 * 2 * 2)
        with open(os.path.join(self.into, "1", names[1]), encoding="utf-8") as chat:
            self.assertRegex(chat.read(), r"\A(\d\d:\d\d:\d\d \w+: [^\n]+\n)+\Z")
        # The container is read by a program that shares nothing with the library.
        reader = os.path.join(os.path.dirname(__file__), "../../tests/container_reader.py")
        streams = subprocess.check_output(
            [sys.executable, reader, os.path.join(self.into, "recording.qxf")], text=True)
        for name in names:
            with open(os.path.join(self.into, "1", name), "rb") as recorded:
                content = recorded.read()
            self.assertIn(f" {len(content)} {zlib.crc32(content)}\n", streams)

    def test_files(self):
        contents = [b"", b"x", random.Random(2).randbytes(65536), bytes(3 * 65536 + 17)]
        files = [self.make(f"-- file {n} ü", content) for n, content in enumerate(contents)]
        relative = [os.path.basename(file) for file in files]
        result = self.record("--", *relative, cwd=self.directory)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        for number, file in enumerate(files, 1):
            recorded = os.path.join(self.into, "1", f"4_{number * 1000 + 4}-4.dat")
            self.assertTrue(filecmp.cmp(file, recorded, False), file)
        total = next(line for line in result.stdout.splitlines() if line.startswith("total"))
        self.assertIn(str(sum(map(len, contents))), total.split())
        self.assertEqual(total.split()[-1], "0")

    def test_what_is_no_file(self):
        present = self.make("present")
        self.assertRefused(self.record(present, self.path("missing")), "missing", "no such file")
        self.assertRefused(self.record(present, self.directory), "directory")
        if hasattr(os, "mkfifo"):
            os.mkfifo(self.path("fifo"))
            self.assertRefused(self.record(present, self.path("fifo"), timeout=60), "regular")
        self.assertFalse(os.path.exists(self.into))

    def test_an_earlier_recording_is_left_alone(self):
        os.makedirs(os.path.join(self.into, "1"))
        self.assertRefused(self.record(self.make("file")), "something already")
        self.assertEqual(os.listdir(os.path.join(self.into, "1")), [])

    def test_no_place_for_a_directory(self):
        self.into = os.path.join(self.make("in the way"), "recording")
        self.assertRefused(self.record(self.make("file", b"x")), "open", "CACHE_ERR")

    @unittest.skipUnless(os.name == "posix", "needs a limit on the size of files")
    def test_writes_that_fail(self):
        large = self.make("large", bytes(3000000))
        result = self.record(large, preexec_fn=lambda: limit_file_size(100000))
        self.assertRefused(result, "large", "write", "CACHE_ERR")
        # All of this one is gathered until the close, which is accepted.
        shutil.rmtree(self.into)
        small = self.make("small", bytes(20000))
        result = self.record(small, preexec_fn=lambda: limit_file_size(10000))
        self.assertRefused(result, "small", "write", "CACHE_ERR")

    def test_progress_only_when_asked_for(self):
        file = self.make("file", bytes(1000000))
        self.assertEqual(self.record(file).stderr, "")
        shutil.rmtree(self.into)
        drawn = self.record("--progress", file).stderr
        self.assertIn("100%", drawn)
        # Text mode turns the carriage returns into newlines. At the end the bar is wiped away.
        self.assertEqual(drawn.split("\n")[-2:], [" " * 79, ""])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)

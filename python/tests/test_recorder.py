"""Tests of recording with the library (CACHEFILE_LIBRARY). Needs only Python."""

import asyncio
import os
import subprocess
import sys
import tempfile
import textwrap
import threading
import unittest

import cachefile
from cachefile import Code

PIECES = [bytes([i]) * (i * 997 % 40_000) for i in range(200)]


def pieces():
    """Yields the pieces as different bytes-like objects."""
    for i, piece in enumerate(PIECES):
        yield [bytes, bytearray, memoryview, lambda b: memoryview(bytearray(b + b))[:len(b)]][i % 4](
            piece)


class RecorderTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = os.path.join(temporary.name, "new", "7")

    def expect(self, **streams):
        with cachefile.open(self.directory) as recording:
            found = {stream.name: stream.read() for stream in recording.streams}
        self.assertEqual(found, {name[1:].replace("_", ":"): b for name, b in streams.items()})

    def test_both_modes_record_the_same(self):
        for asynchronous in (False, True, True):
            with self.subTest(asynchronous=asynchronous), \
                    cachefile.Recorder(self.directory, asynchronous=asynchronous) as one:
                voice = one.open(4, 7004, 4, overwrite=True)
                with one.open(1, 1001, 2, overwrite=True) as chat:
                    for piece in pieces():
                        voice.append(piece)
                    chat.append(b"hello")
                    chat.flush()
                    chat.write(memoryview(b"J"), 0)
            self.expect(s4_7004_4=b"".join(PIECES), s1_1001_2=b"Jello")

    def test_a_loop_takes_the_results(self):
        async def record():
            async with cachefile.Recorder(self.directory, asynchronous=True) as one:
                stream = one.open(4, 7004, 4)
                runs, run = [], one.run
                asyncio.get_running_loop().add_reader(one.fileno(), lambda: runs.append(run()))
                async with cachefile.Recorder(self.directory, asynchronous=True) as other:
                    await other.open(1, 1001, 2).synced()
                for piece in pieces():
                    await stream.send(piece)
                await stream.synced()
                self.assertEqual(stream.losses(), (0, 0, 0, [], True))
                while not runs:
                    await asyncio.sleep(0)  # the descriptor reports the result of the open
                return runs

        cachefile.set_pending_limit(65_536)
        try:
            self.assertGreater(asyncio.run(record())[0], 0)
        finally:
            cachefile.set_pending_limit(None)
        self.expect(s4_7004_4=b"".join(PIECES), s1_1001_2=b"")

    def test_what_is_written_gets_to_the_disk_in_time(self):
        """Synced by call and by interval, flushed by age, and refused until there is room."""
        path = os.path.join(self.directory, "4_7004-4.dat")
        for asynchronous in (False, True):
            with self.subTest(asynchronous=asynchronous), \
                    cachefile.Recorder(self.directory, asynchronous=asynchronous) as one:
                free = []
                one.set_low_space(1 << 62, free.append)
                one.set_pending_limit(65_536)
                cachefile.set_sync_interval(1000)
                stream = one.open(4, 7004, 4, overwrite=True)
                for _ in range(10):
                    while not stream._try_append(memoryview(bytes(40_000))):
                        one.wait()
                stream.sync()
                self.assertEqual((os.path.getsize(path), len(free)), (400_000, 1))
                cachefile.set_gather_age(0.001)
                stream.append(b"old")
                while os.path.getsize(path) == 400_000:
                    one.wait(1) if asynchronous else cachefile.flush_aged()
                self.assertEqual(cachefile.unsynced_bytes(), 3)
                cachefile.set_gather_age(None)
                cachefile.set_sync_interval(None)
                self.assertEqual(stream.losses(), (0, 0, 0, [], True))
        for call in (cachefile.set_gather_age, cachefile.set_sync_interval, cachefile.set_pending_limit):
            with self.assertRaises(cachefile.CacheFileError):
                call(-1)

    def test_two_recorders_share_the_worker(self):
        with cachefile.Recorder(self.directory, asynchronous=True) as one:
            stream = one.open(4, 7004, 4)
            with cachefile.Recorder(self.directory, asynchronous=True) as two:
                two.open(1, 1001, 2).append(b"two")
            stream.append(b"one")
        self.expect(s4_7004_4=b"one", s1_1001_2=b"two")

    def test_misuse_is_refused(self):
        with cachefile.Recorder(self.directory) as one:
            one.open(4, 7004, 4).append(b"x")
            with self.assertRaises(FileExistsError):
                one.open(4, 7004, 4)
            seen = []
            other = threading.Thread(target=lambda: seen.append(self.refusal(one.run)))
            other.start()
            other.join()
            self.assertEqual(seen, [Code.INVALID_STATE])
        one.close()
        self.assertEqual(self.refusal(one.run), Code.INVALID_STATE)

    def refusal(self, call):
        with self.assertRaises(cachefile.RecordingError) as failure:
            call()
        return failure.exception.code

    def test_an_error_in_the_body_is_the_one_to_see(self):
        with self.assertRaises(KeyError), cachefile.Recorder(self.directory) as one:
            one.open(4, 7004, 4).append(b"kept")
            raise KeyError
        self.expect(s4_7004_4=b"kept")

    def test_losses_and_failures_are_exceptions_with_their_code(self):
        """Uses a separate process, because the file size limit and the count of losses remain."""
        script = textwrap.dedent("""
            import contextlib, resource, sys, cachefile
            resource.setrlimit(resource.RLIMIT_FSIZE, (100_000, 100_000))
            asynchronous = sys.argv[2] == "1"
            one = cachefile.Recorder(sys.argv[1], asynchronous=asynchronous)
            stream = one.open(4, 7004, 4)
            try:
                for _ in range(5):
                    stream.append(bytes(99_000))
                stream.sync()
            except cachefile.RecordingError as error:
                print(int(error.code), error.lost, sum(hole.length for hole in stream.losses().holes))
                with contextlib.suppress(cachefile.RecordingError):
                    one.close()
            path = sys.argv[1] + "/4_7004-4.dat/below"
            try:
                with cachefile.Recorder(path, asynchronous=asynchronous) as one:
                    one.open(1, 1, 1)
            except cachefile.RecordingError as error:
                print(int(error.code))
            """)
        for asynchronous in "01":
            result = subprocess.run([sys.executable, "-c", script, self.directory, asynchronous],
                                    check=True, text=True, stdout=subprocess.PIPE)
            (code, lost, holes), (open_code,) = map(str.split, result.stdout.splitlines())
            self.assertEqual(int(code), Code.FAILED)
            self.assertEqual((int(lost) > 0, lost), (asynchronous == "1", holes))
            self.assertIn(int(open_code), (Code.NOT_FOUND, Code.FAILED))
            os.remove(os.path.join(self.directory, "4_7004-4.dat"))


if __name__ == "__main__":
    unittest.main()

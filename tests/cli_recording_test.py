"""Tests what the command line knows about recordings: notes, limits, parts and full disks.

The arguments are those of cli_test.py.
"""

import json
import os
import random
import shutil
import subprocess
import sys
import threading
import time
import unittest

from cli_test import DAMAGE, DONE, FAILED, PROGRAM, WINDOWS, Cli, not_on_windows

STREAM = "4:7004:4"
FILE = "4_7004-4.dat"
NOTES = "kvr2/7/recording.json"
CONTENT = random.Random(7).randbytes(200001)


class Recording(Cli):
    def setUp(self):
        super().setUp()
        self.make("in", CONTENT)

    def record(self, exit_code, number, *arguments, source="in", **options):
        return self.run_tool(exit_code, "record", str(number), "--stream", STREAM + "=" + source,
                             *arguments, **options)

    def notes(self, name=NOTES):
        return json.loads(self.read(name))

    def state(self, number=7):
        return self.run_json(DONE, "info", "kvr2/%d" % number)["state"]

    def bytes_of(self, first, last):
        return b"".join(self.read("kvr2/%d/%s" % (n, FILE)) for n in range(first, last + 1))

    def start_recorder(self, *arguments):
        """Starts a recorder, and returns when it has written a byte."""
        if WINDOWS:
            self.skipTest("the emulator cannot look at a pipe of its host: the recorder waits in the read")
        process = self.start("record", "7", "--stream", STREAM + "=-", "--flush", "10ms", *arguments)
        process.stdin.write(b"x")
        process.stdin.flush()
        while not os.path.exists(self.path("kvr2/7/" + FILE)) or self.read("kvr2/7/" + FILE) != b"x":
            self.assertIsNone(process.poll())
            time.sleep(0.01)
        return process


class Notes(Recording):
    def test_they_say_whether_a_recording_is_closed(self):
        self.record(DONE, 7)
        notes = self.notes()
        self.assertEqual((notes["state"], notes["reason"], self.state()),
                         ("closed", "inputs-ended", "closed"))
        stream, = notes["streams"]
        self.assertEqual([stream[key] for key in ("stream", "file", "source", "bytes", "lost_bytes", "holes")],
                         [STREAM, FILE, "in", 200001, 0, []])
        os.remove(self.path(NOTES))
        self.assertIsNone(self.state())
        with self.start_recorder("--force") as process:
            self.assertEqual((self.state(), self.notes()["state"]), ("being recorded", "open"))
            process.kill()
        self.assertEqual((self.state(), self.notes()["state"]), ("not closed", "open"))
        self.assertIn("was not closed", self.run_tool(DONE, "pack", "kvr2/7", "-o", "packed")[1])
        self.record(FAILED, 8, source="missing")
        self.assertFalse(os.path.exists(self.path("kvr2/8/recording.json")))

    def test_notes_of_other_streams_and_unknown_fields_are_kept(self):
        self.record(DONE, 7)
        notes = self.notes()
        notes["note"] = notes["streams"][0]["note"] = ["ü"]
        self.make(NOTES, json.dumps(notes).encode())
        self.run_tool(DONE, "record", "7", "--stream", "1:1001:2=in")
        self.assertEqual(self.notes()["note"], ["ü"])
        self.assertEqual(self.notes()["streams"][0], notes["streams"][0])
        self.run_tool(DONE, "pack", "kvr2/7", "-o", "packed", "--verify")
        self.run_tool(DONE, "extract", "packed", "-o", "out", "--stream", STREAM)
        self.assertEqual(self.notes("out/recording.json")["streams"], [notes["streams"][0]])
        # A kept stream that was never closed keeps the recording open.
        notes["streams"][0]["bytes"] = None
        self.make(NOTES, json.dumps(notes).encode())
        self.run_tool(DONE, "record", "7", "--force", "--stream", "1:1001:2=in")
        self.assertEqual(self.notes()["state"], "open")

    def test_streams_keep_their_notes_under_new_names(self):
        self.make("other", b"other")
        self.record(DONE, 7)
        self.record(DONE, 8, source="other")
        self.run_tool(DONE, "pack", "kvr2/7", "kvr2/8", "-o", "packed", "--renumber", "--verify")
        self.run_tool(DONE, "sums", "packed", "--check")
        self.run_tool(DONE, "extract", "packed", "-o", "out")
        self.assertEqual([[stream[key] for key in ("stream", "id", "file", "bytes", "source")]
                          for stream in self.notes("out/recording.json")["streams"]],
                         [[STREAM, 7004, FILE, len(CONTENT), "in"],
                          ["4:8004:4", 8004, "4_8004-4.dat", 5, "other"]])

    def test_what_differs_from_the_notes_is_damage(self):
        self.record(DONE, 7)
        self.run_tool(DONE, "pack", "kvr2/7", "-o", "good", "--verify")
        flipped = CONTENT[:999] + bytes([CONTENT[999] ^ 1]) + CONTENT[1000:]
        self.make("bad", self.read("good").replace(CONTENT, flipped))
        self.make("bad.recording.json", self.read("good.recording.json"))
        self.run_tool(DONE, "extract", "good", "-o", "out")
        _, error = self.run_tool(DAMAGE, "extract", "bad", "-o", "out.bad")
        self.assertIn(STREAM + " differs from the notes of the recording: its checksum", error)
        self.make("kvr2/7/" + FILE, flipped)
        _, error = self.run_tool(FAILED, "pack", "kvr2/7", "-o", "new", "--verify")
        self.assertIn("another checksum", error)
        self.make("kvr2/7/" + FILE, CONTENT[:-1])
        self.run_tool(DAMAGE, "pack", "kvr2/7", "-o", "new")
        os.remove(self.path("kvr2/7/" + FILE))
        self.make("kvr2/7/1_1001-2.dat", b"")
        self.run_tool(DAMAGE, "pack", "kvr2/7", "-o", "new", "--force")

    def test_doctor_compares_a_directory_with_its_notes(self):
        self.record(DONE, 7)
        self.assertEqual(self.run_json(DONE, "doctor", "kvr2/7", "--deep")["findings"], [])
        damages = {
            "size-differs": lambda file: os.truncate(file, 99),
            "checksum-differs": lambda file: self.make(file, CONTENT[::-1]),
            "file-missing": os.remove,
            "link": lambda file: (os.rename(file, file + ".x"), os.symlink(file + ".x", file)),
            "not-a-file": lambda file: (os.remove(file), os.mkdir(file)),
            "not-closed": lambda file: self.make(NOTES, self.read(NOTES).replace(b"closed", b"open")),
            "notes-unusable": lambda file: self.make(NOTES, b"{"),
            "not-packable": lambda file: self.make("kvr2/7/4_7004-2.dat", b"")}
        if WINDOWS:
            del damages["link"]  # the emulator hides that a file is a link of its host
        for code, damage in damages.items():
            shutil.rmtree(self.path("kvr2"))
            self.record(DONE, 7)
            damage(self.path("kvr2/7/" + FILE))
            found = self.run_json(DAMAGE, "doctor", "kvr2/7", "--deep")["findings"]
            self.assertIn(code, [finding["code"] for finding in found])
            if code == "checksum-differs":
                self.run_tool(DONE, "doctor", "kvr2/7")

    def test_watch_shows_a_recording_until_its_end(self):
        with self.start_recorder() as process, self.start("info", "kvr2/7", "--watch", "--json") as watch:
            first = json.loads(watch.stdout.readline())
            process.stdin.write(CONTENT)
            process.stdin.close()
            *_, before, last = [first, *map(json.loads, watch.stdout.readlines())]
            self.assertEqual([first[key] for key in ("pending_bytes", "lost_bytes")], [0, 0])
            self.assertIsNone(last["lost_bytes"])
            self.assertEqual([name for name in os.listdir(self.path("kvr2/7")) if "status" in name], [])
            self.assertEqual((before["being_recorded"], last["being_recorded"]), (True, False))
            self.assertEqual(last["streams"][0]["bytes"], 200002)
            self.assertEqual(watch.wait(100), DONE)

    def test_a_recording_is_packed_while_it_grows(self):
        with self.start_recorder() as process:
            ended = threading.Event()

            def feed():
                while not ended.wait(0.005):  # a slow machine must not reach 4 GiB meanwhile
                    process.stdin.write(CONTENT)

            feeder = threading.Thread(target=feed)
            feeder.start()
            sizes = []
            for _ in range(5):
                document = self.run_json(DONE, "pack", "kvr2/7", "-o", "packed", "--verify", "--force")
                stream, = document["streams"]
                self.assertTrue(stream["being_recorded"])
                sizes.append(stream["bytes"])
            warning = self.run_tool(DONE, "pack", "kvr2/7", "-o", "packed", "--force")[1]
            ended.set()
            feeder.join()
            self.assertIn("each stream is packed up to the length it has now", warning)
            process.communicate(timeout=100)
        self.assertEqual(sizes, sorted(set(sizes)), "it has grown between them")
        packed, _ = self.run_tool(DONE, "play", "packed", "--stream", STREAM)
        self.assertEqual(packed, self.read("kvr2/7/" + FILE)[:len(packed)])
        samples = self.notes()["streams"][0]["samples"]
        self.assertEqual(sum(samples["bytes"]), self.notes()["streams"][0]["bytes"])
        self.assertLessEqual((len(samples["bytes"]) - 1) * samples["interval_ms"], samples["duration_ms"])

    def test_play_follows_a_recorder_to_its_end(self):
        with self.start_recorder() as process, self.start("play", "kvr2/7", "--stream", STREAM,
                                                          "--follow") as player:
            self.assertEqual(player.stdout.read(1), b"x")
            process.stdin.write(CONTENT)
            process.stdin.flush()
            self.assertEqual(player.stdout.read(100000), CONTENT[:100000])
            process.stdin.write(b"end")
            process.stdin.close()
            self.assertEqual(player.stdout.read(), CONTENT[100000:] + b"end")
            self.assertEqual((process.wait(100), player.wait(100)), (DONE, DONE))

    def test_malicious_notes_only_give_a_warning(self):
        self.record(DONE, 7)
        good = self.read(NOTES)
        cases = [b"", b"{", b"[]", b"\xff\xfe", b"[" * 500000, good[:-9], b'{"a":' * 100000,
                 good.replace(b'"version": 1', b'"version": 2'), good.replace(b'"closed"', b"[]"),
                 good.replace(b"200001,", b"-1,"), good.replace(b"200001,", b"1e99,"),
                 good.replace(STREAM.encode(), b"../x"), good.replace(b'"xxh3_128": "', b'"xxh3_128": "x'),
                 good.replace(b'"streams": [', b'"streams": [7,'),
                 json.dumps({**json.loads(good), "streams": json.loads(good)["streams"] * 2}).encode()]
        for case in cases:
            with self.subTest(case[:80]):
                self.make(NOTES, case)
                self.assertIn("cannot be used", self.run_tool(DONE, "info", "kvr2/7")[1])
                self.assertIn("not used", self.run_tool(DONE, "pack", "kvr2/7", "-o", "p", "--force")[1])
        self.assertIn("is replaced", self.record(DONE, 7, "--force")[1])
        self.assertEqual(self.state(), "closed")
        if not WINDOWS:
            os.remove(self.path(NOTES))
            os.mkfifo(self.path(NOTES))
            self.assertIn("not a regular file", self.run_tool(DONE, "info", "kvr2/7")[1])


class Recover(Recording):
    def test_what_was_recovered_has_notes_and_is_verified_only_if_its_original_was(self):
        self.make("other", b"other")
        self.record(DONE, 7)
        self.run_tool(DONE, "record", "7", "--stream", "1:1001:2=other")
        self.run_tool(DONE, "pack", "kvr2/7", "-o", "good")
        self.make("kvr2/7/" + FILE, CONTENT[:-1])
        self.make("bad", self.read("good").replace(b"other", b"Other"))
        self.make("bad.recording.json", self.read("good.recording.json"))
        for source, damaged in ("kvr2/7", STREAM), ("bad", "1:1001:2"):
            found = self.run_json(DAMAGE, "recover", source, "-o", "new." + source[:3])["streams"]
            self.assertEqual({row["stream"] for row in found if row["state"] == "damaged"}, {damaged})
            new = "new." + source[:3]
            streams = self.notes(new + "/recording.json")["streams"]
            self.assertEqual({stream["stream"]: stream["recovered"] for stream in streams},
                             {row["stream"]: row["state"] for row in found})
            self.assertEqual(self.run_json(DONE, "info", new)["state"], "recovered")
            self.run_tool(DONE, "doctor", new, "--deep")
            again = self.run_json(DONE, "recover", new, "-o", new + ".2", "--container")["streams"]
            self.assertEqual({row["stream"] for row in again if row["state"] == "verified"},
                             {row["stream"] for row in found if row["stream"] != damaged})
            self.run_tool(DONE, "pack", new, "-o", new + ".packed", "--verify")
            self.assertEqual([self.notes(new + end + ".recording.json")["state"] for end in (".2", ".packed")],
                             ["recovered"] * 2)

    @not_on_windows("its recorder waits in the read of its input")
    def test_a_recording_that_was_killed_but_none_that_is_being_made(self):
        with self.start_recorder() as process:
            self.assertIn("is being recorded", self.run_tool(FAILED, "recover", "kvr2/7", "-o", "new")[1])
            process.kill()
        self.assertIn("was not closed", self.run_tool(DAMAGE, "recover", "kvr2/7", "-o", "new")[1])
        self.assertEqual(self.read("new/" + FILE), b"x")
        self.make(NOTES, b"{")
        self.assertIn("cannot be used", self.run_tool(DONE, "recover", "kvr2/7", "-o", "other")[1])


class Losses(Recording):
    @unittest.skipIf(WINDOWS or not shutil.which("strace"), "strace is needed")
    def test_what_the_last_sync_loses_is_counted(self):
        for mode in [], ["--no-worker"], ["--on-full", "wait"]:
            failing = ["strace", "-f", "-o", self.path("calls"), "-e", "trace=fsync,fdatasync", "-e",
                       "inject=fsync,fdatasync:error=EIO", PROGRAM]
            ended = subprocess.run([*failing, "record", "7", "--force", "--sync", "1h", *mode, "--stream",
                                    STREAM + "=in"], cwd=self.directory, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE,  # no leaks are found under strace
                                   env={**os.environ, "ASAN_OPTIONS": "detect_leaks=0"})
            self.assertEqual(ended.returncode, DAMAGE, ended)
            self.assertIn(b"failed:", ended.stderr)
            self.assertRegex(ended.stdout.decode(), r" %d\n" % len(CONTENT))


class Limits(Recording):
    def test_limits_end_it_cleanly(self):
        for number, (reason, options) in enumerate([
                ("max-bytes", ["--max-bytes", "50K"]), ("min-free", ["--min-free", "9999T"]),
                ("inputs-ended", ["--min-free", "1", "--duration", "1h", "--max-bytes", "1G"])]):
            self.record(DONE, number, *options)
            notes = self.notes("kvr2/%d/recording.json" % number)
            self.assertEqual((notes["state"], notes["reason"]), ("closed", reason))
        self.assertEqual(self.bytes_of(0, 0), CONTENT[:51200])
        self.assertEqual(self.bytes_of(1, 2), CONTENT)

    def test_time_passes_while_an_input_waits(self):
        for mode in [], ["--no-worker"]:
            with self.start_recorder("--duration", "3s", "--force", *mode) as process:
                self.assertEqual(process.wait(100), DONE)
            self.assertEqual((self.notes()["reason"], self.read("kvr2/7/" + FILE)), ("duration", b"x"))

    def test_a_split_loses_no_byte_and_makes_no_empty_part(self):
        self.make("kvr2/2/other", b"")
        for mode in [], ["--no-worker"]:
            for first, options, parts in [(1, ["--split", "50001"], [1, 3, 4, 5]), (7, ["--split", "200001"], [7]),
                                          (20, ["--split", "1h", "--piece", "7"], [20])]:
                document = json.loads(self.record(DONE, first, *options, *mode, "--json")[0])
                self.assertEqual([part["record_id"] for part in document["parts"]], parts)
                self.assertEqual(document["streams"][0]["stored_bytes"], 200001)
                self.assertEqual(b"".join(self.bytes_of(part, part) for part in parts), CONTENT)
                for part in parts:
                    self.assertEqual(self.state(part), "closed")
                    for name in FILE, "recording.json", "recording.lock":
                        os.remove(self.path("kvr2/%d/%s" % (part, name)))
                    os.rmdir(self.path("kvr2/%d" % part))

    @unittest.skipIf(WINDOWS or os.geteuid() != 0, "a file system can be mounted by root only")
    def test_after_a_full_disk_it_goes_on_when_there_is_space(self):
        os.makedirs(self.path("disk"))
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=1m", "tmpfs", self.path("disk")],
                          stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("no file system can be mounted here")
        try:
            for mode in [], ["--no-worker"]:
                shutil.rmtree(self.path("disk/7"), ignore_errors=True)
                self.make("disk/filler", b"x" * 950000)
                process = self.start("record", "7", "--home", "disk", "--on-full", "wait",
                                     "--stream", STREAM + "=-", *mode)
                writer = threading.Thread(target=process.stdin.write, args=[CONTENT])
                writer.start()
                self.assertIn(b"waits: no space left", process.stderr.readline())
                os.remove(self.path("disk/filler"))
                self.assertIn(b"goes on", process.stderr.readline())
                writer.join()
                process.communicate(CONTENT, timeout=100)
                self.assertEqual(process.returncode, DONE)
                self.assertEqual(self.read("disk/7/" + FILE), CONTENT * 2)
                notes, = self.notes("disk/7/recording.json")["streams"]
                self.assertEqual((notes["bytes"], notes["lost_bytes"], notes["holes"]),
                                 (2 * len(CONTENT), 0, []))
        finally:
            subprocess.run(["umount", self.path("disk")], check=False)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:])

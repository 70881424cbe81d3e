"""Runs the command line as a user would and checks its results, files and output.

    cli_test.py PROGRAM DIRECTORY [MAN-PAGES COMPLETION] [unittest's arguments]

A Windows program (.exe) is run by the command in the environment variable EMULATOR.
"""

import contextlib
import fcntl
import itertools
import json
import os
import pty
import re
import resource
import select
import shlex
import shutil
import signal
import struct
import subprocess
import sys
import threading
import time
import unittest
import xml.etree.ElementTree

from containers import CONF, DAMAGED, THREE, container, entry

PROGRAM, DIRECTORY, MAN_PAGES, COMPLETION = map(os.path.abspath, sys.argv[1:5])
DONE, FAILED, USAGE, DAMAGE, INTERRUPTED = 0, 1, 2, 3, 130
WINDOWS = PROGRAM.endswith(".exe")
EMULATOR = os.environ.get("EMULATOR", "").split()
with open(PROGRAM, "rb") as program:  # a sanitizer uses additional memory
    SANITIZED = re.search(rb"__[at]san_init", program.read()) is not None
COMMANDS = "record play info list map extract pack doctor sums recover bench".split()


def not_on_windows(reason):
    return unittest.skipIf(WINDOWS, "Windows: " + reason)


def limit_files_to(size):
    return lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))


class Cli(unittest.TestCase):
    def setUp(self):
        self.directory = os.path.join(DIRECTORY, self._testMethodName)
        shutil.rmtree(self.directory, ignore_errors=True)
        os.makedirs(self.directory)

    def path(self, name):
        return os.path.join(self.directory, name)

    def make(self, name, content):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(content)
        return name

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def files(self, directory):
        return [os.path.join(directory, name) for name in os.listdir(self.path(directory))]

    def start(self, *arguments, **options):
        for stream in ("stdin", "stdout", "stderr"):
            options.setdefault(stream, subprocess.PIPE)
        return subprocess.Popen([*EMULATOR, PROGRAM, *arguments], cwd=self.directory, **options)

    def run_tool(self, exit_code, *arguments, input=b"", timeout=100, **options):
        """Runs the program to its end and returns (standard output, standard error)."""
        process = self.start(*arguments, **options)
        output, error = process.communicate(input, timeout)
        self.assertEqual(process.returncode, exit_code, (arguments, output, error))
        return output, error.decode()

    def run_json(self, exit_code, *arguments, **options):
        document = json.loads(self.run_tool(exit_code, *arguments, "--json", **options)[0])
        self.assertEqual(document["schema"], "cachefile." + arguments[0])
        self.assertEqual(document["version"], 1)
        return document

    def make_recording(self):
        """Creates a recording directory with the streams of THREE."""
        self.make("rec/7/1_1001-2.dat", THREE[0][2])
        self.make("rec/7/4_7004-4.dat", THREE[2][2])
        self.make("rec/7/100_100-2.dat", CONF)


class Usage(Cli):
    def test_bad_usage_and_plain_failure(self):
        self.make("plain", b"x" * 100)
        self.make_recording()
        bad_usage = """
            --fly
            info
            info plain --fly
            play rec/7 --stream 4:7004
            play rec/7 --stream 65536:1:1
            play rec/7 --stream 4:7004:0
            play rec/7 --stream 4:7004:4 --offset=-1
            play rec/7 --stream 4:7004:4 --length 18446744073709551616
            record 7 --stream 4:7004:4
            record -1 --stream 4:7004:4=plain
            record 4294967296 --stream 4:7004:4=plain
            record 010x --stream 4:7004:4=plain
            record 7 --sync 1 --stream 4:7004:4=plain
            record 7 --min-free -1K --stream 4:7004:4=plain
            record 7 --split 10m --stream 4:7004:4=plain
            record 7 --on-full go --stream 4:7004:4=plain
            record 7 --home '' --stream 4:7004:4=plain
            record 7 --stream 4:1:4=plain --stream 4:1:4=plain
            record 7 --stream 4:1:4=- --stream 4:2:4=-
            pack rec/7 -o out --index 2
            extract plain
            extract plain -o out --progress loud
            map plain -o ''"""
        failures = """
            play rec/7 --stream 4:7004:5
            info missing
            info plain
            map rec/7
            extract rec/7 -o out
            doctor rec
            pack missing -o out
            pack rec -o out
            record 7 --stream 4:7004:4=missing
            record 7 --home plain --stream 4:7004:4=plain"""
        cases = [(code, shlex.split(line)) for code, table in ((USAGE, bad_usage), (FAILED, failures))
                 for line in table.strip().splitlines()]
        for exit_code, arguments in [(USAGE, []), (USAGE, ["fly"]), *cases]:
            with self.subTest(arguments):
                output, error = self.run_tool(exit_code, *arguments)
                self.assertEqual(output, b"")
                self.assertRegex(error, r"^(cachefile: .*\r?\n)+$")
                if not arguments or arguments[0] in ("play", "fly", "--fly"):
                    continue
                output, failure = self.run_tool(exit_code, *arguments, "--json")
                self.assertEqual(output, b"")
                self.assertEqual(json.loads(failure.splitlines()[-1]),
                                 {"schema": "cachefile.error", "version": 1, "command": arguments[0],
                                  "exit": exit_code, "message": error.splitlines()[-1][11:]})
        _, error = self.run_tool(USAGE, "fly", "plain", "--json")
        self.assertEqual(json.loads(error)["message"], "unknown command 'fly' (see `--help`)")
        self.assertEqual(sorted(os.listdir(self.directory)), ["plain", "rec"])

    def test_help_and_man_pages_describe_everything(self):
        pages = []
        for name in sorted(os.listdir(MAN_PAGES)):
            with open(os.path.join(MAN_PAGES, name)) as file:
                pages.append(file.read().replace("\\-", "-"))
        self.assertRegex(self.run_tool(DONE, "--version")[0], rb"^cachefile \d+\.\d+\.\d+\n$")
        self.assertTrue(all(name in self.run_tool(DONE, "help")[0].decode() for name in COMMANDS))
        for name in COMMANDS:
            text = self.run_tool(DONE, name, "--help")[0].decode()
            self.assertEqual(self.run_tool(DONE, "help", name)[0].decode(), text)
            self.assertIn("Example:\n  ", text)
            self.assertIn("cachefile " + name, text)
            page, = [page for page in pages if "\n.B cachefile %s\n" % name in page]
            section = re.search(r"\n\.SS " + name + r"\b(.*?)\n\.S[SH]", page, re.S)
            options = set(re.findall(r"(--[a-z-]+)", text.split("Options:")[1])) - {"--help"}
            self.assertLessEqual(options, set(re.findall(r"(--[a-z-]+)", section[0] if section else page)))
            if not section:
                self.assertEqual(set(re.findall(r"\n\.BI? (--[a-z-]+)", page)) - options, set(), name)

    @not_on_windows("bash starts no Windows program")
    def test_completion_runs_in_bash(self):
        self.make("some file", container(THREE))
        for words, wanted in [(["re"], ["record", "recover"]), (["pack", "--v"], ["--version", "--verify"]),
                              (["pack", "--index", ""], ["0", "1"]), (["info", "so"], ["some file"]),
                              (["play", "some file", "--stream", "1", ":", "1001", ":"], ["2"])]:
            quoted = " ".join("'%s'" % word for word in [PROGRAM, *words])
            script = ("source '%s'; compopt() { :; }; COMP_WORDS=(%s); COMP_CWORD=%d; _cachefile; "
                      "printf '%%s\\n' \"${COMPREPLY[@]}\"" % (COMPLETION, quoted, len(words)))
            output = subprocess.run(["bash", "-c", script], cwd=self.directory,
                                    stdout=subprocess.PIPE, check=True).stdout.decode()
            self.assertEqual(sorted(output.splitlines()), sorted(wanted), words)

    def in_zsh(self, line):
        """Types the line and a tab into a shell on a terminal, and returns the line after that."""
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(self.directory)
            os.environ.update(PATH=os.path.dirname(PROGRAM) + ":" + os.environ["PATH"], TERM="dumb")
            os.execvp("zsh", ["zsh", "-f", "-i"])
        try:
            os.write(terminal, b"stty -echo; fpath=($PWD $fpath); autoload -Uz compinit; compinit -u -D; "
                     b"show() { print -r \"<$BUFFER>\" }; zle -N show; bindkey ^X show; print rea'dy'\n")
            self.read_until(terminal, rb"ready")
            os.write(terminal, line.encode() + b"\t\x18")
            return self.read_until(terminal, rb"<(.*)>").decode()
        finally:
            os.close(terminal)
            os.waitpid(process, 0)

    def read_until(self, terminal, pattern):
        text = b""
        while not re.search(pattern, text):
            self.assertTrue(select.select([terminal], [], [], 100)[0], text)
            text += os.read(terminal, 65536)
        return re.search(pattern, text)[re.compile(pattern).groups]

    def in_fish(self, line):
        script = "set PATH $argv[1] $PATH; source $argv[2]; complete -C $argv[3]"
        output = subprocess.run(["fish", "-N", "-c", script, os.path.dirname(PROGRAM),
                                 COMPLETION[:-4] + "fish", line], cwd=self.directory,
                                stdout=subprocess.PIPE, check=True).stdout.decode()
        word, = [row.split("\t")[0] for row in output.splitlines()]
        return line[:line.rindex(" ") + 1] + word

    @not_on_windows("the shells start no Windows program")
    def test_completion_in_zsh_and_fish(self):
        shells = [(name, run) for name, run in [("zsh", self.in_zsh), ("fish", self.in_fish)]
                  if shutil.which(name)]
        if not shells:
            self.skipTest("zsh or fish is needed")
        self.make("talk", container(THREE))
        self.make_recording()
        shutil.copy(COMPLETION[:-4] + "zsh", self.path("_cachefile"))
        for line, wanted in [("doc", "tor"), ("help b", "ench"), ("pack --sk", "ip-unpackable"),
                             ("info tal", "k"), ("record 7 --on-full w", "ait"),
                             ("play talk --stream 1:", "1001:2"), ("pack rec/7 --rename 4:", "7004:4")]:
            for name, complete in shells:
                with self.subTest(shell=name, line=line):
                    line_after = complete("cachefile " + line)
                    self.assertEqual(line_after.rstrip(), "cachefile " + line + wanted)


class Output(Cli):
    def test_a_closed_pipe_ends_quietly_and_hides_no_damage(self):
        self.make("big", container([(268, n, b"") for n in range(3000)] + [(256, 1, b"x" * 3000000)]))
        self.make("bad", container(THREE, cut=20))
        for exit_code, arguments in [(DONE, ["list", "big"]), (DONE, ["info", "big", "--json"]),
                                     (DONE, ["play", "big", "--stream", "1:1001:2"]),
                                     (DAMAGE, ["list", "bad"]), (DAMAGE, ["doctor", "bad"])]:
            with self.subTest(arguments), self.start(*arguments) as process:
                process.stdout.read(10 if exit_code == DONE else 0)
                process.stdout.close()
                self.assertEqual(process.stderr.read() == b"", exit_code == DONE)
                self.assertEqual(process.wait(100), exit_code)

    @not_on_windows("a signal from outside ends a process at once")
    def test_a_signal_ends_what_waits_for_its_reader(self):
        self.make("big", container([(256, 1, b"x" * 3000000)]))
        with self.start("play", "big", "--stream", "1:1001:2") as process:
            process.stdout.read(1)
            time.sleep(0.2)  # by now it is probably waiting
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(100), INTERRUPTED)

    @not_on_windows("the emulator opens what is closed")
    def test_closed_standard_files(self):
        self.make_recording()
        for exit_code, arguments in [(DONE, ["--version"]), (DONE, ["info", "rec/7"]),
                                     (DONE, ["play", "rec/7", "--stream", "4:7004:4"]),
                                     (DONE, ["record", "8", "--stream", "4:7004:4=rec/7/4_7004-4.dat"]),
                                     (FAILED, ["record", "9", "--stream", "4:7004:4=-"]),
                                     (FAILED, ["info", "missing"])]:
            for closed in (["0<&-"], [">&-"], ["2>&-"], ["0<&-", ">&-", "2>&-"]):
                if exit_code == FAILED and "0<&-" not in closed:
                    continue
                with self.subTest(arguments, closed=closed):
                    shutil.rmtree(self.path("kvr2"), ignore_errors=True)
                    ended = subprocess.run(["sh", "-c", 'exec "$@" ' + " ".join(closed), "sh", PROGRAM,
                                            *arguments], cwd=self.directory, timeout=100,
                                           stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                    self.assertEqual(ended.returncode, exit_code, ended)
                    if arguments[0] == "record" and exit_code == DONE:
                        self.assertEqual(self.read("kvr2/8/4_7004-4.dat"), THREE[2][2])

    def test_output_that_cannot_be_written_is_a_failure(self):
        self.make("good", container(THREE))
        with open("/dev/full", "wb") as full:
            _, error = self.run_tool(FAILED, "info", "good", stdout=full)
        self.assertIn("standard output", error)

    def test_progress(self):
        self.make("good", container(THREE))
        for mode, pattern in [("auto", r"^$"), ("never", r"^$"),
                              ("always", r"^\rextract .*100% of .*/s .*left.*\r$")]:
            _, error = self.run_tool(DONE, "extract", "good", "-o", "x", "--force", "--progress", mode)
            self.assertRegex(error, pattern)
        _, error = self.run_tool(DONE, "extract", "good", "-o", "x", "--force", "--progress=json")
        last = json.loads(error.splitlines()[-1])
        self.assertEqual((last["progress"], last["done"], last["total"]), ("extract", 472, 472))


class Record(Cli):
    def test_what_is_recorded_can_be_played_whatever_its_name_is(self):
        content = os.urandom(200001)
        self.make("Größe 录音 🎧", content)
        for number, mode in enumerate([[], ["--no-worker"], ["--piece", "1000"]]):
            with self.subTest(mode):
                document = self.run_json(DONE, "record", str(number), "--home", "new/ß录🎧", *mode,
                                         "--stream", "4:7004:4=Größe 录音 🎧",
                                         "--stream", "1:1001:2=-", input=content[:70000])
                self.assertEqual([(stream["stream"], stream["bytes"], stream["lost_bytes"])
                                  for stream in document["streams"]],
                                 [("4:7004:4", 200001, 0), ("1:1001:2", 70000, 0)])
                self.assertEqual(document["streams"][0]["pieces"], 201 if "--piece" in mode else 7)
                for name, data in [("4:7004:4", content), ("1:1001:2", content[:70000])]:
                    self.assertEqual(self.run_tool(DONE, "play", "new/ß录🎧/%d" % number, "--stream",
                                                   name), (data, ""))
        self.run_tool(DONE, "pack", "new/ß录🎧/0", "-o", "ß录🎧.packed", "--verify")
        self.assertEqual(self.run_json(DONE, "info", "ß录🎧.packed")["path"], "ß录🎧.packed")
        self.run_tool(DONE, "extract", "ß录🎧.packed", "-o", "out/ß录🎧")
        self.assertEqual(self.read("out/ß录🎧/4_7004-4.dat"), content)

    def test_it_writes_over_nothing(self):
        target, stream = "kvr2/7/4_7004-4.dat", "4:7004:4="
        self.make("in", b"new")
        self.make(target, b"old")
        self.run_tool(FAILED, "record", "7", "--stream", stream + "in")
        self.run_tool(FAILED, "record", "7", "--force", "--stream", stream + target)
        if not WINDOWS:  # the emulator does not pass that input on
            with open(self.path(target), "rb") as itself:
                self.run_tool(FAILED, "record", "7", "--force", "--stream", stream + "-", stdin=itself)
        self.assertEqual(self.read(target), b"old")
        self.run_tool(DONE, "record", "7", "--force", "--stream", stream + "in")
        self.assertEqual(self.read(target), b"new")
        self.make("good", container(THREE))
        self.run_tool(FAILED, "map", "good", "-o", "good", "--force")
        self.assertEqual(self.read("good"), container(THREE))

    @not_on_windows("there is no limit to the size of a file")
    def test_a_failed_stream_is_reported_with_its_reason_and_all_its_bytes(self):
        self.make("in", b"x" * 300000)
        for number, mode in enumerate([[], ["--no-worker"]]):
            output, error = self.run_tool(
                DAMAGE, "record", str(number), "--stream", "4:7004:4=in", "--stream", "1:1001:2=-", *mode,
                "--json", "--progress=json", input=b"y" * 50000,
                preexec_fn=limit_files_to(100000))
            failed, good = json.loads(output)["streams"]
            size = os.path.getsize(self.path("kvr2/%d/4_7004-4.dat" % number))
            self.assertGreater(failed["lost_bytes"], 0)
            self.assertEqual((failed["stored_bytes"], failed["bytes"]), (size, failed["taken_bytes"]))
            self.assertEqual(failed["stored_bytes"] + failed["lost_bytes"], failed["taken_bytes"])
            self.assertEqual(failed["taken_bytes"] + failed["unread_bytes"], 300000)
            self.assertEqual((good["taken_bytes"], good["stored_bytes"], good["lost_bytes"],
                              good["unread_bytes"], good["error"]), (50000, 50000, 0, None, None))
            reason = "the file operation failed (CACHE_ERR_FAILED): File too large"
            self.assertEqual(failed["error"], reason)
            said = "recording 4:7004:4 failed: " + reason
            self.assertEqual(error.count("cachefile: " + said + "\n"), 1)
            *_, last, failure = [json.loads(line) for line in error.splitlines() if line[0] == "{"]
            self.assertEqual((last["failed_streams"], last["lost_bytes"]), (1, failed["lost_bytes"]))
            self.assertEqual((failure["message"], failure["exit"]), (said, DAMAGE))

    @not_on_windows("there is no limit to the size of a file, and no FIFO")
    def test_a_stream_that_waits_holds_up_neither_the_others_nor_a_report(self):
        os.mkfifo(self.path("fifo"))
        self.make("large", b"x" * 200000)
        self.make("small", b"y" * 90000)
        for number, mode in enumerate([[], ["--no-worker"]]):
            process = self.start(
                "record", str(number), "--stream", "4:7004:4=fifo", "--stream", "1:1001:2=large",
                "--stream", "3:3003:2=small", *mode, preexec_fn=limit_files_to(100000))
            small = self.path("kvr2/%d/3_3003-2.dat" % number)
            while not (os.path.exists(small) and os.path.getsize(small) == 90000):
                self.assertIsNone(process.poll())
            with open(self.path("fifo"), "wb") as fifo:
                self.assertTrue(select.select([process.stderr], [], [], 30)[0])
                self.assertIn(b"recording 1:1001:2 failed: ", process.stderr.readline())
                fifo.write(b"later")
            self.assertEqual(process.communicate(timeout=100)[1], b"")
            self.assertEqual(self.read("kvr2/%d/4_7004-4.dat" % number), b"later")

    def test_one_recorder_at_a_time(self):
        self.make("in", b"new")
        first = self.start("record", "7", "--stream", "4:7004:4=-")
        first.stdin.write(b"first")
        first.stdin.flush()
        while not os.path.exists(self.path("kvr2/7/4_7004-4.dat")):
            self.assertIsNone(first.poll())
        for options in [["4:7004:4=in"], ["4:7004:4=in", "--force"], ["1:1001:2=in", "--force"]]:
            _, error = self.run_tool(FAILED, "record", "7", "--stream", *options)
            self.assertRegex(error, "another process is recording|already exists")
        self.assertEqual(self.run_json(DONE, "info", "kvr2/7")["reachable_streams"], 1)
        self.assertIn("is being recorded", self.run_tool(DONE, "pack", "kvr2/7", "-o", "packed")[1])
        first.kill()
        first.communicate()
        self.assertTrue(os.path.exists(self.path("kvr2/7/recording.lock")))
        self.run_tool(DONE, "record", "7", "--force", "--stream", "4:7004:4=in")
        self.assertEqual(self.read("kvr2/7/4_7004-4.dat"), b"new")
        os.remove(self.path("kvr2/7/recording.lock"))
        if WINDOWS:
            return
        os.symlink("recording.lock", self.path("kvr2/7/recording.lock"))  # opening it fails too
        _, error = self.run_tool(DONE, "record", "7", "--force", "--stream", "4:7004:4=in")
        self.assertIn("cannot be locked", error)

    def test_of_recorders_that_start_together_one_wins(self):
        blocks = [bytes([letter]) * 300000 for letter in b"abc"]
        for letter, block in zip("abc", blocks):
            self.make(letter, block)
        for number in map(str, range(8)):
            processes = [self.start("record", number, "--stream", "4:7004:4=" + letter)
                         for letter in "abc"]
            for process in processes:
                process.communicate(timeout=100)
            codes = [process.returncode for process in processes]
            self.assertEqual(sorted(codes), [DONE, FAILED, FAILED])
            self.assertEqual(self.read("kvr2/%s/4_7004-4.dat" % number), blocks[codes.index(DONE)])

    @not_on_windows("there is no file that can be opened and not read")
    def test_a_failed_input_leaves_no_empty_record_file(self):
        self.make("kvr2/7/2_2002-3.dat", b"old")
        for source, left in [(".", "old"), ("/proc/self/mem", "")]:
            for stream in ["4:7004:4", "2:2002:3"]:
                _, error = self.run_tool(FAILED, "record", "7", "--force", "--stream", stream + "=" + source,
                                         "--json")
                self.assertIn(source, json.loads(error.splitlines()[-1])["message"])
            self.assertEqual(self.read("kvr2/7/2_2002-3.dat").decode(), left)
            self.assertFalse(os.path.exists(self.path("kvr2/7/4_7004-4.dat")))

    def test_what_cannot_be_packed_later_is_warned_of(self):
        self.make("in", b"x" * 100)
        _, error = self.run_tool(DONE, "record", "7", "--stream", "4:7004:2=in", "--stream", "4:7004:4=in")
        self.assertEqual(error.splitlines(), ["cachefile: 4:7004:2 cannot be packed later: no container "
                                              "tag has its type, kind and id"])

    def test_a_signal_ends_it_with_everything_written(self):
        cases = [(signal.SIGINT, []), (signal.SIGTERM, []), (signal.SIGTERM, ["--no-worker"])]
        if WINDOWS:  # which has only Ctrl-C
            cases = [(signal.SIGINT, []), (signal.SIGINT, ["--no-worker"])]
        for number, (which, mode) in enumerate(cases):
            with self.subTest(which, mode=mode):
                if not WINDOWS:
                    os.mkfifo(self.path("fifo%d" % number))
                    mode = ["--stream", "1:1001:2=fifo%d" % number, *mode]
                process = self.start("record", str(number), "--stream", "4:7004:4=-",
                                     "--progress=json", "--json", *mode)
                process.stdin.write(b"z" * 50000)
                process.stdin.flush()
                # It reports progress at most 10 times a second, when input arrives.
                taken, sent = 0, 50000
                while taken < 50000:
                    if select.select([process.stderr], [], [], 0.2)[0]:
                        taken = json.loads(process.stderr.readline())["done"]
                    else:
                        process.stdin.write(b"z")
                        process.stdin.flush()
                        sent += 1
                process.send_signal(which)
                while WINDOWS and process.poll() is None:  # it ends only after more input
                    with contextlib.suppress(BrokenPipeError):
                        process.stdin.write(b"z")
                        process.stdin.flush()
                        sent += 1
                    time.sleep(0.02)
                output, _ = process.stdout.read(), process.stderr.read()
                self.assertEqual(process.wait(100), INTERRUPTED)
                with contextlib.suppress(BrokenPipeError):
                    process.stdin.close()
                for pipe in (process.stdout, process.stderr):
                    pipe.close()
                document = json.loads(output)
                self.assertTrue(document["interrupted"])
                accepted = document["streams"][0]["bytes"]
                self.assertTrue(50000 <= accepted <= sent)
                self.assertEqual(self.read("kvr2/%d/4_7004-4.dat" % number), b"z" * accepted)
                self.assertEqual(document["streams"][0]["lost_bytes"], 0)


class Show(Cli):
    def test_info_and_list_of_directory_and_container(self):
        self.make_recording()
        self.make("rec/7/notes.txt", b"")
        self.run_tool(DONE, "pack", "rec/7", "-o", "packed")
        directory, packed = self.run_json(DONE, "info", "rec/7"), self.run_json(DONE, "info", "packed")
        for document in (directory, packed):
            self.assertEqual((document["file_version"], document["cb_time_stamp"]), (3, 1234567))
            self.assertEqual([(stream["stream"], stream["tag"], stream["extent"])
                              for stream in document["streams"]],
                             [("1:1001:2", 256, 100), ("4:7004:4", 268, 300), ("100:100:2", 274, 72)])
        self.assertEqual((directory["kind"], directory["index_type"]), ("directory", None))
        self.assertEqual((packed["kind"], packed["index_type"], packed["entry_count"],
                          packed["size"], packed["declared_size"]), ("container", 0, 3, 592, 592))
        self.assertEqual(self.run_json(DONE, "list", "packed")["streams"], packed["streams"])
        if not WINDOWS:  # a process cannot replace its list of temporary directories there
            there = {**os.environ, "TMPDIR": self.path("rec")}
            piped = self.run_json(DONE, "info", "-", input=self.read("packed"), env=there)
            self.assertEqual(piped, {**packed, "path": "-"})
            self.run_tool(FAILED, "list", "-", input=b"no container, but longer than a header", env=there)
            self.assertEqual(os.listdir(self.path("rec")), ["7"])
        os.remove(self.path("rec/7/100_100-2.dat"))
        self.assertIsNone(self.run_json(DONE, "info", "rec/7")["cb_time_stamp"])
        lines = self.run_tool(DONE, "list", "packed")[0].decode().splitlines()
        self.assertEqual(lines[1].split(),
                         ["1", "1:1001:2", "256", "0x0100", "0", "120", "100", "reachable"])

    def test_info_lists_the_recordings_of_a_directory(self):
        self.make_recording()
        self.make("rec/12/4_7004-4.dat", b"12")
        self.make("rec/08/4_7004-4.dat", b"not a number of a recording")
        self.make("rec/notes/4_7004-4.dat", b"")
        self.make("rec/9", b"a file")
        document = self.run_json(DONE, "info", "rec")
        self.assertEqual({**document, "schema": "cachefile.list"}, self.run_json(DONE, "list", "rec"))
        self.assertEqual(document["kind"], "recordings")
        self.assertEqual(document["recordings"], [
            {"record_id": 7, "path": "rec/7", "streams": 3, "size": 472, "state": "unknown"},
            {"record_id": 12, "path": "rec/12", "streams": 1, "size": 2, "state": "unknown"}])
        lines = self.run_tool(DONE, "info", "rec")[0].decode().splitlines()
        self.assertEqual([line.split() for line in lines[-2:]], [["rec/7", "3", "472", "unknown"], ["rec/12", "1", "2", "unknown"]])
        os.mkdir(self.path("rec/7/8_8-2.dat"))
        output, error = self.run_tool(DONE, "list", "rec/7")
        self.assertNotIn(b"8:8:2", output)
        self.assertEqual(error.splitlines(), [
            "cachefile: rec/7/8_8-2.dat is named like a record file, but is not a file"])
        self.assertEqual(self.run_json(DONE, "info", "rec/7")["not_files"], ["8_8-2.dat"])

    def test_what_a_list_says_of_a_damaged_container(self):
        streams = THREE[:2] + [(262, 0, b"?"), (256, 1, b"hidden"), (268, 7, b"x" * 50)]
        self.make("bad", container(streams, cut=20))
        rows = self.run_json(DAMAGE, "list", "bad")["streams"]
        self.assertEqual([(row["stream"], row["reachable"], row["hidden_by"]) for row in rows],
                         [("1:1001:2", True, None), ("100:100:2", True, None), (None, False, None),
                          ("1:1001:2", False, 1), ("4:7004:4", True, None)])
        self.assertEqual((rows[4]["extent"], rows[4]["present"]), (50, 30))

        conf_first = [THREE[1], THREE[0], THREE[2]]
        self.make("bad", container(conf_first, entries={0: {"offset": 0xFFFFFF00}}))
        rows = self.run_json(DAMAGE, "list", "bad")["streams"]
        self.assertEqual([row["reachable"] for row in rows], [False, False, False])
        _, error = self.run_tool(FAILED, "play", "bad", "--stream", "1:1001:2")
        self.assertIn("after a cut-off header", error)
        _, error = self.run_tool(DAMAGE, "extract", "bad", "-o", "out")
        self.assertEqual(self.read("out/1_1001-2.dat"), THREE[0][2])

    def test_doctor_names_fault_and_offset(self):
        for name, (content, wanted) in DAMAGED.items():
            with self.subTest(name):
                self.make("bad", content)
                found = self.run_json(DAMAGE, "doctor", "bad")["findings"]
                self.assertEqual([(finding["code"], finding["offset"]) for finding in found], wanted)
                output, error = self.run_tool(DAMAGE, "doctor", "bad")
                text = output.decode()
                self.assertRegex(error, r"^cachefile: bad: \d+ (error|warning)s?(, \d+ warnings?)?\r?\n$")
                self.assertEqual(text, "".join("{severity} {code} {offset} {message}\n".format(**finding)
                                               for finding in found))
                self.assertEqual(self.read("bad"), content)
        for index_type in (0, 1):
            self.make("good", container(THREE + [(269, 1, b""), (269, 2, b"")], index_type))
            self.assertEqual(self.run_tool(DONE, "doctor", "good")[0], b"")

    def test_doctor_folds_repeats_of_a_code(self):
        self.make("bad", container([(262, 0, b"")] * 1001))
        for count, lines in (1000, 1000), (1001, 1001):
            self.make("bad", container([(262, 0, b"")] * count))
            for arguments in ["sums", "bad"], ["extract", "bad", "-o", "out"]:
                error = self.run_tool(DAMAGE, *arguments)[1].splitlines()
                self.assertEqual(len(error), lines)
            self.assertEqual("cachefile: and 1 more warnings" in error, count > 1000)
        self.make("bad", container([(262, 0, b"")] * 250))
        found = self.run_json(DAMAGE, "doctor", "bad")
        self.assertEqual((len(found["findings"]), found["errors"], found["warnings"]), (100, 0, 250))
        self.assertEqual(found["totals"], [{"severity": "warning", "code": "unknown-tag",
                                            "count": 250, "folded": 150}])
        output, error = self.run_tool(DAMAGE, "doctor", "bad")
        self.assertEqual(len(output.splitlines()), 101)
        self.assertIn(b"\nwarning unknown-tag 3224 and 150 more", output)
        self.assertIn("250 warnings", error)
        self.assertEqual(len(self.run_tool(DAMAGE, "doctor", "bad", "--all")[0].splitlines()), 250)
        self.assertEqual(len(self.run_json(DAMAGE, "doctor", "bad", "--all")["findings"]), 250)

    @not_on_windows("there is no limit to the memory of a process")
    def test_a_million_entries_are_shown_in_little_memory(self):
        size = 200 << 20

        def limit():
            resource.setrlimit(resource.RLIMIT_DATA, (size, size))

        count = 1048577
        with open(self.path("big"), "wb") as file:
            file.write(struct.pack("<6I", 0, 0, 24 + 32 * count, 0, count, 0))
            file.write(struct.pack("<HHIIIIIII", 262, 0, 0, 0, 0, 24 + 32 * count, 0, 0, 0) * count)
        options = {} if SANITIZED else {"preexec_fn": limit}
        # Takes seconds; but without optimisation and on a busy machine, minutes.
        options["timeout"] = 1000
        for arguments in ([], ["--json"]):
            self.run_tool(DONE, "info", "big", *arguments, stdout=subprocess.DEVNULL, **options)
        size = 384 << 20  # for a million findings too
        output, error = self.run_tool(DAMAGE, "doctor", "big", "--all", **options)
        self.assertEqual(output.count(b"\n"), 1000001)
        self.assertIn(b"and 48,577 more from here on\n", output[-100:])
        self.assertIn("1,048,577 warnings", error)
        size = 512 << 20
        self.run_tool(FAILED, "recover", "big", "-o", "new", **options)

    def test_map(self):
        self.make("good", container([(256, 1, b"a" * 1000), (257, 1, b"b" * 1000)], header={8: 2588}))
        bar, _, _, *lines = self.run_tool(DAMAGE, "map", "good")[0].decode().splitlines()
        self.assertRegex(bar, r"^.{2,4}s+S+x+$")
        self.assertEqual([line.split()[:4] for line in lines],
                         [["H", "0", "24", "header"], ["I", "24", "64", "index"],
                          ["s", "88", "1000", "stream"], ["S", "1088", "1000", "stream"],
                          ["x", "2088", "500", "missing"]])
        self.run_tool(DAMAGE, "map", "good", "-o", "map.svg")
        parts = [rect.get("class").split()[-1] for rect in
                 xml.etree.ElementTree.parse(self.path("map.svg")).getroot().findall("{*}rect")]
        bar = ["header", "index", "stream1", "stream2", "missing"]
        self.assertEqual(parts, ["paper", *bar, *bar])  # the bar and its legend
        noted = {"stream": "1:1001:2", "samples": {"bytes": [1, 2]}, "holes": "</script>"}
        self.make("good.recording.json", json.dumps(
            {"schema": "cachefile.recording", "version": 1, "state": "open", "streams": [noted]}).encode())
        self.run_tool(DAMAGE, "map", "good", "-o", "map.html")
        data = re.search(r"= ({facts:.*?});\n", self.read("map.html").decode(), re.S).group(1)
        data = json.loads(re.sub(r"^({?)(\w+): ", r'\1"\2": ', data, flags=re.M))
        self.assertEqual([region[1:3] for region in data["regions"]],
                         [[int(line.split()[1]), sum(map(int, line.split()[1:3]))] for line in lines])
        self.assertEqual(data["noted"], [{**noted, "all_holes": None, "lost_bytes": None}])
        self.assertEqual([finding[1] for finding in data["findings"]], ["file-too-short", "longer-than-noted"])
        regions = self.run_json(DAMAGE, "map", "good")["regions"]
        self.assertEqual([[str(region["offset"]), str(region["bytes"]), region["kind"]]
                          for region in regions], [line.split()[1:4] for line in lines])
        self.assertEqual((regions[3]["entry"], regions[3]["stream"]), (2, "3:1003:2"))
        self.run_tool(FAILED, "map", "good", "-o", "map.svg")
        self.run_tool(DAMAGE, "map", "good", "-o", "map.svg", "--force")
        count = 262143  # and header and index
        self.make("many", struct.pack("<6I", 0, 0, 24 + 33 * count, 0, count, 0) +
                  b"".join(entry(268, n, 24 + 32 * count + n) for n in range(count)) + b"x" * count)
        _, error = self.run_tool(FAILED, "map", "many", "-o", "many.html")
        self.assertIn("at most 262,144 parts, but many has 262,145", error)
        self.make("many", container([(268, n, b"x" * (n % 7 * 40)) for n in range(5000)]))
        self.run_tool(DONE, "map", "many", "-o", "many.svg")
        self.assertLess(len(self.read("many.svg")), 200000)


class Pack(Cli):
    def test_recordings_are_merged_under_other_names(self):
        for directory in "ab":
            self.make(directory + "/4_7004-4.dat", directory.encode())
            self.make(directory + "/100_100-2.dat", CONF)
        pack = ["pack", "a", "b", "-o", "packed", "--verify", "--force"]
        for options, streams, warnings in [
                (["--renumber"], {"4:7004:4": b"a", "4:8004:4": b"b", "100:100:2": CONF}, 1),
                (["--stream", "4:7004:4", "--rename", "b/4:7004:4=4:4:4"],
                 {"4:7004:4": b"a", "4:4:4": b"b"}, 0)]:
            error = self.run_tool(DONE, *pack, *options)[1]
            self.assertEqual(len(error.splitlines()), warnings)
            names = self.run_tool(DONE, "list", "packed", "--names")[0].decode().split()
            self.assertEqual({name: self.run_tool(DONE, "play", "packed", "--stream", name)[0]
                              for name in names}, streams)
        for wrong in ([], ["--renumber", "--rename", "c/4:7004:4=4:4:4"],
                      ["--renumber", "--rename", "4:7004:4=4:5:4"]):
            self.run_tool(FAILED, *pack, *wrong)

    def test_verification_finds_a_source_that_changes(self):
        self.make("changing/4_7004-4.dat", bytes(4_000_000))
        ended = threading.Event()

        def change():
            with open(self.path("changing/4_7004-4.dat"), "r+b", buffering=0) as file:
                for n in itertools.cycle(range(256)):
                    os.pwrite(file.fileno(), bytes([n]) * 4_000_000, 0)
                    if ended.is_set():
                        return

        thread = threading.Thread(target=change)
        thread.start()
        try:
            _, error = self.run_tool(FAILED, "pack", "changing", "-o", "packed", "--verify")
        finally:
            ended.set()
            thread.join()
        self.assertIn("differs from its file; nothing was written", error)
        self.assertEqual(os.listdir(self.directory), ["changing"])

    def test_there_and_back(self):
        self.make_recording()
        self.make("more/20_5020-1.dat", b"")
        for index_type in ("0", "1"):
            self.run_tool(DONE, "pack", "rec/7", "more", "-o", "packed", "--index", index_type,
                          "--verify", "--force")
            output, _ = self.run_tool(DONE, "extract", "packed", "-o", "out", "--force")
            self.assertEqual(len(output.splitlines()), 5)
            for name in os.listdir(self.path("rec/7")):
                self.assertEqual(self.read("out/" + name), self.read("rec/7/" + name))
            self.assertEqual(self.read("out/20_5020-1.dat"), b"")
        self.run_tool(DONE, "extract", "packed", "-o", "one", "--stream", "4:7004:4")
        self.assertEqual(os.listdir(self.path("one")), ["4_7004-4.dat"])
        for part, wanted in [(["--offset", "72"], b""), (["--offset", "70", "--length", "9"], CONF[70:]),
                             (["--length", "12"], CONF[:12]), (["--length", "0"], b"")]:
            output, _ = self.run_tool(DONE, "play", "packed", "--stream", "100:100:2", *part)
            self.assertEqual(output, wanted)

    @not_on_windows("there are no sparse files and no files whose size is not true")
    def test_a_failed_pack_names_file_and_reason(self):
        os.makedirs(self.path("a"))
        os.symlink("/sys/devices/system/cpu/online", self.path("a/1_1001-2.dat"))
        os.makedirs(self.path("b"))
        os.symlink("/proc/self/cmdline", self.path("b/1_1001-2.dat"))
        for size, name in [(3, "c/4_7004-4.dat"), (3, "c/4_8004-4.dat"), (4, "d/4_7004-4.dat")]:
            self.make_sparse(name, size << 30)
        self.make("e/4_7004-2.dat", b"")
        self.make("f/100_100-2.dat", CONF[:71])
        self.make("big/4_7004-4.dat", b"x" * 5000)
        for directory, text in [
                ("a", "a/1_1001-2.dat: it has become shorter while it was packed ("),
                ("b", "b/1_1001-2.dat: it has grown while it was packed ("),
                ("c", "c/4_8004-4.dat: with it the container would be larger than 4 GiB - 1 bytes ("),
                ("d", "4:7004:4 of d: it is larger than 4 GiB - 1 bytes ("),
                ("e", "4:7004:2 of e: no container tag has its type, kind and id ("),
                ("f", "100:100:2 of f: it is shorter than the 72 bytes of its header ("),
                ("big", "the container: it could not be written: File too large (CACHE_ERR_FAILED)")]:
            _, error = self.run_tool(FAILED, "pack", directory, "-o", "new", preexec_fn=limit_files_to(1000))
            self.assertRegex(error, "^cachefile: cannot pack " + re.escape(text))
            self.assertFalse([name for name in os.listdir(self.directory) if name.startswith("new")])
        self.make("good", container([(268, 7, b"x" * 5000)]))
        self.run_tool(FAILED, "extract", "good", "-o", "out", preexec_fn=limit_files_to(1000))
        self.assertEqual(os.listdir(self.path("out")), [])

    @not_on_windows("there are no sparse files")
    def test_a_stream_above_4_gib_is_warned_of(self):
        self.make_sparse("rec/4_7004-4.dat", (4 << 30) + 10)
        warning = "4:7004:4 is larger than 4 GiB"
        self.assertIn(warning, self.run_tool(DONE, "list", "rec")[1])
        self.assertFalse(self.run_json(DONE, "info", "rec")["streams"][0]["packable"])
        for offset, length, exit_code, wanted in [(4294967290, 6, DONE, 6), (4294967290, 7, FAILED, 6),
                                                  (0, 1, DONE, 1), (4294967296, 1, FAILED, 0)]:
            output, error = self.run_tool(exit_code, "play", "rec", "--stream", "4:7004:4", "--offset",
                                          str(offset), "--length", str(length))
            self.assertEqual(output, bytes(wanted))
            self.assertIn(warning, error)
        _, error = self.run_tool(DAMAGE, "record", "7", "--stream", "4:7004:4=rec/4_7004-4.dat",
                                 preexec_fn=limit_files_to(1000))
        self.assertIn(warning, error)

    def test_pack_leaves_out_what_is_not_wanted_or_not_packable(self):
        self.make_recording()
        self.make("rec/7/4_7004-2.dat", b"?")
        self.make("more/4_7004-4.dat", b"?")
        conf, text, voice = "100:100:2", "1:1001:2", "4:7004:4"
        for options, exit_code, wanted, said in [
                (["rec/7"], FAILED, [], "cannot pack 4:7004:2 of rec/7"),
                (["rec/7", "--skip-unpackable"], DONE, [text, voice, conf], "4:7004:2 of rec/7 is left out"),
                (["rec/7", "--stream", voice, "--stream", conf], DONE, [voice, conf], ""),
                (["rec/7", "--stream", "4:7004:2"], FAILED, [], "cannot pack 4:7004:2"),
                (["rec/7", "--stream", "4:7004:2", "--skip-unpackable"], FAILED, [], "no record file"),
                (["rec/7", "--stream", "9:9:9"], FAILED, [], "no record file of the stream 9:9:9"),
                (["rec/7", "more", "--stream", voice], FAILED, [], "is in rec/7 and in more"),
                (["rec/7", "more", "--stream", text], DONE, [text], "")]:
            with self.subTest(options):
                output, error = self.run_tool(exit_code, "pack", *options, "-o", "new", "--json", "--force")
                rows = json.loads(output)["streams"] if output else []
                self.assertEqual([row["stream"] for row in rows], wanted)
                self.assertIn(said, error)
                self.assertEqual(bool(said), bool(error))

    def test_pack_as_json_with_version_and_time_stamp(self):
        self.make_recording()
        for options, wanted in [([], (3, 1234567)), (["--version", "9"], (9, 1234567)),
                                (["--timestamp", "8"], (3, 8)),
                                (["--version", "1", "--timestamp", "2"], (1, 2))]:
            packed = self.run_json(DONE, "pack", "rec/7", "-o", "packed", "--force", "--verify", *options)
            self.assertEqual((packed["output"], packed["bytes"], packed["verified"]), ("packed", 472, True))
            self.assertEqual({row["stream"]: row["bytes"] for row in packed["streams"]},
                             {"1:1001:2": 100, "4:7004:4": 300, "100:100:2": 72})
            shown = self.run_json(DONE, "info", "packed")
            self.assertEqual((shown["file_version"], shown["cb_time_stamp"]), wanted)

    def test_what_it_refuses_leaves_nothing(self):
        self.make_recording()
        self.make("old", b"old")
        before = sorted(os.listdir(self.directory))
        for options in ["old"], ["rec/7/4_7004-4.dat", "--force"], ["no/new"], ["rec", "--force"]:
            self.run_tool(FAILED, "pack", "rec/7", "-o", *options)
            self.assertEqual(sorted(os.listdir(self.directory)), before)
            self.assertEqual(sorted(os.listdir(self.path("rec/7"))),
                             ["100_100-2.dat", "1_1001-2.dat", "4_7004-4.dat"])
        self.assertEqual(self.read("old"), b"old")
        self.assertEqual(self.read("rec/7/4_7004-4.dat"), THREE[2][2])

    def make_sparse(self, name, size):
        self.make(name, b"")
        os.truncate(self.path(name), size)

    @not_on_windows("another process cannot lock a file in this way")
    def test_partial_files_of_dead_writers_are_removed_and_no_others(self):
        self.make_recording()
        self.run_tool(DONE, "pack", "rec/7", "-o", "good")
        for directory, name, arguments in [(".", "made", ["pack", "rec/7", "-o", "made"]),
                                           (".", "made", ["map", "good", "-o", "made"]),
                                           ("out", "1_1001-2.dat", ["extract", "good", "-o", "out"])]:
            others = [name + ".8.partial", name + ".8.partial.new", name + ".partial", "x.9.partial",
                      name + ".9.partial.old", name + ".9.9.partial"]
            for other in [name + ".9.partial", name + ".9-2.partial.new", name + ".9.partial.new",
                          name + ".9.partial.new.partial", *others]:
                self.make(os.path.join(directory, other), b"")
            with open(self.path(os.path.join(directory, others[0]))) as locked:
                fcntl.flock(locked, fcntl.LOCK_EX)
                self.run_tool(DONE, *arguments, "--force")
            left = [file for file in os.listdir(self.path(directory)) if "partial" in file]
            self.assertEqual(sorted(left), sorted(others), arguments)

    @not_on_windows("a signal from outside ends a process at once")
    def test_an_interrupted_pack_removes_its_own_files_and_says_so(self):
        self.make_recording()
        self.make_sparse("big/4_7004-4.dat", 1 << 30)
        first = self.start("pack", "big", "-o", "packed")
        while not any(name.endswith(".new.partial") for name in os.listdir(self.directory)):
            self.assertIsNone(first.poll())
        first.send_signal(signal.SIGSTOP)
        before = set(os.listdir(self.directory))
        self.make("packed.partial", b"another's")
        self.run_tool(DONE, "pack", "rec/7", "-o", "packed")
        self.assertEqual(set(os.listdir(self.directory)) - before, {"packed", "packed.partial"})
        first.send_signal(signal.SIGINT)
        first.send_signal(signal.SIGCONT)
        _, error = first.communicate(timeout=100)
        self.assertEqual((first.returncode, error), (INTERRUPTED, b"cachefile: interrupted\n"))
        self.assertEqual(sorted(os.listdir(self.directory)), ["big", "packed", "packed.partial", "rec"])

    @unittest.skipIf(WINDOWS or not shutil.which("strace"), "strace is needed")
    def test_what_gets_its_name_has_reached_the_disk(self):
        self.make_recording()
        for name, arguments in [("made", ["pack", "rec/7", "-o", "made"]),
                                ("out/4_7004-4.dat", ["extract", "made", "-o", "out"]),
                                ("map.svg", ["map", "made", "-o", "map.svg"])]:
            calls = subprocess.run(
                ["strace", "-fy", "-e", "trace=write,fsync,/^(link|rename)", PROGRAM, *arguments],
                cwd=self.directory, stdout=subprocess.PIPE, stderr=subprocess.PIPE).stderr.decode()
            place = r"(?:AT_FDCWD(?:<[^>]*>)?, )?"  # some machines have only the calls that name a directory
            named = list(re.finditer(r'(?:link|rename)\w*\(%s"[^"]*", %s"%s"(?:, \w+)?\) += 0' % (
                place, place, name), calls))
            self.assertEqual(len(named), 1, calls)
            before = calls[:named[0].start()]
            # The last operation on the bytes before the rename must be a sync.
            touched = re.findall(r"(write|fsync)\(\d+<[^>]*/%s\.\d+\.partial" % name, before)
            self.assertEqual((touched[-1], "write" in touched), ("fsync", True), calls)

    def test_extract_takes_what_a_damaged_container_still_has(self):
        self.make("bad", container(THREE, cut=301))
        rows = self.run_json(DAMAGE, "extract", "bad", "-o", "out")["streams"]
        self.assertEqual([(row["file"], row["bytes"], row["missing_bytes"]) for row in rows],
                         [("1_1001-2.dat", 100, 0), ("100_100-2.dat", 71, 1), (None, 0, 300)])
        self.assertEqual(sorted(self.files("out")), ["out/100_100-2.dat", "out/1_1001-2.dat"])
        self.make("hidden", DAMAGED["same stream twice"][0])
        _, error = self.run_tool(DAMAGE, "extract", "hidden", "-o", "hidden.out")
        self.assertIn("entry 4 is left out", error)
        self.run_tool(FAILED, "extract", "hidden", "-o", "hidden.out")  # it is there already
        same = {"offset": 24 + 9 * 32, "length": 1000}
        self.make("bomb", container([(268, n, b"x" * 1000 * (n == 0)) for n in range(9)],
                                    entries={n: same for n in range(9)}))
        _, error = self.run_tool(FAILED, "extract", "bomb", "-o", "bomb.out")
        self.assertIn("together they have 9,000 bytes", error)
        self.run_tool(FAILED, "sums", "bomb")
        self.assertEqual(len(self.run_tool(DONE, "sums", "bomb", "--allow-overlap")[0].splitlines()), 9)
        self.assertFalse(os.path.exists(self.path("bomb.out")))
        self.run_tool(DONE, "extract", "bomb", "-o", "bomb.out", "--allow-overlap")


class Sums(Cli):
    # The checksums of THREE's streams, made with xxh128sum.
    KNOWN = {"1_1001-2.dat": "7d09cdccbc6bead248fb02115fe96a8a",
             "100_100-2.dat": "402881b5c94f2d943d8cd125864d76c8",
             "4_7004-4.dat": "6de12b6a3b1ec2ce8e1895d72b62739e"}

    @classmethod
    def known(cls, as_json):
        if as_json:
            streams = [{"stream": re.sub("[_-]", ":", name[:-4]), "xxh3_128": value, "new": []}
                       for name, value in cls.KNOWN.items()]
            return json.dumps({"schema": "cachefile.recording", "version": 1, "state": "closed",
                               "streams": streams, "new": []}).encode()
        return "".join("%s  %s\n" % (value, name) for name, value in cls.KNOWN.items()).encode()

    def test_sums_are_those_of_common_tools_and_find_a_changed_byte(self):
        self.make_recording()
        good = container(THREE)
        self.make("good", good)
        self.make("lines", self.known(False))
        for path in "good", "rec/7":
            lines = self.run_tool(DONE, "sums", path)[0].splitlines()
            self.assertEqual(sorted(lines), sorted(self.known(False).splitlines()))
        self.make("good.recording.json", self.known(True))
        changed = {"none": good, "a byte": good[:125] + b"b" + good[126:], "cut": good[:300],
                   "gone": container(THREE[:2]), "more": container(THREE + [(269, 7, b"")])}
        for name, wanted in [("none", "vvv"), ("a byte", "dvv"), ("cut", "vvd"), ("gone", "vvm"),
                             ("more", "vvvn")]:
            self.make("good", changed[name])
            exit_code = DONE if name in ("none", "more") else DAMAGE
            for known in [], ["--known", "lines"]:
                rows = self.run_json(exit_code, "sums", "good", "--check", *known)["streams"]
                self.assertEqual("".join(row["result"][0] for row in rows), wanted, name)

    def test_what_has_no_checksums_is_refused(self):
        self.make("good", container(THREE))
        self.run_tool(FAILED, "sums", "good", "--check")
        for text in b"", b"{", b"[" * 100000, b"\xff" * 99, b'{"streams": 7}', b'{"streams": []}':
            self.make("known", text)
            self.run_tool(FAILED, "sums", "good", "--check", "--known", "known")
        self.run_tool(FAILED, "sums", "good", "--check", "--known", ".")


class Recover(Cli):
    def recover(self, exit_code, content, *options):
        """Returns {stream: (state, found by, bytes of its file)}."""
        self.make("bad", content)
        shutil.rmtree(self.path("new"), ignore_errors=True)
        rows = self.run_json(exit_code, "recover", "bad", "-o", "new", *options)["streams"]
        self.assertEqual(sorted(os.listdir(self.path("new"))),
                         sorted([*(r["file"] for r in rows if r["file"]), "recording.json"]))
        return {row["stream"]: (row["state"], row["found_by"],
                                row["file"] and self.read("new/" + row["file"])) for row in rows}

    def test_what_each_kind_of_damage_leaves(self):
        for content, exit_code, finder, sizes in [
                (container(THREE), DONE, "index", (100, 72, 300)),
                (container(THREE, count=1), DONE, "search", (100, 72, 300)),
                (container(THREE, header={8: 0, 20: 9}), DONE, "search", (100, 72, 300)),
                (container(THREE, 1, entries={0: {"next": 0xFFFFFF00}}), DONE, "search", (100, 72, 300)),
                (container(THREE, count=9), DAMAGE, "index", (100, 72, 300)),
                (container(THREE, cut=10), DAMAGE, "index", (100, 72, 290)),
                (container(THREE, cut=301), DAMAGE, "index", (100, 71, None))]:
            found = self.recover(exit_code, content)
            self.assertEqual(found["4:7004:4"][1], finder)
            self.assertEqual(tuple(file and len(file) for _, _, file in
                                   (found["1:1001:2"], found["100:100:2"], found["4:7004:4"])), sizes)

    def test_checksums_verify_and_find_streams(self):
        good = container(THREE)
        self.make("good", good)
        self.make("known", self.run_tool(DONE, "sums", "good", "--json")[0])
        for name, content, exit_code, wanted in [
                ("whole", good, DONE, ("verified", "index", THREE[0][2])),
                ("entry lost", good[:24] + bytes(32) + good[56:], DONE,
                 ("verified", "checksum", THREE[0][2])),
                ("two entries lost", good[:24] + bytes(64) + good[88:], DONE,
                 ("verified", "checksum", THREE[0][2])),
                ("wrong name", container([(256, 2, THREE[0][2]), *THREE[1:]]), DONE,
                 ("verified", "checksum", THREE[0][2])),
                ("byte", good[:130] + b"b" + good[131:], DAMAGE,
                 ("damaged", "index", good[120:130] + b"b" + good[131:220]))]:
            found = self.recover(exit_code, content, "--known", "known")
            self.assertEqual(found["1:1001:2"], wanted, name)

    def test_two_streams_of_a_name_and_the_container_form(self):
        self.make("bad", DAMAGED["same stream twice"][0])
        self.run_tool(DAMAGE, "recover", "bad", "-o", "new")
        self.assertEqual((self.read("new/4_7004-4.dat"), self.read("new/4_7004-4.dat.2")),
                         (THREE[2][2], b"d"))
        self.run_tool(DAMAGE, "recover", "bad", "-o", "packed", "--container")
        self.assertEqual(self.run_tool(DONE, "doctor", "packed")[0], b"")
        os.remove(self.path("packed"))
        self.run_tool(FAILED, "recover", "bad", "-o", "packed", "--container")  # its notes exist
        os.rename(self.path("packed.recording.json"), self.path("old.recording.json"))
        self.run_tool(DAMAGE, "recover", "bad", "-o", "packed", "--container")
        self.assertEqual(self.run_tool(DONE, "play", "packed", "--stream", "4:7004:4")[0], THREE[2][2])

    def test_it_overwrites_nothing_and_leaves_nothing_behind(self):
        self.make("bad", container(THREE, cut=10))
        self.make("lost", container(THREE)[:24])
        self.make("old", b"old")
        before = sorted(os.listdir(self.directory))
        for arguments in ["bad", "-o", "old"], ["lost", "-o", "new"], ["bad", "-o", "no/new"]:
            self.run_tool(FAILED, "recover", *arguments)
        self.assertEqual(sorted(os.listdir(self.directory)), before)
        self.make("new.9.partial.new/1_1001-2.dat", b"left by a killed run")
        self.run_tool(DAMAGE, "recover", "bad", "-o", "new")
        self.assertEqual(sorted(os.listdir(self.directory)), sorted([*before, "new"]))

    def test_many_entries_on_the_same_bytes_fill_no_disk(self):
        count = 1000
        streams = [(268, n + 1, b"") for n in range(count)] + [(256, 1, os.urandom(100000))]
        start = 24 + 32 * (count + 1)
        everywhere = {n: {"offset": start, "length": 100000} for n in range(count)}
        found = self.recover(DAMAGE, container(streams, entries=everywhere))
        written = sum(len(file) for _, _, file in found.values() if file)
        self.assertLessEqual(written, 4 * (start + 100000))
        self.assertEqual(len(found), count + 1)

    def test_many_empty_streams_make_no_files(self):
        for count, exit_code in (3, DONE), (4, FAILED):
            self.make("many", container([(268, n, b"") for n in range(count)]))
            for command in "extract", "recover":
                error = self.run_tool(exit_code, command, "many", "-o", f"{command}{count}", "--max-files", "3")[1]
                self.assertEqual("more than 3 files are made only with `--max-files`" in error, count > 3)
                self.assertEqual(os.path.exists(self.path(f"{command}{count}")), count <= 3)
        self.make("many", container([(268, n, b"") for n in range(65537)]))
        for command in "extract", "recover":
            self.assertIn("65,537 streams", self.run_tool(FAILED, command, "many", "-o", "none")[1])

    def test_notes_with_very_many_values_take_little_memory(self):
        self.make_recording()
        start = b'{"schema": "cachefile.recording", "version": 1, "state": "closed", "streams": [], "new": ['
        for values, state in (2097152, "closed"), (2097154, None):
            # The fields, both lists and the arrays: as many commas and brackets as values.
            self.make("rec/7/recording.json", start + b",".join([b"[]"] * ((values - 6) // 2)) + b"]}")
            options = {} if WINDOWS or SANITIZED else {
                "preexec_fn": lambda: resource.setrlimit(resource.RLIMIT_DATA, (512 << 20, 512 << 20))}
            self.assertEqual(self.run_json(DONE, "info", "rec/7", **options)["state"], state)
        self.make("rec/7/recording.json", start + b"]" + b" " * (64 << 20) + b"}")
        self.assertIn("too large", self.run_tool(DONE, "info", "rec/7")[1])

    def test_a_directory_that_was_not_closed(self):
        self.make_recording()
        self.make("rec/7/recording.lock", b"")
        self.run_tool(DONE, "recover", "rec/7", "-o", "new")
        for name in "1_1001-2.dat", "4_7004-4.dat", "100_100-2.dat":
            self.assertEqual(self.read("new/" + name), self.read("rec/7/" + name))
        self.make("known", Sums.known(True))
        self.make("rec/7/4_7004-4.dat", b"other")
        os.remove(self.path("rec/7/1_1001-2.dat"))
        rows = self.run_json(DAMAGE, "recover", "rec/7", "-o", "next", "--known", "known")["streams"]
        self.assertEqual({row["stream"]: row["state"] for row in rows},
                         {"1:1001:2": "missing", "4:7004:4": "damaged", "100:100:2": "verified"})


class Docs(Cli):
    def test_the_example_of_the_format_is_a_container(self):
        with open(os.path.join(os.path.dirname(__file__), "../docs/container-format.md")) as page:
            lines = re.findall(r"^000000[0-9a-f]0: ([0-9a-f ]+?)(?:  |$)", page.read(), re.M)
        self.make("example", bytes.fromhex("".join(lines)))
        document = self.run_json(DONE, "info", "example")
        self.assertEqual((document["file_version"], document["cb_time_stamp"]), (1, 0x66554433))
        self.assertEqual([[stream[key] for key in ("tag", "stream", "extra", "offset", "extent")]
                          for stream in document["streams"]],
                         [[257, "3:2003:2", 0, 152, 6], [268, "4:7004:4", 9, 158, 3],
                          [269, "4:7004:1", 0, 233, 0], [274, "100:100:2", 0, 161, 72]])
        for name, content in ("3:2003:2", b"hello\n"), ("4:7004:4", b"abc"):
            self.assertEqual(self.run_tool(DONE, "play", "example", "--stream", name)[0], content)


class Bench(Cli):
    def test_it_compares_with_stdio_and_cleans_up(self):
        document = self.run_json(DONE, "bench", "--size", "1", "--rounds", "1", "--dir", ".")
        self.assertEqual([(result["what"], result["with"].split(",")[0])
                          for result in document["results"]],
                         [("append", "library"), ("append", "library"), ("append", "stdio"),
                          ("read", "library"), ("read", "stdio")])
        self.assertTrue(all(result["ratio"] > 0 for result in document["results"]))
        self.assertEqual(os.listdir(self.directory), [])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:])

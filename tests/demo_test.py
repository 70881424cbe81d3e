"""Runs tools/demo/tour, which is the demonstration without the build, and checks its results.

    demo_test.py BIN DIRECTORY
"""

import filecmp
import os
import shutil
import subprocess
import sys
import unittest

BIN, DIRECTORY = (os.path.abspath(path) for path in sys.argv[1:3])
TOUR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../tools/demo/tour")


class Demo(unittest.TestCase):
    def setUp(self):
        self.directory = os.path.join(DIRECTORY, self._testMethodName + " ü")
        shutil.rmtree(self.directory, ignore_errors=True)
        os.makedirs(self.directory)

    def path(self, *names):
        return os.path.join(self.directory, *names)

    def make(self, name, content=b"x"):
        with open(self.path(name), "wb") as file:
            file.write(content)
        return name

    def tour(self, *files, bin=BIN, **options):
        return subprocess.run(["bash", TOUR, bin, "demo", *files], cwd=self.directory, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)

    def assertRecorded(self, result, files):
        """Checks that each file is a stream of the recording and was compared twice."""
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(result.stdout.count("| cmp - "), 2 * len(files))
        for name, file in files.items():
            self.assertTrue(filecmp.cmp(self.path("demo/recording/1", name), file, False), file)

    def test_own_inputs(self):
        inputs = self.path("demo/inputs")
        for _ in range(2):  # the second recording replaces the first
            self.assertRecorded(self.tour(), {"1_1001-2.dat": inputs + "/sound.wav",
                                              "3_1003-2.dat": inputs + "/chat.log",
                                              "4_1004-4.dat": inputs + "/project.tar"})

    def test_files(self):
        contents = [b"", b"x", bytes(range(256)) * 300]
        files = [self.make(f"- file=[{n}], $x 'ü'", content) for n, content in enumerate(contents)]
        self.assertRecorded(self.tour(*["./" + file for file in files]),
                            {f"4_{n}004-4.dat": self.path(file) for n, file in enumerate(files, 1)})

    def test_what_cannot_be_recorded(self):
        os.makedirs(self.path("demo/recording"))
        os.mkfifo(self.path("fifo"))
        inside = self.make("demo/recording/file")
        for file, reason in (("missing", "no such file"), (".", "directory"), ("fifo", "regular"),
                             (inside, "part of the recording")):
            result = self.tour(self.make("file"), file, timeout=60)
            self.assertEqual((result.returncode, result.stdout), (1, ""), result)
            self.assertRegex(result.stderr, rf"\Ademo: {file}: [^\n]*{reason}[^\n]*\n\Z")
        self.assertTrue(os.path.exists(self.path(inside)))

    def test_other_bytes_are_noticed(self):
        os.makedirs(self.path("bin"))
        with open(self.path("bin/cachefile"), "w") as program:
            program.write(f'#!/bin/sh\n"{BIN}/cachefile" "$@" || exit\n[ "$1" != play ] || echo\n')
        os.chmod(self.path("bin/cachefile"), 0o755)
        result = self.tour(self.make("file"), bin="bin")
        self.assertEqual(result.returncode, 1)
        self.assertIn("is not what was recorded", result.stderr)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)

#!/usr/bin/env python3
"""Applies the mutations of mutations.toml one at a time to a copy of this repository, builds the
copy, runs its tests until one fails, and records that test in score.csv. README.md explains more."""

import argparse
import csv
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time
import tomllib

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
# What is built, and which tests are run, for a mutation of the library and for one of the tool.
LIBRARY = ("cachefile_tests cachefile_fault_tests container_fuzz unload_host cachefile_ends",
           r"/(cachefile_tests|cachefile_fault_tests|container_fuzz|unload_host|cachefile_ends)$")
TOOL = ("cachefile_tool tool_fuzz cachefile_tests",
        r"/(tool_fuzz|(cli|cli_recording|recover)_test\.py|agreement\.py)$|HostPath")


def require(*command):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout


def name_of(test):
    return test["name"].split("  #")[0]  # without the value of a parameter


class Copy:
    """A clone of the repository's last commit, which is changed and built, and its tests."""

    def __init__(self, directory, jobs, binaries="build", flags="-O0"):
        self.tree, self.binaries, self.jobs = directory / "tree", directory / binaries, jobs
        self.seconds = {}  # that each test has taken
        if not self.tree.exists():
            require("git", "clone", "-q", "--no-checkout", ROOT, self.tree)
        require("git", "-C", self.tree, "fetch", "-q", ROOT, "HEAD")
        require("git", "-C", self.tree, "checkout", "-qf", "--detach", "FETCH_HEAD")
        require("cmake", "-S", self.tree, "-B", self.binaries, "-G", "Ninja",
                "-DCMAKE_BUILD_TYPE=", f"-DCMAKE_CXX_FLAGS={flags}")

    def build(self, targets):
        command = ["cmake", "--build", self.binaries, f"-j{self.jobs}", "--target", *targets.split()]
        return subprocess.run(command, stdout=subprocess.DEVNULL).returncode == 0

    def tests(self, pattern, *likely):
        """The tests whose name or command matches: those in a text of likely first, then the
        fastest."""
        listed = json.loads(require("ctest", "--test-dir", self.binaries, "--show-only=json-v1"))
        found = [test for test in listed["tests"]
                 if any(re.search(pattern, text) for text in [test["name"], *test.get("command", [])])]
        return sorted(found, key=lambda test: (*(name_of(test) not in text for text in likely),
                                               self.seconds.get(name_of(test), 0)))

    def failure(self, test):
        """Runs a test; returns the names of what fails in it, or nothing."""
        properties = {item["name"]: item["value"] for item in test["properties"]}
        settings = dict(item.split("=", 1) for item in properties.get("ENVIRONMENT", []))
        began, name = time.monotonic(), name_of(test)
        with tempfile.TemporaryDirectory(dir="/dev/shm", ignore_cleanup_errors=True) as scratch:
            process = subprocess.Popen(
                test["command"], cwd=properties["WORKING_DIRECTORY"], text=True, errors="replace",
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                start_new_session=True, env={**os.environ, **settings, "TMPDIR": scratch})
            try:
                output, _ = process.communicate(timeout=60 + 10 * self.seconds.get(name, 60))
            except subprocess.TimeoutExpired:
                return name + " (timeout)"
            finally:
                try:
                    os.killpg(process.pid, signal.SIGKILL)  # with the processes that it started
                except ProcessLookupError:
                    pass
        self.seconds.setdefault(name, time.monotonic() - began)
        cases = sorted(set(re.findall(r"^(?:FAIL|ERROR): (\w+)", output, re.M)))  # of unittest
        return " ".join([name, *cases]) if process.returncode else ""


def result_of(mutation, copy, targets, pattern, *likely):
    """The test that finds a mutation, or what else became of it. likely: as for Copy.tests."""
    path = copy.tree / mutation["file"]
    original = path.read_text() if path.exists() else ""
    if original.count(mutation["old"]) != 1:
        return "(not applicable)"
    path.write_text(original.replace(mutation["old"], mutation["new"]))
    try:
        if not copy.build(targets):
            return "(does not compile)"
        # A test that fails only once may have failed for another reason.
        failures = (copy.failure(test) and copy.failure(test)
                    for test in copy.tests(pattern, *likely))
        return next(filter(None, failures), "(survives)")
    finally:
        path.write_text(original)


def sound_copy(directory, jobs, sanitizer):
    """A copy all of whose tests pass. The time of each test is kept for later runs."""
    copy = (Copy(directory, jobs, "asan", "-O0 -fsanitize=address") if sanitizer
            else Copy(directory, jobs))
    commit = require("git", "-C", copy.tree, "rev-parse", "HEAD").strip()
    kept = copy.binaries / f"seconds-{commit}.json"
    if kept.exists():
        copy.seconds = json.loads(kept.read_text())
    # No mutation of the tool needs the sanitizer.
    for targets, pattern in () if copy.seconds else (LIBRARY,) if sanitizer else (LIBRARY, TOOL):
        if not copy.build(targets):
            sys.exit("without a mutation, the build fails")
        for test in copy.tests(pattern):
            if copy.failure(test) and (failure := copy.failure(test)):
                sys.exit(f"without a mutation, this fails: {failure}")
    kept.write_text(json.dumps(copy.seconds))
    return copy


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--only", metavar="REGEX", default="", help="mutations by name or file")
    parser.add_argument("--again", action="store_true", help="also those that have a result")
    parser.add_argument("--column", default="after", help="of the score, for the results")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="of the build")
    parser.add_argument("--directory", type=pathlib.Path, default=ROOT / "build" / "mutation")
    parser.add_argument("--score", type=pathlib.Path, default=HERE / "score.csv")
    options = parser.parse_args()
    mutations = tomllib.loads((HERE / "mutations.toml").read_text())["mutation"]
    rows = {one["name"]: {"mutation": one["name"], "module": one["file"].split("/")[0]}
            for one in mutations}
    if options.score.exists():
        known = {row["mutation"]: row for row in csv.DictReader(options.score.open(newline=""))}
        rows = {name: {**known.get(name, {}), **row} for name, row in rows.items()}
    signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell's background job ignores it
    directory = options.directory.resolve()
    copies = {}
    for mutation in mutations:
        row = rows[mutation["name"]]
        if not re.search(options.only, mutation["name"] + " " + mutation["file"]) or (
                row.get(options.column) and not options.again):
            continue
        group = TOOL if row["module"] == "tools" else LIBRARY
        sanitizer = mutation.get("address_sanitizer", False)
        if sanitizer not in copies:
            copies[sanitizer] = sound_copy(directory, options.jobs, sanitizer)
        # What found this one, or others of its module, before.
        known = [" ".join(other.get(column) or "" for column in ("before", "after"))
                 for other in rows.values() if other["module"] == row["module"]]
        row[options.column] = result_of(mutation, copies[sanitizer], *group, str(row), " ".join(known))
        with options.score.open("w", newline="") as file:
            writer = csv.DictWriter(file, ["mutation", "module", "before", "after"], lineterminator="\n")
            writer.writeheader()
            writer.writerows(rows.values())
        print(mutation["name"], "-", row[options.column], flush=True)


if __name__ == "__main__":
    main()

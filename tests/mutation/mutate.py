#!/usr/bin/env python3
"""Applies the mutations of mutations.toml one at a time to a copy of this repository, builds the
copy, runs its tests and records in score.csv which tests fail. README.md explains how to use it."""

import argparse
import collections
import concurrent.futures
import csv
import json
import os
import pathlib
import re
import resource
import signal
import subprocess
import sys
import tempfile
import time
import tomllib

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
# They build or install the project once more; no mutation of the code is their concern.
LEFT_OUT = r"^(install\.|readme_host|demo$)"


def module_of(mutation):
    return "tool" if mutation["file"].startswith("tools/") else mutation["file"].split("/")[0]


def quiet(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def require(*command):
    result = quiet(*command)
    if result.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} failed:\n{result.stdout}")
    return result.stdout


class Copy:
    """A clone of the repository's last commit and its build directory."""

    def __init__(self, directory, jobs):
        self.tree, self.build_directory, self.jobs = directory / "tree", directory / "build", jobs
        if not self.tree.exists():
            require("git", "clone", "-q", "--no-checkout", ROOT, self.tree)
        require("git", "-C", self.tree, "fetch", "-q", ROOT, "HEAD")
        require("git", "-C", self.tree, "checkout", "-qf", "--detach", "FETCH_HEAD")
        self.commit = require("git", "-C", self.tree, "rev-parse", "HEAD").strip()
        # Warnings are no errors: a mutation may leave a variable unused.
        require("cmake", "-S", self.tree, "-B", self.build_directory, "-G", "Ninja",
                "-DCMAKE_BUILD_TYPE=", "-DCMAKE_CXX_FLAGS=-O0")

    def build(self):
        return quiet("cmake", "--build", self.build_directory, f"-j{self.jobs}")

    def tests(self):
        """Every test with its command, as a dictionary."""
        listed = json.loads(require("ctest", "--test-dir", self.build_directory,
                                    "--show-only=json-v1"))
        found = []
        for test in listed["tests"]:
            properties = {item["name"]: item["value"] for item in test["properties"]}
            name = test["name"].split("  #")[0]
            if not re.search(LEFT_OUT, name):
                found.append({"name": name, "command": test["command"], "limit": 120,
                              "directory": properties["WORKING_DIRECTORY"],
                              "environment": dict(item.split("=", 1) for item in
                                                  properties.get("ENVIRONMENT", []))})
        return found


def run_test(test):
    """Runs one test. Returns the names of what failed in it, and the seconds that it took."""
    begin = time.monotonic()
    memory = "/dev/shm" if os.path.isdir("/dev/shm") else None
    with tempfile.TemporaryDirectory(dir=memory, ignore_cleanup_errors=True) as scratch, \
            tempfile.TemporaryFile() as output:
        process = subprocess.Popen(
            test["command"], cwd=test["directory"], stdin=subprocess.DEVNULL, stdout=output,
            stderr=output, start_new_session=True,
            env={**os.environ, **test["environment"], "TMPDIR": scratch})
        try:
            code = process.wait(test["limit"])
        except subprocess.TimeoutExpired:
            code = None
        try:
            os.killpg(process.pid, signal.SIGKILL)  # with the processes that it started
        except ProcessLookupError:
            pass
        process.wait()
        output.seek(0)
        text = output.read().decode(errors="replace")
    if code is None:
        return [test["name"] + " (timeout)"], time.monotonic() - begin
    methods = sorted(set(re.findall(r"^(?:FAIL|ERROR): (\w+)", text, re.M)))  # of Python's unittest
    failed = [f"{test['name']}:{method}" for method in methods] or [test["name"]]
    return failed if code else [], time.monotonic() - begin


def run_tests(tests, jobs, wanted):
    """Runs tests, in order, until so many have failed. Returns the names of those that failed."""
    killers = []
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        running = {pool.submit(lambda test: [] if len(killers) >= wanted else run_test(test)[0],
                               test): test for test in tests}
        for done in concurrent.futures.as_completed(running):
            killers += done.result()
    return killers


def prepare(copy, jobs):
    """Builds without a mutation, expects all tests to pass, and returns them, the fastest first."""
    kept = copy.build_directory / f"tests-{copy.commit}.json"
    if kept.exists():
        return json.loads(kept.read_text())
    if (result := copy.build()).returncode != 0:
        sys.exit("the build without a mutation fails:\n" + result.stdout[-4000:])
    tests = copy.tests()
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for test, (failed, seconds) in zip(tests, pool.map(run_test, tests)):
            if failed and run_test(test)[0]:
                sys.exit(f"without a mutation, this fails: {failed}")
            test["seconds"] = seconds
            test["limit"] = max(10, 10 * seconds)
    tests.sort(key=lambda test: test["seconds"])
    kept.write_text(json.dumps(tests))
    return tests


def try_mutation(mutation, copy, tests, options):
    """Returns what became of the mutation, and the tests that failed."""
    path = copy.tree / mutation["file"]
    original = path.read_text() if path.exists() else ""
    if original.count(mutation["old"]) != 1:
        return "stale", []
    path.write_text(original.replace(mutation["old"], mutation["new"]))
    try:
        if copy.build().returncode != 0:
            return "does not compile", []
        killers = run_tests(tests, options.jobs, options.killers)
        if len(killers) == 1 and "(timeout)" not in killers[0]:
            only = [test for test in tests if test["name"] == killers[0].split(":")[0]]
            if not run_tests(only, 1, 1):
                killers = [killers[0] + " (sometimes)"]
        return ("killed" if killers else "survived"), sorted(killers)
    finally:
        path.write_text(original)


def read_score(path):
    if not path.exists():
        return {}
    with open(path, newline="") as file:
        return {row["mutation"]: row for row in csv.DictReader(file)}


def write_score(path, rows, order):
    with open(path, "w", newline="") as file:
        writer = csv.DictWriter(file, ["mutation", "module", "result", "killers"],
                                lineterminator="\n")
        writer.writeheader()
        writer.writerows(rows[name] for name in order if name in rows)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--only", metavar="REGEX", default="", help="mutations by name")
    parser.add_argument("--module", help="platform, core, fileop, async, writer, download, player or tool")
    parser.add_argument("--again", action="store_true", help="also those that have a result already")
    parser.add_argument("--killers", type=int, default=1, help="stop after so many failed tests")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--directory", type=pathlib.Path, default=ROOT / "build" / "mutation",
                        help="where the copy is built")
    parser.add_argument("--score", type=pathlib.Path, default=HERE / "score.csv")
    options = parser.parse_args()

    mutations = tomllib.loads((HERE / "mutations.toml").read_text())["mutation"]
    order = [mutation["name"] for mutation in mutations]
    assert len(set(order)) == len(order), "two mutations have one name"
    rows = read_score(options.score)
    chosen = [mutation for mutation in mutations
              if re.search(options.only, mutation["name"])
              and options.module in (None, module_of(mutation))
              and (options.again or mutation["name"] not in rows)]
    signal.signal(signal.SIGINT, signal.default_int_handler)  # a shell's background job ignores it
    resource.setrlimit(resource.RLIMIT_AS, (8 << 30, 8 << 30))  # for mutants that take memory
    copy = Copy(options.directory.resolve(), options.jobs)
    tests = prepare(copy, options.jobs)
    for number, mutation in enumerate(chosen, 1):
        result, killers = try_mutation(mutation, copy, tests, options)
        rows[mutation["name"]] = {"mutation": mutation["name"], "module": module_of(mutation),
                                  "result": result, "killers": "; ".join(killers)}
        write_score(options.score, rows, order)
        print(f"{number}/{len(chosen)} {mutation['name']}: {result} {' '.join(killers)}", flush=True)
    for module in [*dict.fromkeys(map(module_of, mutations)), None]:
        counts = collections.Counter(rows[name]["result"] for name in order if name in rows
                                     and module in (None, rows[name]["module"]))
        print(f"{module or 'all':10}", ", ".join(f"{n} {what}" for what, n in counts.items()))


if __name__ == "__main__":
    main()

"""Runs the commands of a page in order, and compares what they print with the page.

    tour.py PROGRAM DIRECTORY PAGE

A command is an indented line that begins with "$ ". The lines after it are its output and messages;
"..." stands for any lines, and "(ends with N)" for its exit code. Numbers and times that differ
between runs are not compared.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

VARYING = [
    (r"\d{4}-\d\d-\d\dT[\d:.]+Z", "TIME"),
    (r"\b\d+\.\d+\b", "N"),  # seconds and rates
    (r'(?<=(?:free|ding)_bytes":)\d+|(?<="bytes_per_second":)\d+|(?<="bytes":)\d+(?=,"bytes_per)', "N"),
    (r"^((?:append|read) .*?) +\d+ +", r"\1 N "),
    (r" +", " "),  # the width of a column depends on its numbers
]


def read_steps(page):
    """Returns [[line number, command, lines of output]]."""
    steps = []
    for number, line in enumerate(page.splitlines(), 1):
        if line.startswith("    $ "):
            steps.append([number, line[6:], []])
        elif steps and (line.startswith("    ") or not line):
            steps[-1][2].append(line[4:])
        elif steps and line:
            yield from steps
            steps = []
    yield from steps


def comparable(line):
    for pattern, text in VARYING:
        line = re.sub(pattern, text, line)
    return line.strip()


def run(command, directory, path):
    """Returns the lines that it prints. Does not wait for what it starts in the background."""
    with tempfile.TemporaryFile() as file:
        ended = subprocess.run(["bash", "-c", command], cwd=directory, stdout=file, stderr=file,
                               env={**os.environ, "PATH": path}, timeout=100)
        file.seek(0)
        lines = file.read().decode().splitlines()
    return lines + ["(ends with %d)" % ended.returncode] * (ended.returncode != 0)


def matches(wanted, lines):
    pattern = "".join(r"(?:.*\n)*?" if line == "..." else re.escape(line) + r"\n" for line in wanted)
    return re.fullmatch(pattern, "".join(line + "\n" for line in lines)) is not None


def main():
    program, directory, page = map(os.path.abspath, sys.argv[1:])
    shutil.rmtree(directory, ignore_errors=True)
    os.makedirs(directory)
    path = os.path.dirname(program) + os.pathsep + os.environ["PATH"]
    with open(page) as file:
        steps = list(read_steps(file.read()))
    faults = 0
    for number, command, output in steps:
        printed = run(command, directory, path)
        while output and not output[-1]:
            output.pop()
        if not matches(list(map(comparable, output)), list(map(comparable, printed))):
            faults += 1
            print("%s:%d: $ %s\nprints\n    %s" % (page, number, command, "\n    ".join(printed)))
    print("%d commands, %d of them print something else" % (len(steps), faults))
    return not steps or faults > 0


if __name__ == "__main__":
    sys.exit(main())

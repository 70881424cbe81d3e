#!/usr/bin/env python3
"""Measures how soon recorded bytes can be read.

    latency.py PROGRAM [TRIES]

Starts `PROGRAM record` with --flush 1s, and `PROGRAM play --follow` of its stream. Writes a short
piece, waits until the player has written it, and repeats that after a random pause. Prints the
times between, in seconds, and the load of the machine. Run it by hand; no test depends on it.
"""

import os
import random
import subprocess
import sys
import tempfile
import time


def measure(program, tries, directory):
    recorder = subprocess.Popen([program, "record", "7", "--stream", "4:7004:4=-", "--flush", "1s"],
                                stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, cwd=directory)
    while not os.path.exists(os.path.join(directory, "kvr2/7/4_7004-4.dat")):
        time.sleep(0.01)
    player = subprocess.Popen([program, "play", "kvr2/7", "--stream", "4:7004:4", "--follow"],
                              stdout=subprocess.PIPE, cwd=directory)
    times = []
    for _ in range(tries):
        time.sleep(random.random())
        piece = random.randbytes(random.randint(1, 2000))
        begin = time.monotonic()
        recorder.stdin.write(piece)
        recorder.stdin.flush()
        if player.stdout.read(len(piece)) != piece:
            sys.exit("the player wrote other bytes")
        times.append(time.monotonic() - begin)
    recorder.stdin.close()
    if recorder.wait() != 0 or player.wait() != 0:
        sys.exit("the recorder or the player has failed")
    return sorted(times)


def main():
    program = os.path.abspath(sys.argv[1])
    tries = int(sys.argv[2]) if len(sys.argv) > 2 else 100
    with tempfile.TemporaryDirectory() as directory:
        times = measure(program, tries, directory)
    for share in 0, 50, 90, 95, 99, 100:
        print("%3d %%  %.3f" % (share, times[min(share * tries // 100, tries - 1)]))
    print("within 1.1 s: %d, within 2 s: %d, of %d" %
          (sum(t <= 1.1 for t in times), sum(t <= 2 for t in times), tries))
    print("load: %.1f on %d processors" % (os.getloadavg()[0], os.cpu_count()))


if __name__ == "__main__":
    main()

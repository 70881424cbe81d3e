"""Tests of the documented examples: many containers on a cluster, and the plot."""

import math
import os
import pathlib
import re
import signal
import struct
import subprocess
import sys

import pytest

import cachefile

EXAMPLES = pathlib.Path(__file__).parents[1] / "examples"
PAGE = pathlib.Path(__file__).parents[2] / "docs" / "python.md"
sys.path.insert(0, str(EXAMPLES))
COUNT = 1000


@pytest.fixture(scope="module")
def containers(server):
    """Creates a thousand small containers in a directory of the web server."""
    directory = server.root / "thousand"
    directory.mkdir()
    for i in range(COUNT):
        data = bytes([i % 251]) * (i % 60)
        content = [(1, 1, 2, data), (4, 1000 * i + 4, 4, data * 2), (100, 100, 2, bytes(72 + i % 3))]
        write_unsynced(directory / f"{i}.container", content)
    return [f"thousand/{i}.container" for i in range(COUNT)]


def write_unsynced(path, content):
    """Packs without fsync, which would take long for a thousand test files."""
    sync, os.fsync = os.fsync, lambda descriptor: None
    try:
        cachefile.pack(path, content)
    finally:
        os.fsync = sync


@pytest.fixture(scope="module")
def cluster():
    pytest.importorskip("distributed")
    import many_containers
    os.environ["PYTHONPATH"] = os.pathsep.join(sys.path)  # for the workers
    with many_containers.connect() as client:
        yield many_containers, client


def expected(many):
    sizes, peaks = [i % 60 for i in range(COUNT)], [i % 251 for i in range(COUNT) if i % 60]
    return {1: many.Totals(COUNT, sum(sizes), max(peaks)),
            4: many.Totals(COUNT, 2 * sum(sizes), max(peaks)),
            100: many.Totals(COUNT, sum(72 + i % 3 for i in range(COUNT)), 0)}


def measure_and_die_once(name):
    """As the example's measure, but kills the first process that reads the 500th container."""
    import many_containers
    if name.endswith("/500.container"):
        try:
            os.close(os.open(os.environ["DIE_ONCE"], os.O_CREAT | os.O_EXCL))
            os.kill(os.getpid(), signal.SIGKILL)
        except FileExistsError:
            pass
    return list(many_containers.measure(name))


def test_from_a_directory_and_from_a_web_server(server, containers, cluster):
    many, _ = cluster
    assert many.totals_by_type([str(server.root / name) for name in containers]) == expected(many)
    assert many.totals_by_type([server.url(name) for name in containers]) == expected(many)


def test_a_killed_worker_changes_nothing(server, containers, cluster, tmp_path):
    many, client = cluster
    marker = str(tmp_path / "died")
    client.run(os.environ.__setitem__, "DIE_ONCE", marker)
    before = set(client.run(os.getpid).values())

    def measure(name, marker=marker):
        os.environ["DIE_ONCE"] = marker  # a restarted worker does not have it
        return measure_and_die_once(name)

    paths = [str(server.root / name) for name in containers]
    assert many.totals_by_type(paths, measure) == expected(many)
    client.wait_for_workers(2)
    assert os.path.exists(marker) and len(before & set(client.run(os.getpid).values())) == 1


def test_from_a_recording_to_a_plot(tmp_path):
    """The page shows the example, and the picture contains both voices."""
    pytest.importorskip("matplotlib")
    script = (EXAMPLES / "plot_voices.py").read_text()
    assert len(script.splitlines()) == 10 and script in PAGE.read_text()

    def voice(pitch):
        wave = (math.sin(i * pitch) * 20000 * math.exp(-(i % 8000) / 2500) for i in range(48000))
        return b"".join(struct.pack("<h", int(sample)) for sample in wave)

    cachefile.pack(tmp_path / "talk", [(4, 7004, 4, voice(0.05)), (4, 8004, 4, voice(0.11))])
    environment = {**os.environ, "MPLBACKEND": "Agg"}
    picture = pathlib.Path(os.environ.get("PICTURE", tmp_path / "talk.png"))
    subprocess.run([sys.executable, EXAMPLES / "plot_voices.py", tmp_path / "talk", picture],
                   check=True, env=environment)
    assert picture.read_bytes().startswith(b"\x89PNG")
    import matplotlib.image
    pixels = matplotlib.image.imread(picture)
    blue = (pixels[..., 2] > 0.6) & (pixels[..., 0] < 0.5)
    upper, lower = blue[:len(blue) // 2], blue[len(blue) // 2:]
    assert upper.sum() > 1000 and lower.sum() > 1000


def test_the_code_of_the_page_runs(tmp_path, monkeypatch):
    """Runs the other blocks of the page in order, in a directory with the recording they use."""
    monkeypatch.chdir(tmp_path)
    blocks = re.findall(r"```python\n(.*?)```", PAGE.read_text(), re.S)
    assert len(blocks) >= 5
    names = {}
    for block in blocks:
        if "sys.argv" not in block and "# not run" not in block:
            exec(compile(block, str(PAGE), "exec"), names)

"""Tests of the documented examples: many containers on a cluster, and the plot."""

import math
import os
import pathlib
import re
import struct
import subprocess
import sys

import pytest

import cachefile

EXAMPLES = pathlib.Path(__file__).parents[1] / "examples"
PAGE = pathlib.Path(__file__).parents[2] / "docs" / "python.md"
sys.path.insert(0, str(EXAMPLES))


def test_many_containers_from_a_directory_and_from_a_web_server(server, monkeypatch):
    pytest.importorskip("distributed")
    import many_containers as many
    (server.root / "hundred").mkdir()
    sizes = [i % 60 for i in range(100)]
    for i, size in enumerate(sizes):
        data = bytes([i + 1]) * size
        content = [(1, 1, 2, data), (4, 1000 * i + 4, 4, data * 2), (100, 100, 2, bytes(72 + i % 3))]
        cachefile.pack(server.root / "hundred" / str(i), content)
    wanted = {1: many.Totals(100, sum(sizes), 100), 4: many.Totals(100, 2 * sum(sizes), 100),
              100: many.Totals(100, sum(72 + i % 3 for i in range(100)), 0)}
    monkeypatch.setenv("PYTHONPATH", os.pathsep.join(sys.path))  # for the workers
    with many.connect():
        for place in (lambda name: str(server.root / name), server.url):
            assert many.totals_by_type([place(f"hundred/{i}") for i in range(100)]) == wanted


def test_from_a_recording_to_a_plot(tmp_path):
    """The page shows the example, and the picture contains both voices."""
    image = pytest.importorskip("matplotlib.image")
    script = (EXAMPLES / "plot_voices.py").read_text()
    assert len(script.splitlines()) == 10 and script in PAGE.read_text()

    def voice(pitch):
        wave = (math.sin(i * pitch) * 20000 * math.exp(-(i % 8000) / 2500) for i in range(48000))
        return b"".join(struct.pack("<h", int(sample)) for sample in wave)

    cachefile.pack(tmp_path / "talk", [(4, 7004, 4, voice(0.05)), (4, 8004, 4, voice(0.11))])
    picture = tmp_path / "talk.png"
    subprocess.run([sys.executable, EXAMPLES / "plot_voices.py", tmp_path / "talk", picture],
                   check=True, env={**os.environ, "MPLBACKEND": "Agg"})
    pixels = image.imread(picture)
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

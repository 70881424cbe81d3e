"""Fixtures of the tests. The environment names the programs to compare with:

CACHEFILE_TOOL     the command line
CACHEFILE_LIBRARY  the shared library
"""

import os
import pathlib
import shutil
import socket
import subprocess
import sys
import time
import urllib.error
import urllib.request

import pytest

import cachefile
from cachefile import _np

sys.path.insert(0, str(pathlib.Path(__file__).parents[2] / "tests"))  # containers.py


@pytest.fixture(params=["numpy", "plain"])
def either(request, monkeypatch):
    """Runs the test with and without NumPy."""
    if request.param == "plain":
        monkeypatch.setattr(_np, "numpy", None)
    elif _np.numpy is None:
        pytest.skip("NumPy is not installed")


@pytest.fixture
def tool():
    return os.environ["CACHEFILE_TOOL"]


class Server:
    """A web server on the loopback interface, which logs the requests of a test."""

    def __init__(self, directory):
        self.root = directory / "root"
        self.root.mkdir()
        self._log = directory / "access.log"
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self._port = probe.getsockname()[1]
        (directory / "nginx.conf").write_text(f"""
            daemon off; worker_processes 1; pid {directory}/pid; error_log {directory}/error.log;
            events {{ }}
            http {{
                log_format plain '$request_method $uri $status $body_bytes_sent';
                access_log {directory}/access.log plain;
                client_body_temp_path {directory}; proxy_temp_path {directory};
                fastcgi_temp_path {directory}; uwsgi_temp_path {directory};
                scgi_temp_path {directory};
                server {{
                    listen 127.0.0.1:{self._port}; root {self.root};
                    location /whole/ {{ alias {self.root}/; max_ranges 0; }}
                }}
            }}""")
        user = ["-g", "user root;"] if os.getuid() == 0 else []
        program = shutil.which("nginx", path="/usr/sbin:" + os.environ["PATH"])
        command = ["timeout", "600", program, "-c", f"{directory}/nginx.conf", *user]
        self._process = subprocess.Popen(command)
        for _ in range(200):
            try:
                self._settle()
                return
            except OSError:
                time.sleep(0.05)
        raise RuntimeError("nginx does not respond")

    def url(self, name):
        return f"http://127.0.0.1:{self._port}/{name}"

    def _settle(self):
        """Makes one more request. After its response the earlier requests are in the log."""
        try:
            urllib.request.urlopen(self.url("settle"), timeout=5)
        except urllib.error.HTTPError:
            pass

    def requests(self):
        """Returns (method, bytes sent) of each request since the last call."""
        self._settle()
        lines = [line.split() for line in self._log.read_text().splitlines()]
        with self._log.open("w"):
            pass  # nginx appends
        return [(line[0], int(line[3])) for line in lines if line[1] != "/settle"]

    def stop(self):
        self._process.terminate()
        self._process.wait(10)


@pytest.fixture(scope="session")
def server(tmp_path_factory):
    pytest.importorskip("fsspec")
    running = Server(tmp_path_factory.mktemp("nginx"))
    yield running
    running.stop()


@pytest.fixture
def make(tmp_path):
    """Writes bytes to a file, or packs streams into a container."""

    def write(content, name="some.container", **options):
        path = tmp_path / name
        if isinstance(content, bytes):
            path.write_bytes(content)
        else:
            cachefile.pack(path, content, **options)
        return path

    return write

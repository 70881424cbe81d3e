"""Fixtures of the tests. The environment names the programs to compare with:

CACHEFILE_TOOL     the command line
CACHEFILE_LIBRARY  the shared library
"""

import http.server
import os
import pathlib
import re
import sys
import threading

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


class Handler(http.server.BaseHTTPRequestHandler):
    """Serves the files in `root`. Ranges are supported unless the path begins with /whole."""

    protocol_version = "HTTP/1.1"

    def do_GET(self):
        try:
            data = (self.server.root / self.path.replace("/whole/", "/")[1:]).read_bytes()
        except OSError:
            return self.send_error(404)
        wanted = re.match(r"bytes=(\d+)-(\d+)", self.headers.get("Range", ""))
        if wanted and not self.path.startswith("/whole/"):
            data = data[int(wanted[1]):int(wanted[2]) + 1]
            self.send_response(206)
        else:
            self.send_response(200)
        self.send_header("Content-Length", len(data))
        self.send_header("Accept-Ranges", "bytes")
        self.end_headers()
        body = data if self.command == "GET" else b""
        self.server.seen.append((self.command, len(body)))
        self.wfile.write(body)

    do_HEAD = do_GET
    log_message = lambda *arguments: None


class Server(http.server.ThreadingHTTPServer):
    """A web server on the loopback interface, which logs the requests of a test."""

    def __init__(self, root):
        super().__init__(("127.0.0.1", 0), Handler)
        self.root, self.seen = root, []

    def url(self, name):
        return f"http://127.0.0.1:{self.server_port}/{name}"

    def requests(self):
        """Returns (method, bytes sent) of each request since the last call."""
        seen, self.seen = self.seen, []
        return seen


@pytest.fixture(scope="session")
def server(tmp_path_factory):
    pytest.importorskip("fsspec")
    with Server(tmp_path_factory.mktemp("served")) as running:
        threading.Thread(target=running.serve_forever, daemon=True).start()
        yield running
        running.shutdown()


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

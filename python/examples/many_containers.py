"""Measures all streams of many containers, on all machines of a Dask cluster.

    many_containers.py [--scheduler ADDRESS] [--workers N] CONTAINER...

CONTAINER is a path that all workers can open, or a URL. Without a scheduler it starts one on this
machine, with two workers. Prints one line for each data type.
"""

from __future__ import annotations

import argparse
import sys
from typing import Any, Dict, Iterator, NamedTuple, Sequence, Tuple

import cachefile


class Totals(NamedTuple):
    """Totals of some streams. They can be added in any order."""

    streams: int = 0
    size: int = 0
    peak: int = 0  #: the largest byte

    def plus(self, other: "Totals") -> "Totals":
        return Totals(
            self.streams + other.streams, self.size + other.size, max(self.peak, other.peak)
        )


def measure(container: str) -> Iterator[Tuple[int, Totals]]:
    """Yields the data type and totals of each stream of one container. Runs on a worker.

    The worker opens the container, so only its name and the results are transferred.
    """
    with cachefile.open(container) as recording:
        for stream in recording.streams:
            yield stream.type, Totals(1, stream.length, max(stream.read(), default=0))


def totals_by_type(containers: Sequence[str], function: Any = measure) -> Dict[int, Totals]:
    """Applies function to each container and combines the results for each data type.

    If a worker dies, another one repeats its work. The result is the same, because reading changes
    nothing.
    """
    from dask import bag

    streams = bag.from_sequence(containers, partition_size=20).map(function).flatten()
    combined = streams.foldby(
        lambda pair: pair[0],
        lambda totals, pair: totals.plus(pair[1]),
        Totals(),
        Totals.plus,
        Totals(),
    )
    return dict(sorted(combined.compute()))


def connect(scheduler: str = "", workers: int = 2) -> Any:
    """Returns a client of the scheduler, or of a new cluster on this machine."""
    from dask.distributed import Client

    if scheduler:
        return Client(scheduler)
    return Client(
        n_workers=workers, threads_per_worker=1, host="127.0.0.1", dashboard_address=None
    )


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--scheduler", default="")
    parser.add_argument("--workers", type=int, default=2)
    parser.add_argument("containers", nargs="+")
    options = parser.parse_args()
    with connect(options.scheduler, options.workers):
        found = totals_by_type(options.containers)
    print("TYPE STREAMS BYTES PEAK")
    for data_type, totals in found.items():
        print(data_type, *totals)
    return 0


if __name__ == "__main__":
    sys.exit(main())

"""Measures all streams of many containers, on as many machines as Dask has.

    many_containers.py [--scheduler ADDRESS] [--workers N] CONTAINER...

CONTAINER is a path that all workers see, or a URL. Without a scheduler it starts one on this
machine, with two workers. Prints a line for each data type.
"""

from __future__ import annotations

import argparse
import sys
from typing import Any, Dict, Iterator, NamedTuple, Sequence, Tuple

import cachefile


class Totals(NamedTuple):
    """What is known of some streams. Adding up is the same in any order."""

    streams: int = 0
    size: int = 0
    peak: int = 0  #: the largest byte

    def plus(self, other: "Totals") -> "Totals":
        return Totals(
            self.streams + other.streams, self.size + other.size, max(self.peak, other.peak)
        )


def measure(container: str) -> Iterator[Tuple[int, Totals]]:
    """Runs on a worker: data type and totals of each stream of one container.

    It opens the container there, so only its name and the results travel.
    """
    with cachefile.open(container) as recording:
        for stream in recording.streams:
            yield stream.type, Totals(1, stream.length, max(stream.read(), default=0))


def totals_by_type(containers: Sequence[str], function: Any = measure) -> Dict[int, Totals]:
    """Maps function over the containers and combines what it yields for each data type.

    Work that was lost with a worker is done again by another one; as it changes nothing, the
    result is the same.
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
    """A client of this scheduler, or of a cluster on this machine that only it can reach."""
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

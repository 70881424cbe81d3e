#!/usr/bin/env python3
"""Plots a run of the benchmark.

    plot.py RUN.json OUT.svg

Each workload has a panel. Each contestant has a bar for its median, a line from its minimum to its
maximum, and the median as a number. The library's bars are dark. The scale is logarithmic, because
the values differ by orders of magnitude.
"""
import html
import json
import math
import sys

# Workload, metric, unit of the numbers, nanoseconds in that unit, title of the panel.
PANELS = [
    ("append, paced", "mean", "ns", 1, "1000-byte append, 400 MB/s: mean on the caller's thread"),
    ("append, paced", "p99.9", "us", 1e3, "1000-byte append, 400 MB/s: 99.9th percentile"),
    ("append, synced, disk shared", "p99.9", "us", 1e3,
     "1000-byte append, 2 MB/s, synced, disk shared: 99.9th percentile"),
    ("append, burst", "an append", "ns", 1, "1000-byte append, burst: until all bytes are in the kernel"),
    ("append 64 KiB, paced", "mean", "us", 1e3, "64 KiB append, 400 MB/s: mean on the caller's thread"),
    ("append, burst, 1,000 files", "an append", "ns", 1, "1000-byte append, burst, 1,000 files"),
    ("read 64 KiB", "a read", "us", 1e3, "64 KiB read, random"),
    ("read 4 KiB", "a read", "us", 1e3, "4 KiB read, random"),
    ("read 64 KiB, 16 in flight", "a read", "us", 1e3, "64 KiB read, 16 in flight"),
    ("read 4 KiB, 16 in flight", "a read", "us", 1e3, "4 KiB read, 16 in flight"),
    ("open 100,000 entries, first read", "an entry", "ns", 1,
     "opening 100,000 entries and a first read, time per entry"),
]

WIDTH, LABELS, BARS, ROW, HEAD, GAP = 860, 230, 520, 20, 30, 18


def panel(rows, unit, size, title, top):
    """The lines of one panel and its height."""
    values = [value for row in rows for value in (row["min"], row["max"])]
    low, high = min(values) * 0.8, max(values) * 1.1
    low = 10 ** math.floor(math.log10(low))

    def x(value):
        return LABELS + BARS * math.log(max(value, low) / low) / math.log(high / low)

    out = [f'<text x="8" y="{top + 16}" class="title">{html.escape(title)}</text>']
    for i, row in enumerate(rows):
        y = top + HEAD + i * ROW
        ours = "ours" if row["contestant"].startswith("cachefile") else "peer"
        middle = y + ROW / 2
        out += [
            f'<text x="{LABELS - 8}" y="{y + 14}" class="name">{html.escape(row["contestant"])}</text>',
            f'<rect x="{LABELS}" y="{y + 3}" width="{x(row["median"]) - LABELS:.1f}"'
            f' height="{ROW - 6}" class="{ours}"/>',
            f'<line x1="{x(row["min"]):.1f}" x2="{x(row["max"]):.1f}" y1="{middle}" y2="{middle}"'
            ' class="range"/>',
            f'<text x="{x(row["max"]) + 6:.1f}" y="{y + 14}">'
            f'{row["median"] / size:,.{0 if row["median"] / size >= 100 else 1}f} {unit}</text>',
        ]
    return out, HEAD + len(rows) * ROW + GAP


def main():
    source, target = sys.argv[1:]
    with open(source, encoding="utf-8") as file:
        results = json.load(file)["results"]
    lines, top = [], 8
    for workload, metric, unit, size, title in PANELS:
        rows = [r for r in results if r["workload"] == workload and r["metric"] == metric]
        if rows:
            drawn, height = panel(sorted(rows, key=lambda r: r["median"]), unit, size, title, top)
            lines += drawn
            top += height
    with open(target, "w", encoding="utf-8") as file:
        file.write(
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{top}"'
            f' viewBox="0 0 {WIDTH} {top}">\n<style>\n'
            "text { font: 12px sans-serif; fill: #222 }\n"
            ".title { font-weight: bold }\n"
            ".name { text-anchor: end }\n"
            ".ours { fill: #20639b }\n"
            ".peer { fill: #b8c4ce }\n"
            ".range { stroke: #222; stroke-width: 1.5 }\n"
            f'</style>\n<rect width="{WIDTH}" height="{top}" fill="white"/>\n'
        )
        file.write("\n".join(lines) + "\n</svg>\n")


if __name__ == "__main__":
    main()

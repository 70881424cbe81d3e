#!/usr/bin/env python3
"""Writes the figures of a benchmark run into a page.

    table.py RUN.json PAGE.md

They replace the text between the lines <!-- run --> and <!-- end of run -->.
"""
import json
import re
import sys


def number(value):
    return f"{value:,.0f}" if value >= 100 else f"{value:.2f}" if value < 10 else f"{value:.1f}"


def row(*cells):
    return "| " + " | ".join(cells) + " |"


def tables(run):
    lines = [row("Figure", "Target", "Median", "Minimum", "Maximum", ""),
             "|---|---:|---:|---:|---:|---|"]
    for figure in run["figures"]:
        met = "reached" if figure["median"] <= figure["wanted"] else "**not reached**"
        base = f", relative to {figure['to']}" if figure["to"] else ""
        lines.append(row(figure["figure"] + base, number(figure["wanted"]), number(figure["median"]),
                         number(figure["min"]), number(figure["max"]), met))
    lines += ["", row("Workload", "Contestant", "Metric", "Median", "Minimum", "Maximum"),
              "|---|---|---|---:|---:|---:|"]
    for result in run["results"]:
        if result["metric"] in ("max", "p50", "p99"):
            continue
        lines.append(row(result["workload"], result["contestant"], result["metric"],
                         number(result["median"]), number(result["min"]), number(result["max"])))
    return "\n".join(lines)


def main():
    source, page = sys.argv[1:]
    with open(source, encoding="utf-8") as file:
        text = tables(json.load(file))
    with open(page, encoding="utf-8") as file:
        before = file.read()
    marks = re.compile(r"(<!-- run -->\n).*?(<!-- end of run -->)", re.S)
    after, count = marks.subn(lambda m: f"{m[1]}\n{text}\n\n{m[2]}", before)
    if count != 1:
        sys.exit(f"table.py: {page} has no pair of lines <!-- run --> and <!-- end of run -->")
    with open(page, "w", encoding="utf-8") as file:
        file.write(after)


if __name__ == "__main__":
    main()

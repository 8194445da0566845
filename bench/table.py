#!/usr/bin/env python3
"""Prints Google Benchmark's JSON results as a table, our rate and ratio beside each peer's.

Usage: table.py [--markdown] RESULTS.json...

Benchmarks are named operation/who/size. The peers are whoever but us ran the same operation.
"""

import json
import sys

US = "tavo"


def medians(path):
    """{(operation, size): {who: bytes a second}}"""
    with open(path, encoding="utf-8") as file:
        runs = json.load(file)["benchmarks"]
    rates = {}
    for run in runs:
        if run.get("aggregate_name") == "median":
            operation, who, size = run["run_name"].split("/")
            rates.setdefault((operation, int(size)), {})[who] = run["bytes_per_second"]
    return rates


def with_unit(size):
    for unit in ("B", "KiB"):
        if size < 1024:
            return f"{size} {unit}"
        size //= 1024
    return f"{size} MiB"


def rows(rates):
    """The heading and a row for each operation and size, all cells as text."""
    peers = sorted({who for by in rates.values() for who in by} - {US}, key=str.lower)
    yield ["operation", "size"] + [f"{who} GB/s" for who in [US] + peers] + [
        f"to {peer}" for peer in peers]
    for (operation, size), by in sorted(rates.items()):
        speeds = [f"{by[who] / 1e9:.2f}" for who in [US] + peers]
        ratios = [f"{by[US] / by[peer]:.2f}" for peer in peers]
        yield [operation, with_unit(size)] + speeds + ratios


def print_table(table, markdown):
    widths = [max(map(len, column)) for column in zip(*table)]
    if markdown:
        table.insert(1, ["-" * width for width in widths[:1]] +
                     ["-" * (width - 1) + ":" for width in widths[1:]])
    for row in table:
        cells = [row[0].ljust(widths[0])] + [
            cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
        print("| " + " | ".join(cells) + " |" if markdown else "  ".join(cells))


def main(arguments):
    markdown = arguments[:1] == ["--markdown"]
    for path in arguments[markdown:]:
        print_table(list(rows(medians(path))), markdown)


main(sys.argv[1:])

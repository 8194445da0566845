#!/usr/bin/env python3
"""Prints Google Benchmark's JSON results as a table, each peer's median with our ratio to it.

Usage: table.py [--markdown] [--growth | --data] RESULTS.json...
--growth    one table of our own rows: a call's time, its ratio to the peer of the row, or else to
            the operation's first row, and memory
--data      the same as numbers (microseconds, KiB), a block for each operation, for growth.gnuplot

Benchmarks are named operation/who/what. The peers are whoever but us ran the same operation. Those
that count bytes are compared by their rates (a ratio above 1: we are faster), the others by their
times (a ratio below 1: we are faster).
"""

import json
import sys

US = "tavo"
MEMORY = ["client private", "client heap", "task private", "task heap"]


def medians(path):
    """{(operation, what): {who: run}}, as the benchmarks were registered."""
    with open(path, encoding="utf-8") as file:
        runs = json.load(file)["benchmarks"]
    runs.sort(key=lambda run: (run["family_index"], run["per_family_instance_index"]))
    table = {}
    for run in runs:
        if run.get("aggregate_name") == "median":
            operation, who, what = run["run_name"].split("/")[:3]  # The rest tells the clock.
            table.setdefault((operation, what), {})[who] = run
    return table


def scaled(value, units, step):
    """Three digits and the unit that suits them."""
    for unit in units[:-1]:
        if round(value) < step:
            break
        value /= step
    else:
        unit = units[-1]
    digits = max(0, 2 - len(str(int(value))) + 1)
    return f"{value:.{digits}f}".rstrip("0").rstrip(".") + f" {unit}" if digits else f"{value:.0f} {unit}"


def measure(run):
    """What a run is compared by, and how it is shown."""
    rate = run.get("bytes_per_second")
    if rate:
        return rate, f"{rate / 1e9:.2f} GB/s"
    return run["real_time"], scaled(run["real_time"], ("ns", "us", "ms", "s"), 1000)


def cell(by, who):
    if who not in by:
        return "-"
    value, shown = measure(by[who])
    return shown if who == US else f"{shown} ({measure(by[US])[0] / value:.2f})"


def rows(table):
    """The heading and a row for each operation and what it is done to, all cells as text."""
    everybody = [US]
    for by in table.values():
        everybody += [who for who in by if who not in everybody]
    yield ["operation", "of"] + everybody
    for (operation, what), by in table.items():
        if US not in by:
            continue  # A filter left us out.
        shown = scaled(int(what), ("B", "KiB", "MiB"), 1024) if what.isdigit() else what
        yield [operation, shown] + [cell(by, who) for who in everybody]


def growth_rows(table):
    """The heading and a row for each number that an operation was done with, all cells as text."""
    yield ["operation", "of", "a call", "ratio"] + MEMORY
    first = {}
    for (operation, what), by in table.items():
        run = by[US]
        peers = [peer for who, peer in by.items() if who != US]
        base = peers[0] if peers else first.setdefault(operation, run)
        yield [operation, what, measure(run)[1], f"{run['real_time'] / base['real_time']:.2f}"] + [
            scaled(run[name], ("B", "KiB", "MiB"), 1024) if name in run else "-" for name in MEMORY]


def print_data(table):
    shown = None
    for (operation, what), by in table.items():
        if operation != shown:
            print(f"\n\n# {operation}")
            shown = operation
        run = by[US]
        memory = [run.get(name, 0) / 1024 for name in MEMORY]
        print(what.split()[0], run["real_time"] / 1000, *memory)


def print_table(table, markdown):
    widths = [max(map(len, column)) for column in zip(*table)]
    if markdown:
        table.insert(1, ["-" * width for width in widths[:1]] +
                     ["-" * (width - 1) + ":" for width in widths[1:]])
    for row in table:
        cells = [row[0].ljust(widths[0])] + [
            text.rjust(width) for text, width in zip(row[1:], widths[1:])]
        print("| " + " | ".join(cells) + " |" if markdown else "  ".join(cells))


def main(arguments):
    options = {argument for argument in arguments if argument.startswith("--")}
    tables = [medians(path) for path in arguments if path not in options]
    if options & {"--growth", "--data"}:
        tables = [{row: by for table in tables for row, by in table.items()}]
    for table in tables:
        if "--data" in options:
            print_data(table)
        else:
            print_table(list((growth_rows if "--growth" in options else rows)(table)),
                        "--markdown" in options)
            print()


main(sys.argv[1:])

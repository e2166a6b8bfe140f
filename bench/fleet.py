#!/usr/bin/env python3
"""Measures collecting and reading fleets of servers of ten sites at three sizes, in SQLite and in PostgreSQL.

usage: fleet.py BUILD_FOLDER [--sizes 100,1000,10000] [--runs 3] [--postgres ADDRESS]

BUILD_FOLDER has bin/iisinventory and bin/generate_metabase. ADDRESS is an empty database on a PostgreSQL server. Prints
a table for each kind of database: medians in seconds, and the peak memory of the last one in MiB.
"""

import argparse
import os
import re
import sqlite3
import statistics
import subprocess
import tempfile
import time
from pathlib import Path

FILES = 20  # distinct
VIEW = "select * from {} where server = '{}'"


def run(arguments):
    """Gives seconds and MiB of a command, whose status must be 0 or 1."""
    start = time.monotonic()
    child = subprocess.Popen(arguments, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    if os.waitstatus_to_exitcode(status) not in (0, 1):
        raise RuntimeError(f"{arguments[:3]} ended with {status}")
    return time.monotonic() - start, usage.ru_maxrss / 1024


def measured(arguments, count):
    runs = [run(arguments) for _ in range(count)]
    return statistics.median(seconds for seconds, _ in runs), runs[-1][1]


def view_seconds(database, server):
    """The slowest view of one server."""
    slowest = 0
    for view in ("ftp_site", "ftp_directory", "ftp_access", "app_pool", "web_extension", "application"):
        if "://" in database:
            plan = subprocess.run(
                ["psql", "-At", database, "-c", "explain analyze " + VIEW.format("iis_inventory." + view, server)],
                check=True, capture_output=True, text=True).stdout
            seconds = sum(float(time) for time in re.findall(r"(?:Planning|Execution) Time: ([0-9.]+)", plan)) / 1000
        else:
            with sqlite3.connect(database) as connection:
                start = time.monotonic()
                connection.execute(VIEW.format(view, server)).fetchall()
                seconds = time.monotonic() - start
        slowest = max(slowest, seconds)
    return slowest


def report(program, files, size, database, second, folder, count):
    servers = [f"S{number:05}={files[number % FILES]}" for number in range(size)]
    middle = f"S{size // 2:05}"
    to = ["--database", database, "--log-dir", str(folder)]
    cells = [f"{size:,}"]

    def add(arguments, once=False):
        seconds, megabytes = run(arguments) if once else measured(arguments, count)
        cells.append(f"{seconds:.2f} ({megabytes:.0f})")

    add([program, "collect", "--quiet", *servers, *to], once=True)
    add([program, "collect", "--quiet", servers[size // 2], *to])
    add([program, "servers", "-d", database])
    add([program, "show", "tblGeneral", "--server", middle, "-d", database])
    add([program, "show", "tblGeneral", "--format", "csv", "-d", database])
    add([program, "findings", "--rule", "*", "--format", "csv", "-d", database])
    if second:
        run([program, "copy", "--from", database, "--to", second])
        add([program, "diff", database, second])
    add([program, "report", "-d", database, "-o", f"{folder}/report{size}/"])
    cells.append(f"{view_seconds(database, middle) * 1000:.1f} ms")
    print("| " + " | ".join(cells) + " |", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build")
    parser.add_argument("--sizes", default="100,1000,10000")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--postgres")
    options = parser.parse_args()
    binaries = Path(options.build) / "bin"
    program = str(binaries / "iisinventory")
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        files = [folder / f"{number}.xml" for number in range(FILES)]
        for number, file in enumerate(files):
            subprocess.run([binaries / "generate_metabase", "--sites=10", "--pools=1", "--applications=2", "--extensions=2",
                            f"--seed={number + 1}", file], check=True)
        heads = ["Servers", "Collect all", "One again", "`servers`", "`show --server`", "`show` of all", "`findings`"]
        tail = ["`report`", "Slowest view of one server"]
        for kind in ("SQLite", "PostgreSQL") if options.postgres else ("SQLite",):
            columns = heads + (["`diff`"] if kind == "SQLite" else []) + tail
            print(f"\n{kind}\n\n| " + " | ".join(columns) + " |\n|" + "---|" * len(columns), flush=True)
            for size in map(int, options.sizes.split(",")):
                if kind == "SQLite":
                    database, second = str(folder / f"{size}.db"), str(folder / f"{size}.copy.db")
                else:
                    subprocess.run(["psql", "-q", options.postgres, "-c", "drop schema if exists iis_inventory cascade"],
                                   check=True, stderr=subprocess.DEVNULL)
                    database, second = options.postgres, None
                report(program, files, size, database, second, folder, options.runs)


if __name__ == "__main__":
    main()

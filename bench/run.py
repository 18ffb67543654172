#!/usr/bin/env python3
"""Measures the library against plain tools, as ratios within one run.

usage: bench/run.sh [SIZE-IN-MIB] [ROUNDS]

Every round measures each command once, one after the other, so that a noisy machine disturbs them
alike; the figures are medians over the rounds. Ends with 1 when a limit is exceeded.
"""

import pathlib
import sys

import figures
import servers
import workplace

DOWNLOAD_CPU_LIMIT = 1.0  # of `curl -o` and one `cp`
DOWNLOAD_OVER_OLD_CPU_LIMIT = 1.05
RESUME_CPU_LIMIT = 2.6  # of one `cp` of the file; the rules ask for two copies
FTP_CPU_LIMIT = 1.05  # of `curl -o` and one `cp`
CALLS_LIMIT = 100  # a bare libcurl handle makes 46
CALLS_OVER_OLD_LIMIT = 105
INSTRUCTIONS_LIMIT = 1.35  # of a bare libcurl handle
MANY_CPU_LIMIT = 1.8  # of bare libcurl handles
HEAP_LIMIT_KIB = 96  # above a bare libcurl program
UPLOAD_CPU_LIMIT = 1.2  # of `curl -T`
UPLOAD_HEAP_LIMIT = 1.05  # constant memory
COPY_TIME_LIMIT = 1.3  # of `cp`
COPY_HEAP_LIMIT_KIB = 64  # above a program that copies nothing
LIBRARY_SIZE_LIMIT_KIB = 200

MANY = 500


class Table:
    """Rows of the report; remembers whether a limit was exceeded."""

    def __init__(self):
        self.failed = False

    def head(self, size_mib, rounds):
        print(f"| {size_mib} MiB, median of {rounds} rounds | measured | limit | |")
        print("|---|---|---|---|")

    def row(self, what, figure, limit, unit=" x"):
        verdict = "ok" if figure <= limit else "EXCEEDED"
        self.failed = self.failed or figure > limit
        print(f"| {what} | {figure:.2f}{unit} | {limit:.2f}{unit} | {verdict} |", flush=True)


def measure_large_downloads(place, table, port):
    """Downloads of the large file over HTTP."""
    table.row("HTTP download: CPU of `curl -o` plus `cp`",
              figures.download_ratio(place, "http", port), DOWNLOAD_CPU_LIMIT)
    table.row("the same over an old file of that size",
              figures.download_ratio(place, "http", port, over_old=True),
              DOWNLOAD_OVER_OLD_CPU_LIMIT)
    table.row("resume of the last 10 %: CPU of `cp` of the file",
              figures.resume_ratio(place, port), RESUME_CPU_LIMIT)


def measure_small_downloads(place, table, port):
    """What 4 KiB cost beside the bytes."""
    bare = figures.system_calls_of_bare_handle(place, port)
    table.row(f"4 KiB download: system calls (bare libcurl: {bare:.0f})",
              figures.system_calls_of_download(place, port, "numbered"), CALLS_LIMIT, "")
    table.row("the same over an old file",
              figures.system_calls_of_download(place, port, "same"), CALLS_OVER_OLD_LIMIT, "")
    table.row("4 KiB download: instructions of bare libcurl",
              figures.instructions_ratio(place, port), INSTRUCTIONS_LIMIT)
    table.row(f"{MANY} downloads of 4 KiB: CPU of bare libcurl",
              figures.many_downloads_ratio(place, port, MANY), MANY_CPU_LIMIT)


def measure_exchange(place, table):
    sink = servers.Sink()
    table.row("exchange: CPU of `curl -T` with POST", figures.upload_ratio(place, sink),
              UPLOAD_CPU_LIMIT)
    medium, big = (figures.upload_heap(place, sink, name) for name in ("medium", "big"))
    table.row("exchange: peak heap, large request against small", big / medium, UPLOAD_HEAP_LIMIT)


def measure_all(place, table):
    table.head(place.size_mib, place.rounds)
    with servers.nginx(place.work) as port:
        measure_large_downloads(place, table, port)
        measure_small_downloads(place, table, port)
        for name, size_mib in (("medium", workplace.MEDIUM_MIB), ("big", place.size_mib)):
            table.row(f"HTTP download of {size_mib} MiB: peak heap above bare libcurl",
                      figures.extra_heap(place, port, name) / 1024, HEAP_LIMIT_KIB, " KiB")
    with servers.vsftpd(place.work) as port:
        table.row("FTP download: CPU of `curl -o` plus `cp`",
                  figures.download_ratio(place, "ftp", port), FTP_CPU_LIMIT)
    measure_exchange(place, table)
    table.row("local copy: wall time of `cp`", figures.copy_ratio(place), COPY_TIME_LIMIT)
    table.row("local copy: peak heap above a program that copies nothing",
              figures.copy_heap(place) / 1024, COPY_HEAP_LIMIT_KIB, " KiB")
    table.row("`libvoinet.so.4`, stripped", figures.stripped_size(place) / 1024,
              LIBRARY_SIZE_LIMIT_KIB, " KiB")


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    size_mib = int(sys.argv[2]) if len(sys.argv) > 2 else 1024
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 6
    table = Table()
    with workplace.Workplace(build, size_mib, rounds) as place:
        measure_all(place, table)
    return 1 if table.failed else 0


if __name__ == "__main__":
    sys.exit(main())

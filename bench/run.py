#!/usr/bin/env python3
"""Measures the library against plain tools, as ratios within one run.

usage: bench/run.sh [SIZE-IN-MIB] [ROUNDS]

Every round measures each command once, one after the other, so that a noisy machine disturbs them
alike; the figures are medians over the rounds. Ends with 1 when a limit is exceeded.
"""

import contextlib
import os
import pathlib
import re
import resource
import shutil
import socket
import statistics
import subprocess
import sys
import tempfile
import time

DOWNLOAD_CPU_LIMIT = 1.3  # of `curl -o` and one `cp`
COPY_TIME_LIMIT = 3.0  # of `cp`
HEAP_LIMIT = 128 * 1024  # above a bare libcurl program
LIBRARY_SIZE_LIMIT = 256 * 1024


def measure(*command):
    """Runs a command; returns (CPU seconds, wall seconds)."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    wall = time.monotonic() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return cpu, wall


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(port):
    for _ in range(100):
        try:
            socket.create_connection(("127.0.0.1", port)).close()
            return
        except OSError:
            time.sleep(0.05)
    sys.exit(f"nginx does not answer on port {port}")


@contextlib.contextmanager
def nginx(directory, port):
    """Serves `directory` on loopback until the block ends."""
    configuration = directory / "nginx.conf"
    configuration.write_text(
        f"""daemon off; pid {directory}/nginx.pid; error_log {directory}/error.log;
        events {{}}
        http {{
            access_log off; sendfile on;
            client_body_temp_path {directory}/t1; proxy_temp_path {directory}/t2;
            fastcgi_temp_path {directory}/t3; uwsgi_temp_path {directory}/t4;
            scgi_temp_path {directory}/t5;
            server {{ listen 127.0.0.1:{port}; root {directory}/root; }}
        }}
        """
    )
    server = subprocess.Popen(["nginx", "-c", configuration, "-p", directory])
    try:
        wait_for(port)
        yield
    finally:
        server.terminate()
        server.wait()


def peak_heap(directory, *command):
    """Peak heap in bytes, as massif sees it."""
    report = directory / "massif"
    subprocess.run(
        ["valgrind", "--tool=massif", f"--massif-out-file={report}", *command],
        check=True,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
    )
    return max(int(n) for n in re.findall(r"^mem_heap_B=(\d+)$", report.read_text(), re.M))


class Table:
    """Rows of the report; remembers whether a limit was exceeded."""

    def __init__(self):
        self.failed = False

    def row(self, what, figure, limit, unit):
        verdict = "ok" if figure <= limit else "EXCEEDED"
        self.failed = self.failed or figure > limit
        print(f"| {what} | {figure:.2f}{unit} | {limit:.2f}{unit} | {verdict} |")


def download_ratio(programs, work, port, rounds):
    url = f"http://127.0.0.1:{port}/big"
    ratios = []
    for _ in range(rounds):
        curl, _ = measure("curl", "-s", "-o", work / "curl.out", url)
        copy, _ = measure("cp", work / "curl.out", work / "cp.out")
        for name in ("curl.out", "cp.out"):
            (work / name).unlink()
        library, _ = measure(
            programs / "bench_library_download", f"127.0.0.1:{port}", "big", work / "library.out"
        )
        (work / "library.out").unlink()
        ratios.append(library / (curl + copy))
    return statistics.median(ratios)


def copy_ratio(programs, work, rounds):
    ratios = []
    for _ in range(rounds):
        _, plain = measure("cp", work / "root/big", work / "cp.out")
        (work / "cp.out").unlink()
        _, library = measure(programs / "bench_library_copy", work / "root", "big", work / "copy.out")
        (work / "copy.out").unlink()
        ratios.append(library / plain)
    return statistics.median(ratios)


def extra_heap(programs, work, port, name):
    bare = peak_heap(
        work, programs / "bench_bare_download", f"http://127.0.0.1:{port}/{name}", work / "out"
    )
    (work / "out").unlink()
    library = peak_heap(
        work, programs / "bench_library_download", f"127.0.0.1:{port}", name, work / "out"
    )
    return library - bare


def stripped_size(library, work):
    stripped = work / "stripped"
    subprocess.run(["strip", "-o", stripped, library], check=True)
    return stripped.stat().st_size


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    size_mib = int(sys.argv[2]) if len(sys.argv) > 2 else 1024
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    programs = build / "bench"
    work = pathlib.Path(tempfile.mkdtemp(prefix="voinet-bench-", dir=build))
    table = Table()
    try:
        root = work / "root"
        root.mkdir()
        os.chmod(work, 0o755)
        (root / "SiteStat.xml").write_text("<SiteStatus/>\n")
        with open(root / "big", "wb") as big, open("/dev/urandom", "rb") as source:
            for _ in range(size_mib):
                big.write(source.read(1 << 20))
        with open(root / "small", "wb") as small:
            small.write(os.urandom(16 << 20))
        port = free_port()
        print(f"| {size_mib} MiB, median of {rounds} rounds | measured | limit | |")
        print("|---|---|---|---|")
        with nginx(work, port):
            ratio = download_ratio(programs, work, port, rounds)
            table.row("download: CPU of `curl -o` plus `cp`", ratio, DOWNLOAD_CPU_LIMIT, " x")
            for name in ("small", "big"):
                heap = extra_heap(programs, work, port, name) / 1024
                table.row(
                    f"download of {(root / name).stat().st_size >> 20} MiB: peak heap above bare"
                    " libcurl",
                    heap,
                    HEAP_LIMIT / 1024,
                    " KiB",
                )
        table.row(
            "local copy: wall time of `cp`", copy_ratio(programs, work, rounds), COPY_TIME_LIMIT, " x"
        )
        size = stripped_size(build / "src/libvoinet.so.4", work) / 1024
        table.row("`libvoinet.so.4`, stripped", size, LIBRARY_SIZE_LIMIT / 1024, " KiB")
    finally:
        shutil.rmtree(work)
    return 1 if table.failed else 0


if __name__ == "__main__":
    sys.exit(main())

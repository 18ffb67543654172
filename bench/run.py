#!/usr/bin/env python3
"""Measures the library against plain tools, as ratios within one run.

usage: bench/run.sh [SIZE-IN-MIB] [ROUNDS]

Every round measures each command once, one after the other, so that a noisy machine disturbs them
alike; the figures are medians over the rounds. Ends with 1 when a limit is exceeded.
"""

import contextlib
import mmap
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
import threading
import time

DOWNLOAD_CPU_LIMIT = 1.3  # of `curl -o` and one `cp`
UPLOAD_CPU_LIMIT = 1.2  # of `curl -T`
UPLOAD_HEAP_LIMIT = 1.05  # constant memory
COPY_TIME_LIMIT = 3.0  # of `cp`
HEAP_LIMIT = 128 * 1024  # above a bare libcurl program
LIBRARY_SIZE_LIMIT = 256 * 1024

WARM_MIB = 3 * 1024


def warm_memory(size_mib):
    """Touches as much memory as a measured command may fill with file contents.

    A virtual machine that gives free memory back to its host pays for the first touch, which can
    take several times as long as the copying that is measured.
    """
    block = bytes(1 << 20)
    with mmap.mmap(-1, size_mib << 20) as memory:
        for _ in range(size_mib):
            memory.write(block)


def measure(*command):
    """Runs a command; returns (CPU seconds, wall seconds).

    What the command before it left to be written is written first: the kernel would charge it to
    this one.
    """
    os.sync()
    warm_memory(WARM_MIB)
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


@contextlib.contextmanager
def vsftpd(directory, port):
    """Serves `directory`/root over FTP for everybody until the block ends."""
    (directory / "empty").mkdir()
    configuration = directory / "vsftpd.conf"
    launching_user = "NO" if os.getuid() == 0 else "YES"
    configuration.write_text(
        f"""background=NO
listen=YES
listen_address=127.0.0.1
listen_port={port}
anonymous_enable=YES
local_enable=NO
anon_root={directory}/root
secure_chroot_dir={directory}/empty
run_as_launching_user={launching_user}
seccomp_sandbox=NO
"""
    )
    os.chmod(directory / "root", 0o555)
    server = subprocess.Popen(["vsftpd", configuration])
    try:
        wait_for(port)
        yield
    finally:
        server.terminate()
        server.wait()
        os.chmod(directory / "root", 0o755)


class Sink(threading.Thread):
    """Takes posted bodies and forgets them."""

    def __init__(self):
        super().__init__(daemon=True)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.start()

    def run(self):
        room = bytearray(1 << 20)
        while True:
            connection, _ = self.listener.accept()
            with connection:
                head = b""
                while b"\r\n\r\n" not in head:
                    head += connection.recv(1 << 16)
                head, _, body = head.partition(b"\r\n\r\n")
                left = int(re.search(rb"(?i)content-length: *(\d+)", head)[1]) - len(body)
                while left > 0:
                    left -= connection.recv_into(room, min(left, len(room)))
                connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok")


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


def ratio_in_turns(plain, library, leftover, rounds):
    """Median of library/plain, in turns: who comes second often gets memory that costs more."""
    ratios = []
    for number in range(rounds):
        figures = {}
        for run in (plain, library) if number % 2 == 0 else (library, plain):
            figures[run] = run()
            leftover.unlink()
        ratios.append(figures[library] / figures[plain])
    return statistics.median(ratios)


def download_ratio(programs, work, scheme, port, rounds):
    """CPU time of the library's download over that of `curl -o` and `cp` together."""
    url = f"{scheme}://127.0.0.1:{port}/big"
    copy = work / "copy.out"
    download = programs / "bench_library_download"

    def plain():
        curl, _ = measure("curl", "-s", "-o", work / "curl.out", url)
        cpu, _ = measure("cp", work / "curl.out", copy)
        (work / "curl.out").unlink()
        return curl + cpu

    def library():
        return measure(download, scheme, f"127.0.0.1:{port}", "big", copy)[0]

    return ratio_in_turns(plain, library, copy, rounds)


def copy_ratio(programs, work, rounds):
    """Wall time of the library's local copy over that of `cp`."""
    copy = work / "copy.out"

    def plain():
        return measure("cp", work / "root/big", copy)[1]

    def library():
        return measure(programs / "bench_library_copy", work / "root", "big", copy)[1]

    return ratio_in_turns(plain, library, copy, rounds)


def extra_heap(programs, work, port, name):
    bare = peak_heap(
        work, programs / "bench_bare_download", f"http://127.0.0.1:{port}/{name}", work / "out"
    )
    (work / "out").unlink()
    library = peak_heap(
        work, programs / "bench_library_download", "http", f"127.0.0.1:{port}", name, work / "out"
    )
    return library - bare


def upload_ratio(programs, work, sink, rounds):
    ratios = []
    for _ in range(rounds):
        url = f"http://127.0.0.1:{sink.port}/sink"
        curl, _ = measure(
            "curl", "-s", "-X", "POST", "-H", "Expect:", "-T", work / "root/big", url
        )
        library, _ = measure(
            programs / "bench_library_upload",
            f"127.0.0.1:{sink.port}",
            work / "root/big",
            work / "response",
        )
        ratios.append(library / curl)
    return statistics.median(ratios)


def upload_heap(programs, work, sink, name):
    """Peak heap of one exchange; it must not depend on the size."""
    return peak_heap(
        work,
        programs / "bench_library_upload",
        f"127.0.0.1:{sink.port}",
        work / "root" / name,
        work / "response",
    )


def stripped_size(library, work):
    stripped = work / "stripped"
    subprocess.run(["strip", "-o", stripped, library], check=True)
    return stripped.stat().st_size


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    size_mib = int(sys.argv[2]) if len(sys.argv) > 2 else 1024
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 6
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
            ratio = download_ratio(programs, work, "http", port, rounds)
            table.row("HTTP download: CPU of `curl -o` plus `cp`", ratio, DOWNLOAD_CPU_LIMIT, " x")
            for name in ("small", "big"):
                heap = extra_heap(programs, work, port, name) / 1024
                table.row(
                    f"HTTP download of {(root / name).stat().st_size >> 20} MiB: peak heap above bare"
                    " libcurl",
                    heap,
                    HEAP_LIMIT / 1024,
                    " KiB",
                )
        ftp_port = free_port()
        with vsftpd(work, ftp_port):
            ratio = download_ratio(programs, work, "ftp", ftp_port, rounds)
            table.row("FTP download: CPU of `curl -o` plus `cp`", ratio, DOWNLOAD_CPU_LIMIT, " x")
        sink = Sink()
        ratio = upload_ratio(programs, work, sink, rounds)
        table.row("exchange: CPU of `curl -T` with POST", ratio, UPLOAD_CPU_LIMIT, " x")
        small, big = (upload_heap(programs, work, sink, name) for name in ("small", "big"))
        table.row(
            "exchange: peak heap, large request against small", big / small, UPLOAD_HEAP_LIMIT, " x"
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

#!/usr/bin/env python3
"""Size and resident memory of the library that was cross-built: powerpc.py BUILD-DIRECTORY SERVER

Ends with 1 when the library is larger than its limit.
"""

import os
import re
import shlex
import subprocess
import sys
import tempfile

DOWNLOAD_MIB = 16
ROUNDS = 5
LIBRARY_SIZE_LIMIT_KIB = 200


def emulator(build):
    with open(os.path.join(build, "CMakeCache.txt"), encoding="utf-8") as cache:
        return re.search(r"^VOINET_EMULATOR:\w+=(.*)$", cache.read(), re.M).group(1).split(";")


def peak_memory(command, directory):
    """The largest resident set of a command in KiB, the emulator's own included."""
    report = os.path.join(directory, "time.txt")
    # A small program has to start it: what starts a command counts in the command's peak.
    status = subprocess.run(["/usr/bin/time", "-q", "-f", "%M", "-o", report, *command],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                            check=False).returncode
    with open(report, encoding="utf-8") as file:
        return status, int(file.read())


def median_memory(command, expected_status, directory):
    peaks = []
    for _ in range(ROUNDS):
        status, peak = peak_memory(command, directory)
        if status != expected_status:
            sys.exit(f"{shlex.join(command)} ended with {status}, not with {expected_status}")
        peaks.append(peak)
    return sorted(peaks)[ROUNDS // 2]


def empty_program(directory):
    source, program = (os.path.join(directory, name) for name in ("empty.cpp", "empty"))
    with open(source, "w", encoding="utf-8") as file:
        file.write("#include <string>\nint main(int count, char**) {\n"
                   "    return static_cast<int>(std::to_string(count).size()) - 1;\n}\n")
    subprocess.run(["powerpc-linux-gnu-g++", "-O2", source, "-o", program], check=True)
    return program


def show_library(build, directory):
    library = os.path.join(build, "src", "libvoinet.so.4")
    stripped = os.path.join(directory, "stripped.so")
    subprocess.run(["powerpc-linux-gnu-strip", "-o", stripped, library], check=True)
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", subprocess.run(
        ["readelf", "--dynamic", "--wide", library], check=True, stdout=subprocess.PIPE,
        text=True).stdout)
    size = os.path.getsize(stripped) / 1024
    fits = size <= LIBRARY_SIZE_LIMIT_KIB
    verdict = "ok" if fits else "EXCEEDED"
    limit = f"limit {LIBRARY_SIZE_LIMIT_KIB} KiB: {verdict}"
    print(f"| `libvoinet.so.4`, stripped | {size:.1f} KiB, {limit} |")
    print(f"| needs | {', '.join(f'`{name}`' for name in needed)} |")
    return fits


def show_memory(build, server, directory):
    run = emulator(build)
    host = os.path.join(build, "docs", "samples", "sample_host")
    repository = os.path.join(directory, "repository")
    os.mkdir(repository)
    with open(os.path.join(repository, "file.bin"), "wb") as file:
        file.write(os.urandom(DOWNLOAD_MIB << 20))
    with subprocess.Popen([server, "--port", "0", repository], stdout=subprocess.PIPE,
                          text=True) as serving:
        try:
            port = re.search(r":(\d+)/", serving.stdout.readline()).group(1)
            empty = median_memory(run + [empty_program(directory)], 0, directory)
            loaded = median_memory(run + [host], 2, directory)
            target = os.path.join(directory, "downloaded.bin")
            done = median_memory(run + [host, f"127.0.0.1:{port}", "file.bin", target], 0,
                                 directory)
            if os.path.getsize(target) != DOWNLOAD_MIB << 20:
                sys.exit("the downloaded file has the wrong size")
        finally:
            serving.terminate()
    print(f"| resident, an empty C++ program | {empty} KiB |")
    print(f"| resident, the sample host with its libraries loaded | {loaded} KiB |")
    print(f"| resident, the sample host downloading {DOWNLOAD_MIB} MiB over HTTP | {done} KiB |")


def main():
    build, server = sys.argv[1:]
    print("| 32-bit PowerPC | |\n|---|---|")
    with tempfile.TemporaryDirectory() as directory:
        fits = show_library(build, directory)
        show_memory(build, server, directory)
    return 0 if fits else 1


if __name__ == "__main__":
    sys.exit(main())

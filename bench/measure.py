"""Ways to measure a command."""

import mmap
import os
import re
import resource
import statistics
import subprocess
import time

WARM_MIB = 3 * 1024


def warm_memory(size_mib):
    """Touches as much memory as a measured command may fill with file contents.

    A virtual machine that gives free memory back to its host pays for the first touch, which can
    take several times as long as the copying that is measured.
    """
    if size_mib == 0:
        return
    block = bytes(1 << 20)
    with mmap.mmap(-1, size_mib << 20) as memory:
        for _ in range(size_mib):
            memory.write(block)


def run_quietly(command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def measure(*command, warm_mib=WARM_MIB):
    """Runs a command; returns (CPU seconds, wall seconds).

    What the command before it left to be written is written first: the kernel would charge it to
    this one.
    """
    os.sync()
    warm_memory(warm_mib)
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    run_quietly(command)
    wall = time.monotonic() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return cpu, wall


def ratio_in_turns(plain, library, rounds):
    """Median of library/plain, in turns: who comes second often gets memory that costs more."""
    ratios = []
    for number in range(rounds):
        figures = {}
        for run in (plain, library) if number % 2 == 0 else (library, plain):
            figures[run] = run()
        ratios.append(figures[library] / figures[plain])
    return statistics.median(ratios)


def peak_heap(work, *command):
    """Peak heap in bytes, as massif sees it."""
    report = work / "massif"
    run_quietly(["valgrind", "--tool=massif", f"--massif-out-file={report}", *command])
    return max(int(n) for n in re.findall(r"^mem_heap_B=(\d+)$", report.read_text(), re.M))


def system_calls(work, *command):
    """Number of system calls of a command and all its threads."""
    report = work / "strace"
    run_quietly(["strace", "-f", "-c", "-o", report, *command])
    # Percentage, seconds, microseconds per call, calls.
    return int(re.search(r"^ *100\.00 +\S+ +\S+ +(\d+) .*total$", report.read_text(), re.M)[1])


def instructions(work, *command):
    """Number of instructions that a command executes itself; the kernel's are not counted."""
    report = work / "callgrind"
    run_quietly(["valgrind", "--tool=callgrind", f"--callgrind-out-file={report}", *command])
    return int(re.search(r"^totals: (\d+)$", report.read_text(), re.M)[1])


def per_repetition(count, few, many):
    """What one repetition costs, without the start of the program: `count` of runs with `few` and
    `many` repetitions."""
    return (count(many) - count(few)) / (many - few)

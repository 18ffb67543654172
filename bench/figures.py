"""The figures of the report. Each function answers one of them for a Workplace."""

import os
import subprocess

from measure import (instructions, measure, peak_heap, per_repetition, ratio_in_turns,
                     system_calls)

# Small files fill no memory that would have to be warm.
COLD = 0

# These are quick, and their CPU time varies more.
MANY_ROUNDS = 15

# Downloads per run whose difference is one download's share. The first ones in a process do more.
FEW, MANY = 10, 110


def download_command(place, scheme, port, name, target, *options):
    return (place.program("library_download"), scheme, f"127.0.0.1:{port}", name, target,
            *map(str, options))


def bare_command(place, port, name, target, *options):
    return (place.program("bare_download"), f"http://127.0.0.1:{port}/{name}", target,
            *map(str, options))


def plain_download(place, scheme, port):
    """CPU time of `curl -o` and `cp` to a new name."""
    received, copy = place.work / "curl.out", place.work / "cp.out"
    curl, _ = measure("curl", "-s", "-o", received, f"{scheme}://127.0.0.1:{port}/big")
    cp, _ = measure("cp", received, copy)
    place.check(copy, "big")
    received.unlink()
    copy.unlink()
    return curl + cp


def download_ratio(place, scheme, port, over_old=False):
    """CPU time of the library's download over that of `curl -o` and `cp` together. It makes a new
    file, or replaces the one of the same size that the download before left there."""
    def library():
        cpu, _ = measure(*download_command(place, scheme, port, "big", place.copy))
        place.check(place.copy, "big")
        if not over_old:
            place.copy.unlink()
        return cpu

    if over_old:
        subprocess.run(["cp", place.big, place.copy], check=True)
    ratio = ratio_in_turns(lambda: plain_download(place, scheme, port), library, place.rounds)
    place.copy.unlink(missing_ok=True)
    return ratio


def resume_ratio(place, port):
    """CPU time of fetching the last tenth of a file over that of `cp` of the whole."""
    partial = place.work / "partial.out"
    subprocess.run(["cp", place.big, partial], check=True)

    def plain():
        cpu, _ = measure("cp", place.big, place.copy)
        place.copy.unlink()
        return cpu

    def library():
        os.truncate(partial, place.big.stat().st_size * 9 // 10)
        cpu, _ = measure(*download_command(place, "http", port, "big", partial, 1, "resume"))
        place.check(partial, "big")
        return cpu

    ratio = ratio_in_turns(plain, library, place.rounds)
    partial.unlink()
    return ratio


def small_download(place, port, mode):
    """The command that downloads 4 KiB `count` times."""
    def command(count):
        target = place.small_target()
        return download_command(place, "http", port, "small", target, count, mode)
    return command


def small_bare_download(place, port):
    def command(count):
        target = place.small_target()
        return bare_command(place, port, "small", target, count, "numbered")
    return command


def system_calls_of_download(place, port, mode):
    command = small_download(place, port, mode)
    return per_repetition(lambda count: system_calls(place.work, *command(count)), FEW, MANY)


def system_calls_of_bare_handle(place, port):
    command = small_bare_download(place, port)
    return per_repetition(lambda count: system_calls(place.work, *command(count)), FEW, MANY)


def instructions_ratio(place, port):
    """Instructions outside the kernel of one download of 4 KiB over those of a bare handle."""
    library, bare = (
        per_repetition(lambda count: instructions(place.work, *command(count)), FEW, MANY)
        for command in (small_download(place, port, "numbered"), small_bare_download(place, port)))
    return library / bare


def many_downloads_ratio(place, port, count):
    """CPU time of small downloads in one process over that of bare handles."""
    library, bare = small_download(place, port, "numbered"), small_bare_download(place, port)
    return ratio_in_turns(lambda: measure(*bare(count), warm_mib=COLD)[0],
                          lambda: measure(*library(count), warm_mib=COLD)[0], MANY_ROUNDS)


def extra_heap(place, port, name):
    """Bytes of heap that the library needs beside libcurl."""
    target = place.work / "out"
    bare = peak_heap(place.work, *bare_command(place, port, name, target))
    target.unlink()
    library = peak_heap(place.work, *download_command(place, "http", port, name, target))
    place.check(target, name)
    target.unlink()
    return library - bare


def upload_ratio(place, sink):
    """CPU time of an exchange over that of `curl -T`."""
    address = f"127.0.0.1:{sink.port}"

    def plain():
        return measure("curl", "-s", "-X", "POST", "-H", "Expect:", "-T", place.big,
                       f"http://{address}/sink")[0]

    def library():
        return measure(place.program("library_upload"), address, place.big,
                       place.work / "response")[0]

    return ratio_in_turns(plain, library, place.rounds)


def upload_heap(place, sink, name):
    """Peak heap of one exchange; it must not depend on the size."""
    return peak_heap(place.work, place.program("library_upload"), f"127.0.0.1:{sink.port}",
                     place.root / name, place.work / "response")


def copy_ratio(place):
    """Wall time of the library's local copy over that of `cp`."""
    def timed(*command):
        _, wall = measure(*command)
        place.check(place.copy, "big")
        place.copy.unlink()
        return wall

    return ratio_in_turns(
        lambda: timed("cp", place.big, place.copy),
        lambda: timed(place.program("library_copy"), place.root, "big", place.copy),
        place.rounds)


def copy_heap(place):
    """Bytes of heap that a local copy needs beside its program."""
    program = place.program("library_copy")
    idle = peak_heap(place.work, program, place.root)
    copying = peak_heap(place.work, program, place.root, "big", place.copy)
    place.copy.unlink()
    return copying - idle


def stripped_size(place):
    stripped = place.work / "stripped"
    subprocess.run(["strip", "-o", stripped, place.build / "src/libvoinet.so.4"], check=True)
    return stripped.stat().st_size
